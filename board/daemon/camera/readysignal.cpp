#include "board/daemon/camera/readysignal.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace board {

ReadySignal::ReadySignal() {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0)
        throw std::system_error(errno, std::generic_category(), "socketpair");
    client_ = ends[0];
    peer_ = ends[1];
}

ReadySignal::~ReadySignal() {
    hangUp();
    ::close(client_);
}

void ReadySignal::set(unsigned count) {
    // Flags of a shared socket belong to the client: never rely on O_NONBLOCK.
    const char token = 1;
    for (; count_ < count && peer_ >= 0; ++count_) {
        if (send(peer_, &token, 1, MSG_DONTWAIT | MSG_NOSIGNAL) != 1)
            return;
    }
    for (; count_ > count; --count_) {
        char taken;
        // Nothing there means that the client read the byte itself: gone is gone.
        if (recv(client_, &taken, 1, MSG_DONTWAIT) < 0)
            continue;
    }
}

void ReadySignal::hangUp() {
    if (peer_ >= 0)
        ::close(peer_);
    peer_ = -1;
}

}  // namespace board
