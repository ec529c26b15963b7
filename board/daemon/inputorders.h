// Orders that concern the input devices: keys, and what clients wrote.
#pragma once

#include "board/daemon/orders.h"
#include "board/daemon/rig.h"

namespace board {

// The rig must outlive `orders`.
void addInputOrders(Orders& orders, Rig& rig);

}  // namespace board
