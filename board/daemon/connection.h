// One client's connection: one open descriptor of a device.
#pragma once

#include "board/daemon/coreboard.h"
#include "board/daemon/device.h"
#include "board/daemon/faults.h"
#include "board/protocol/wire.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace board {

class Connection {
  public:
    // Takes the descriptor over.
    Connection(int fd, CoreBoard& board, Faults& faults);
    ~Connection();  // the last close: destroys the handle, gives the slot back
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    // Reads and answers what is there, a few messages at most. False when the connection is over:
    // the client closed it, broke the protocol or does not read its answers.
    bool serve();

    const std::string& path() const { return path_; }  // of the node; empty before the open
    std::uint32_t pid() const { return pid_; }         // as the client says

  private:
    // A response and what goes with it; descriptors stay owned by the handle.
    struct Answer {
        wire::Response header{};
        std::vector<std::byte> payload;
        std::vector<int> descriptors;
    };

    bool violation(const std::string& what);
    bool serveMessage(const std::byte* message, std::size_t bytes);
    bool send(const Answer& answer);
    Answer call(const wire::Request& request, const std::byte* payload);
    Answer open(const wire::Request& request, const std::byte* payload);
    Answer ioctl(const wire::Request& request, const std::byte* payload);
    Answer map(const wire::Request& request);

    int fd_;
    CoreBoard& board_;
    Faults& faults_;
    std::string path_;
    std::uint32_t pid_ = 0;
    std::uint32_t slot_ = wire::maxHandles;  // maxHandles: none yet
    std::unique_ptr<Handle> handle_;
};

}  // namespace board
