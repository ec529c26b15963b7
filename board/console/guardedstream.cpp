#include "board/console/guardedstream.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace board::console {

GuardedStream::GuardedStream(int socket, std::string received, const StreamLimits& limits)
    : socket_(socket),
      received_(std::move(received)),
      limits_(limits),
      deadline_(Clock::now() + limits.request) {}

bool GuardedStream::waitFor(short events, Clock::time_point deadline) const {
    for (;;) {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
        if (left.count() <= 0)
            return false;
        pollfd wanted{socket_, events, 0};
        const int ready = ::poll(&wanted, 1, int(left.count()) + 1);
        if (ready > 0)
            return true;
        if (ready < 0 && errno != EINTR)
            return false;
    }
}

bool GuardedStream::is_readable() const {
    return taken_ < received_.size() || waitFor(POLLIN, deadline_);
}

bool GuardedStream::is_writable() const {
    pollfd state{socket_, POLLRDHUP, 0};
    return ::poll(&state, 1, 0) <= 0;
}

ssize_t GuardedStream::read(char* bytes, std::size_t size) {
    size = std::min(size, limits_.requestBytes - bytes_);
    if (size == 0)
        return -1;
    if (taken_ < received_.size()) {
        size = std::min(size, received_.size() - taken_);
        std::memcpy(bytes, received_.data() + taken_, size);
        taken_ += size;
        bytes_ += size;
        return ssize_t(size);
    }
    while (waitFor(POLLIN, deadline_)) {
        const ssize_t got = ::recv(socket_, bytes, size, 0);
        if (got < 0 && (errno == EINTR || errno == EAGAIN))
            continue;
        bytes_ += got > 0 ? std::size_t(got) : 0;
        return got;
    }
    return -1;
}

ssize_t GuardedStream::write(const char* bytes, std::size_t size) {
    const Clock::time_point deadline = Clock::now() + limits_.write;
    for (std::size_t sent = 0; sent < size;) {
        const ssize_t went = ::send(socket_, bytes + sent, size - sent, MSG_NOSIGNAL);
        if (went >= 0)
            sent += std::size_t(went);
        else if (errno == EAGAIN ? !waitFor(POLLOUT, deadline) : errno != EINTR)
            return -1;
    }
    return ssize_t(size);
}

// Every caller comes from this machine: the addresses say nothing.
void GuardedStream::get_remote_ip_and_port(std::string& ip, int& port) const {
    ip = "127.0.0.1";
    port = 0;
}

void GuardedStream::get_local_ip_and_port(std::string& ip, int& port) const {
    ip = "127.0.0.1";
    port = 0;
}

}  // namespace board::console
