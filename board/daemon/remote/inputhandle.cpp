#include "board/daemon/remote/inputhandle.h"

#include "board/daemon/remote/pluggedinput.h"

#include <sys/epoll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <utility>

namespace board {

namespace {

// What the kernel keeps for a reader that does not read.
constexpr std::size_t mostUnread = 64;

}  // namespace

InputHandle::InputHandle(std::shared_ptr<PluggedInput> input) : input_(std::move(input)) {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0)
        throw std::system_error(errno, std::generic_category(), "socketpair");
    client_ = ends[0];
    peer_ = ends[1];
    input_->board().loop().watch(peer_, EPOLLIN, [this](std::uint32_t) { takeWrites(); });
}

InputHandle::~InputHandle() {
    takeWrites();
    input_->closed(*this);
    hangUp();
    ::close(client_);
}

Mapping InputHandle::map(std::uint64_t /*offset*/, std::uint64_t /*length*/,
                         std::uint32_t /*protection*/) {
    Mapping mapping;
    mapping.error = -ENODEV;
    return mapping;
}

void InputHandle::hangUp() {
    if (peer_ < 0)
        return;
    input_->board().loop().unwatch(peer_);
    ::close(peer_);
    peer_ = -1;
}

void InputHandle::takeWrites() {
    input_event event{};
    while (peer_ >= 0 && recv(peer_, &event, sizeof event, MSG_DONTWAIT) == sizeof event)
        input_->wrote(event);
}

input_event InputHandle::stamped(std::uint16_t type, std::uint16_t code, std::int32_t value) const {
    const Board& board = input_->board();
    const std::int64_t now =
        clock_ == CLOCK_REALTIME ? board.realtime_ns() : board.clock().now_ns();
    input_event event{};
    event.input_event_sec = now / 1000000000;
    event.input_event_usec = now % 1000000000 / 1000;
    event.type = type;
    event.code = code;
    event.value = value;
    return event;
}

std::size_t InputHandle::unreadEvents() const {
    int bytes = 0;
    return ::ioctl(client_, FIONREAD, &bytes) == 0 ? std::size_t(bytes) / sizeof(input_event) : 0;
}

void InputHandle::dropUnread() {
    input_event gone{};
    while (recv(client_, &gone, sizeof gone, MSG_DONTWAIT) > 0)
        continue;
}

void InputHandle::deliver(std::uint16_t type, std::uint16_t code, std::int32_t value) {
    // A packet without contents is not sent.
    if (type == EV_SYN && code == SYN_REPORT && packet_.empty())
        return;
    packet_.push_back(stamped(type, code, value));
    packet_.back().time = packet_.front().time;  // a packet has one time
    if (unreadEvents() + packet_.size() >= mostUnread) {
        dropUnread();
        const input_event latest = packet_.back();
        packet_ = {stamped(EV_SYN, SYN_DROPPED, 0), latest};
    }
    if (type == EV_SYN && code == SYN_REPORT)
        flush();
}

void InputHandle::flush() {
    // There is room: what lies unread is bounded.
    if (peer_ >= 0 && send(peer_, packet_.data(), packet_.size() * sizeof(input_event),
                           MSG_DONTWAIT | MSG_NOSIGNAL) < 0)
        input_->board().log(input_->path() + ": events were lost");
    packet_.clear();
}

int InputHandle::chooseClock(const IoctlCall& call) {
    const auto wanted = call.load<std::int32_t>();
    if (wanted != CLOCK_REALTIME && wanted != CLOCK_MONOTONIC && wanted != CLOCK_BOOTTIME)
        return -EINVAL;
    if (wanted == clock_)
        return 0;
    clock_ = wanted;
    // Times of two clocks do not mix.
    if (unreadEvents() == 0 && packet_.empty())
        return 0;
    dropUnread();
    packet_ = {stamped(EV_SYN, SYN_DROPPED, 0)};
    flush();
    return 0;
}

}  // namespace board
