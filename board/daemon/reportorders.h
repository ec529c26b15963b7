// Orders that make the clients report: leak check, coverage data.
#pragma once

#include "board/daemon/coreboard.h"
#include "board/daemon/orders.h"

namespace board {

// The board must outlive `orders`.
void addReportOrders(Orders& orders, CoreBoard& board);

}  // namespace board
