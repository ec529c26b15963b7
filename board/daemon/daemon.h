// The whole board: devices of a scenario, their clients, their orders.
#pragma once

#include "board/daemon/coreboard.h"
#include "board/daemon/faults.h"
#include "board/daemon/orders.h"
#include "board/daemon/orderserver.h"
#include "board/daemon/rig.h"
#include "board/daemon/server.h"
#include "board/daemon/session.h"
#include "board/daemon/viewserver.h"

#include <functional>
#include <memory>
#include <string>

namespace board {

class Daemon {
  public:
    // `folder` is the run folder and exists. Clients and orders are accepted as soon as the loop
    // runs and the scenario's orders that come before them are done: `ready` is called then,
    // perhaps at once. Throws std::exception.
    Daemon(
        EventLoop& loop, const std::string& folder, const Scenario& scenario,
        std::function<void()> ready = [] {});

    CoreBoard& board() { return board_; }

  private:
    void addOrders();
    void open();
    JsonFields figures();
    JsonFields state();

    EventLoop& loop_;
    CoreBoard board_;
    Faults faults_;
    Rig rig_;                // outlives the clients' handles
    ViewServer viewServer_;  // and those who look on, who see them close
    Orders orders_;
    Session session_;
    std::unique_ptr<Server> server_;
    std::unique_ptr<OrderServer> orderServer_;
};

}  // namespace board
