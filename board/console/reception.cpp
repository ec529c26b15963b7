#include "board/console/reception.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <vector>

namespace board::console {

namespace {

constexpr int backlog = 128;
constexpr auto farewell = std::chrono::milliseconds(300);
constexpr std::size_t farewellBytes = 256u << 10;

// An answer that came before the request was read whole would be lost to the reset that closing
// brings about: a little of what still comes is thrown away first.
void sayFarewell(int socket) {
    ::shutdown(socket, SHUT_WR);
    const auto deadline = std::chrono::steady_clock::now() + farewell;
    std::vector<char> rubbish(16384);
    for (std::size_t bytes = 0; bytes < farewellBytes;) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        pollfd wanted{socket, POLLIN, 0};
        if (left.count() <= 0 || ::poll(&wanted, 1, int(left.count())) <= 0)
            break;
        const ssize_t got = ::recv(socket, rubbish.data(), rubbish.size(), 0);
        if (got <= 0)
            break;
        bytes += std::size_t(got);
    }
}

}  // namespace

int listenOnLoopback(unsigned short port) {
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0)
        return -1;
    const int yes = 1;
    ::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
        ::listen(fd, backlog) == 0)
        return fd;
    const int reason = errno;
    ::close(fd);
    errno = reason;
    return -1;
}

unsigned short portOf(int socket) {
    sockaddr_in address{};
    socklen_t size = sizeof address;
    ::getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size);
    return ntohs(address.sin_port);
}

Reception::Reception(int listening, const ReceptionLimits& limits, Serve serve)
    : listening_(listening),
      stopEvent_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      limits_(limits),
      serve_(std::move(serve)),
      thread_([this] { run(); }) {}

Reception::~Reception() {
    {
        const std::lock_guard<std::mutex> hold(lock_);
        stopping_ = true;
        for (const int socket : served_)
            ::shutdown(socket, SHUT_RDWR);
    }
    eventfd_write(stopEvent_, 1);
    thread_.join();
    for (const Guest& guest : guests_)
        ::close(guest.socket);
    std::unique_lock<std::mutex> hold(lock_);
    left_.wait(hold, [this] { return served_.empty(); });
    ::close(stopEvent_);
    ::close(listening_);
}

void Reception::run() {
    for (;;) {
        std::vector<pollfd> wanted{{stopEvent_, POLLIN, 0}, {listening_, POLLIN, 0}};
        for (const Guest& guest : guests_)
            wanted.push_back({guest.ready ? -1 : guest.socket, POLLIN, 0});
        if (::poll(wanted.data(), wanted.size(), pollPatience_ms()) < 0)
            continue;
        if (wanted[0].revents != 0)
            return;
        std::size_t place = 2;
        for (auto guest = guests_.begin(); guest != guests_.end(); ++place) {
            const bool gone = wanted[place].revents != 0 && !hear(*guest);
            if (gone || (guest->ready && handOver(*guest)))
                guest = guests_.erase(guest);
            else
                ++guest;
        }
        dismissLate();
        if (wanted[1].revents != 0)
            accept();
    }
}

int Reception::pollPatience_ms() const {
    constexpr int lookForFreeThread_ms = 10, lookForLate_ms = 500;
    const bool ready =
        std::any_of(guests_.begin(), guests_.end(), [](const Guest& guest) { return guest.ready; });
    return ready ? lookForFreeThread_ms : guests_.empty() ? -1 : lookForLate_ms;
}

void Reception::accept() {
    const int socket = ::accept4(listening_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (socket < 0) {
        // Out of descriptors: the connection stays in the queue, and this thread must not spin.
        if (errno == EMFILE || errno == ENFILE)
            ::poll(nullptr, 0, 10);
        return;
    }
    const int yes = 1;
    ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
    if (guests_.size() >= limits_.waiting) {
        ::close(guests_.front().socket);
        guests_.pop_front();
    }
    guests_.push_back({socket, "", std::chrono::steady_clock::now() + limits_.patience, false});
}

bool Reception::hear(Guest& guest) {
    char bytes[4096];
    const ssize_t got = ::recv(guest.socket, bytes, sizeof bytes, 0);
    if (got < 0 && (errno == EAGAIN || errno == EINTR))
        return true;
    if (got > 0) {
        // Seen from where the end of the head may have begun.
        const std::size_t from = guest.received.size() < 3 ? 0 : guest.received.size() - 3;
        guest.received.append(bytes, std::size_t(got));
        guest.ready = guest.received.find("\r\n\r\n", from) != std::string::npos;
        if (guest.ready || guest.received.size() <= limits_.head)
            return true;
    }
    ::close(guest.socket);
    return false;
}

void Reception::dismissLate() {
    const auto now = std::chrono::steady_clock::now();
    while (!guests_.empty() && guests_.front().deadline < now) {
        ::close(guests_.front().socket);
        guests_.pop_front();
    }
}

bool Reception::handOver(Guest& guest) {
    const std::lock_guard<std::mutex> hold(lock_);
    if (stopping_ || served_.size() >= limits_.served)
        return false;
    try {
        std::thread(&Reception::serveAndClose, this, guest.socket, guest.received).detach();
    } catch (const std::system_error&) {
        return false;
    }
    served_.insert(guest.socket);
    return true;
}

void Reception::serveAndClose(int socket, std::string received) {
    serve_(socket, std::move(received));
    sayFarewell(socket);
    const std::lock_guard<std::mutex> hold(lock_);
    served_.erase(socket);
    ::close(socket);
    left_.notify_all();
}

}  // namespace board::console
