#include "board/daemon/display/eventsink.h"

#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

namespace board {

namespace {

constexpr unsigned maxPendingBytes = 4096;

}  // namespace

std::shared_ptr<EventSink> EventSink::create(int* error) {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) {
        *error = errno;
        return nullptr;
    }
    std::shared_ptr<EventSink> sink(new EventSink);
    sink->ownEnd_ = ends[0];
    sink->clientEnd_ = ends[1];
    return sink;
}

EventSink::~EventSink() {
    ::close(ownEnd_);
    ::close(clientEnd_);
}

bool EventSink::reserve() {
    int unread = 0;
    if (::ioctl(clientEnd_, FIONREAD, &unread) != 0)
        return false;
    if (unsigned(unread) + (reserved_ + 1) * sizeof(drm_event_vblank) > maxPendingBytes)
        return false;
    ++reserved_;
    return true;
}

void EventSink::send(const drm_event_vblank& event) {
    if (reserved_ > 0)
        --reserved_;
    // Fails only when the client shut its end down: then nobody waits for the event.
    if (::send(ownEnd_, &event, sizeof event, MSG_DONTWAIT | MSG_NOSIGNAL) < 0)
        return;
}

}  // namespace board
