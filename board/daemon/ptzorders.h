// Orders that ask a pan-tilt-zoom camera what it does and what it was told.
#pragma once

#include "board/daemon/orders.h"
#include "board/daemon/rig.h"

namespace board {

// The rig must outlive `orders`.
void addPtzOrders(Orders& orders, Rig& rig);

}  // namespace board
