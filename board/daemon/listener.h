// A listening UNIX socket at a path.
#pragma once

#include "board/daemon/eventloop.h"

#include <functional>
#include <string>

namespace board {

class Listener {
  public:
    // `type` is SOCK_SEQPACKET or SOCK_STREAM. `accepted` gets each connection: non-blocking,
    // close-on-exec, the callee's. A stale socket file is replaced. Throws std::system_error.
    Listener(EventLoop& loop, const std::string& path, int type, std::function<void(int)> accepted);
    ~Listener();  // removes the socket file
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;

  private:
    void accept();

    EventLoop& loop_;
    std::string path_;
    std::function<void(int)> accepted_;
    int fd_ = -1;
    int spare_ = -1;  // given up for a moment when descriptors run out
};

}  // namespace board
