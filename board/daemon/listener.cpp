#include "board/daemon/listener.h"

#include "board/daemon/unixaddress.h"

#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace board {

namespace {

constexpr int acceptsAtOnce = 64;

[[noreturn]] void fail(int error, const std::string& what) {
    throw std::system_error(error, std::generic_category(), what);
}

int openSpare() {
    return ::open("/dev/null", O_RDONLY | O_CLOEXEC);
}

}  // namespace

Listener::Listener(EventLoop& loop, const std::string& path, int type,
                   std::function<void(int)> accepted)
    : loop_(loop), path_(path), accepted_(std::move(accepted)) {
    const UnixAddress address(path);
    ::unlink(path.c_str());
    fd_ = ::socket(AF_UNIX, type | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd_ < 0)
        fail(errno, "socket");
    if (::bind(fd_, address.get(), address.size()) != 0 || ::chmod(path.c_str(), 0666) != 0 ||
        ::listen(fd_, SOMAXCONN) != 0) {
        const int error = errno;
        ::close(fd_);
        fail(error, path);
    }
    spare_ = openSpare();
    loop_.watch(fd_, EPOLLIN, [this](std::uint32_t) { accept(); });
}

Listener::~Listener() {
    loop_.unwatch(fd_);
    ::unlink(path_.c_str());
    ::close(fd_);
    if (spare_ >= 0)
        ::close(spare_);
}

void Listener::accept() {
    for (int i = 0; i < acceptsAtOnce; ++i) {
        const int fd = ::accept4(fd_, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
        if (fd >= 0) {
            accepted_(fd);
            continue;
        }
        if ((errno == EMFILE || errno == ENFILE) && spare_ >= 0) {
            // Take the caller off the queue and turn it away: left there it would keep the loop
            // spinning.
            ::close(spare_);
            const int turnedAway = ::accept4(fd_, nullptr, nullptr, SOCK_CLOEXEC);
            if (turnedAway >= 0)
                ::close(turnedAway);
            spare_ = openSpare();
            continue;
        }
        if (errno != EINTR && errno != ECONNABORTED)
            return;
    }
}

}  // namespace board
