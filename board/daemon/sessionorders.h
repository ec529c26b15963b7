// Orders about the run and about what could be plugged in.
#pragma once

#include "board/daemon/coreboard.h"
#include "board/daemon/orders.h"
#include "board/daemon/session.h"

namespace board {

// Board and session must outlive `orders`.
void addSessionOrders(Orders& orders, CoreBoard& board, const Session& session);

}  // namespace board
