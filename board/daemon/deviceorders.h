// Orders that concern the camera and the display.
#pragma once

#include "board/daemon/orders.h"
#include "board/daemon/rig.h"

namespace board {

// The rig must outlive `orders`.
void addDeviceOrders(Orders& orders, Rig& rig);

// What the devices counted.
JsonFields cameraFigures(Camera& camera);
JsonFields displayFigures(const Display& display);

}  // namespace board
