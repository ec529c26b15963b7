// Orders that concern the core: faults, parks, the wall clock.
#pragma once

#include "board/daemon/coreboard.h"
#include "board/daemon/faults.h"
#include "board/daemon/orders.h"

namespace board {

// An errno by name or number. Throws std::runtime_error for another value.
int readErrno(const JsonPlace& place);

// The board and the faults must outlive `orders`.
void addCoreOrders(Orders& orders, CoreBoard& board, Faults& faults);

}  // namespace board
