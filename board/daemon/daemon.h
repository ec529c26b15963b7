// The whole board: devices of a scenario, their clients, their orders.
#pragma once

#include "board/daemon/coreboard.h"
#include "board/daemon/faults.h"
#include "board/daemon/orders.h"
#include "board/daemon/orderserver.h"
#include "board/daemon/rig.h"
#include "board/daemon/server.h"

#include <string>

namespace board {

class Daemon {
  public:
    // `folder` is the run folder and exists. From here on clients are served as soon as the loop
    // runs. Throws std::exception.
    Daemon(EventLoop& loop, const std::string& folder, const Scenario& scenario);

    CoreBoard& board() { return board_; }

  private:
    JsonFields figures();
    JsonFields state();

    EventLoop& loop_;
    CoreBoard board_;
    Faults faults_;
    Rig rig_;  // outlives the clients' handles
    Server server_;
    Orders orders_;
    OrderServer orderServer_;
};

}  // namespace board
