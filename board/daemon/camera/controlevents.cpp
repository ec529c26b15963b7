#include "board/daemon/camera/controlevents.h"

#include <sys/eventfd.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace board {

ControlEvents::ControlEvents() : ready_(eventfd(0, EFD_CLOEXEC | EFD_SEMAPHORE)) {
    if (ready_ < 0)
        throw std::system_error(errno, std::generic_category(), "eventfd");
}

ControlEvents::~ControlEvents() {
    ::close(ready_);
}

void ControlEvents::subscribe(std::uint32_t id, std::uint32_t flags) {
    Subscription subscription;
    subscription.flags = flags;
    subscriptions_.emplace(id, subscription);
}

void ControlEvents::unsubscribe(std::uint32_t id) {
    const auto found = subscriptions_.find(id);
    if (found == subscriptions_.end())
        return;
    if (found->second.waiting)
        takeCount();
    subscriptions_.erase(found);
}

void ControlEvents::unsubscribeAll() {
    while (!subscriptions_.empty())
        unsubscribe(subscriptions_.begin()->first);
}

bool ControlEvents::wantsFeedback(std::uint32_t id) const {
    const auto found = subscriptions_.find(id);
    return found != subscriptions_.end() &&
           (found->second.flags & V4L2_EVENT_SUB_FL_ALLOW_FEEDBACK) != 0;
}

void ControlEvents::post(std::uint32_t id, const v4l2_event_ctrl& change, std::int64_t time_ns) {
    const auto found = subscriptions_.find(id);
    if (found == subscriptions_.end())
        return;
    Subscription& subscription = found->second;
    const std::uint32_t earlier = subscription.waiting ? subscription.event.u.ctrl.changes : 0;
    v4l2_event event{};
    event.type = V4L2_EVENT_CTRL;
    event.id = id;
    event.u.ctrl = change;
    event.u.ctrl.changes |= earlier;
    event.sequence = sequence_++;
    event.timestamp.tv_sec = time_ns / 1000000000;
    event.timestamp.tv_nsec = time_ns % 1000000000;
    subscription.event = event;
    if (!subscription.waiting)
        addCount();
    subscription.waiting = true;
}

int ControlEvents::take(v4l2_event& event) {
    Subscription* oldest = nullptr;
    for (auto& [id, subscription] : subscriptions_) {
        if (subscription.waiting &&
            (oldest == nullptr || subscription.event.sequence < oldest->event.sequence))
            oldest = &subscription;
    }
    if (oldest == nullptr)
        return -ENOENT;
    oldest->waiting = false;
    takeCount();
    event = oldest->event;
    event.pending = waiting();
    return 0;
}

void ControlEvents::wake() {
    addCount();
}

unsigned ControlEvents::waiting() const {
    unsigned count = 0;
    for (const auto& [id, subscription] : subscriptions_)
        count += subscription.waiting ? 1 : 0;
    return count;
}

void ControlEvents::addCount() {
    const std::uint64_t one = 1;
    // At most one count per control: the counter cannot be full unless the client filled it.
    if (::write(ready_, &one, sizeof one) < 0)
        return;
}

void ControlEvents::takeCount() {
    std::uint64_t taken = 0;
    iovec part{&taken, sizeof taken};
    // O_NONBLOCK of a shared descriptor belongs to the client; this read must not wait in any case.
    if (preadv2(ready_, &part, 1, -1, RWF_NOWAIT) < 0)
        return;
}

}  // namespace board
