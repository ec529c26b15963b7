#include "board/daemon/sound/pcmsignal.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace board {

namespace {

constexpr char token = 1;

// Flags of a shared socket belong to the client: never rely on O_NONBLOCK.
bool put(int fd) {
    return ::send(fd, &token, 1, MSG_DONTWAIT | MSG_NOSIGNAL) == 1;
}

// A client that writes without pause must not hold the loop.
void takeAll(int fd) {
    char taken[256];
    for (int i = 0; i < 16 && ::recv(fd, taken, sizeof taken, MSG_DONTWAIT) > 0; ++i) {
    }
}

}  // namespace

PcmSignal::PcmSignal(bool playback) : playback_(playback), ready_(playback) {
    int ends[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0)
        throw std::system_error(errno, std::generic_category(), "socketpair");
    client_ = ends[0];
    peer_ = ends[1];
    // The least that the kernel allows: a few bytes fill it.
    const int least = 1;
    ::setsockopt(client_, SOL_SOCKET, SO_SNDBUF, &least, sizeof least);
}

PcmSignal::~PcmSignal() {
    ::close(peer_);
    ::close(client_);
}

void PcmSignal::setReady(bool ready) {
    if (ready == ready_)
        return;
    ready_ = ready;
    if (playback_ == ready)
        drain();
    else
        fill();
}

// Playback: nothing more can be written. Capture: there is something to read.
void PcmSignal::fill() {
    if (!playback_) {
        put(peer_);
        return;
    }
    while (put(client_)) {
    }
}

void PcmSignal::drain() {
    takeAll(playback_ ? peer_ : client_);
}

void PcmSignal::notify(bool ready) {
    if (playback_)
        setReady(ready);
    // A byte that arrives raises the signal. It stays only where it means "readable".
    takeAll(client_);
    put(peer_);
    if (playback_ || !ready)
        takeAll(client_);
    ready_ = ready;
}

}  // namespace board
