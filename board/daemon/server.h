// The socket for clients: accepts connections and serves each when it has something to say.
#pragma once

#include "board/daemon/connection.h"
#include "board/daemon/coreboard.h"
#include "board/daemon/faults.h"
#include "board/daemon/listener.h"

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <unordered_map>

namespace board {

class Server {
  public:
    // Listens in the board's run folder; `firstClient` is called once, when a client program
    // connects for the first time. Throws std::system_error.
    Server(CoreBoard& board, Faults& faults, std::function<void()> firstClient = {});
    ~Server();  // closes every connection, removes the socket

    std::size_t connections() const { return connections_.size(); }
    std::map<std::string, unsigned> openHandles() const;  // per node path

  private:
    void accepted(int fd);
    void ready(int fd);

    CoreBoard& board_;
    Faults& faults_;
    std::function<void()> firstClient_;  // empty once it was called
    std::unordered_map<int, std::unique_ptr<Connection>> connections_;
    Listener listener_;
};

}  // namespace board
