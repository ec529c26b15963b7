#include "board/daemon/server.h"

#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <utility>

namespace board {

namespace {

// Every open handle and as many that are about to open.
constexpr std::size_t mostConnections = 2 * std::size_t(wire::maxHandles);

}  // namespace

Server::Server(CoreBoard& board, Faults& faults, std::function<void()> firstClient)
    : board_(board),
      faults_(faults),
      firstClient_(std::move(firstClient)),
      listener_(board.loop(), board.folder() + "/" + wire::socketName, SOCK_SEQPACKET,
                [this](int fd) { accepted(fd); }) {}

Server::~Server() {
    for (const auto& entry : connections_)
        board_.loop().unwatch(entry.first);
}

std::map<std::string, unsigned> Server::openHandles() const {
    std::map<std::string, unsigned> counts;
    for (const auto& entry : connections_)
        if (!entry.second->path().empty())
            ++counts[entry.second->path()];
    return counts;
}

void Server::accepted(int fd) {
    if (connections_.size() >= mostConnections) {
        ::close(fd);
        return;
    }
    if (const auto first = std::exchange(firstClient_, nullptr))
        first();
    connections_[fd] = std::make_unique<Connection>(fd, board_, faults_);
    board_.loop().watch(fd, EPOLLIN, [this, fd](std::uint32_t) { ready(fd); });
}

void Server::ready(int fd) {
    const auto found = connections_.find(fd);
    if (found->second->serve())
        return;
    board_.loop().unwatch(fd);
    connections_.erase(found);
}

}  // namespace board
