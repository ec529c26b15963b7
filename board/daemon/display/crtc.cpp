#include "board/daemon/display/crtc.h"

#include <drm_fourcc.h>

#include <algorithm>
#include <utility>

namespace board {

Crtc::Crtc(Board& board, std::uint32_t id, Listener listener)
    : board_(board), id_(id), listener_(std::move(listener)) {}

Crtc::~Crtc() {
    if (timer_ != 0)
        board_.loop().cancel(timer_);
}

bool Crtc::uses(std::uint32_t framebufferId) const {
    if (framebuffer_ != nullptr && framebuffer_->id == framebufferId)
        return true;
    return pending_ && pending_->framebuffer->id == framebufferId;
}

std::uint64_t Crtc::vblankCount() const {
    return on() ? countAtStart_ + timing_.indexAt(board_.clock().now_ns()) : countAtStart_;
}

std::int64_t Crtc::vblankTime_ns(std::uint64_t count) const {
    return timing_.time_ns(count > countAtStart_ ? count - countAtStart_ : 0);
}

void Crtc::set(const drm_mode_modeinfo& mode, FramebufferRef framebuffer, std::uint32_t x,
               std::uint32_t y) {
    const std::int64_t now = board_.clock().now_ns();
    const std::uint64_t count = vblankCount();
    // A kernel would let the caller wait for the flip; here nobody waits, the flip is over.
    finishPending(count, now);
    if (!on() || !sameTiming(mode, mode_)) {
        endWaiting(count);
        countAtStart_ = count;
        timing_ = VblankTiming(mode, now);
    }
    mode_ = mode;
    framebuffer_ = std::move(framebuffer);
    askedMark_.reset();
    x_ = x;
    y_ = y;
    arm();
    listener_(now, false);
}

void Crtc::off() {
    if (!on())
        return;
    const std::int64_t now = board_.clock().now_ns();
    const std::uint64_t count = vblankCount();
    finishPending(count, now);
    endWaiting(count);
    countAtStart_ = count;
    framebuffer_ = nullptr;
    askedMark_.reset();
    arm();
    listener_(now, false);
}

void Crtc::setAsleep(bool asleep) {
    if (asleep == asleep_)
        return;
    asleep_ = asleep;
    if (on())
        listener_(board_.clock().now_ns(), false);
}

void Crtc::flip(FramebufferRef framebuffer, const EventTarget& target) {
    const std::optional<Stamp> mark = readStamp(viewOf(*framebuffer));
    pending_ = Flip{std::move(framebuffer), target, vblankCount() + 1, mark};
    arm();
}

void Crtc::holdFlips(bool held) {
    held_ = held;
    if (!held && pending_)
        pending_->due = vblankCount() + 1;
    arm();
}

void Crtc::loseEvents(unsigned count) {
    eventsToLose_ = count;
}

void Crtc::notifyAt(std::uint64_t count, const EventTarget& target) {
    waiters_.push_back({count, target});
    const std::uint64_t now = vblankCount();
    if (count <= now)
        wakeWaiters(now);
    arm();
}

void Crtc::send(std::uint32_t type, const EventTarget& target, std::uint64_t count,
                std::int64_t board_ns) const {
    const std::shared_ptr<EventSink> sink = target.sink.lock();
    if (sink == nullptr)
        return;
    drm_event_vblank event{};
    event.base.type = type;
    event.base.length = sizeof event;
    event.user_data = target.userData;
    event.tv_sec = std::uint32_t(board_ns / 1000000000);
    event.tv_usec = std::uint32_t(board_ns % 1000000000 / 1000);
    event.sequence = std::uint32_t(count);
    event.crtc_id = id_;
    sink->send(event);
}

void Crtc::finishPending(std::uint64_t count, std::int64_t board_ns) {
    if (!pending_)
        return;
    const Flip done = std::move(*pending_);
    pending_.reset();
    framebuffer_ = done.framebuffer;
    askedMark_ = done.mark;
    // The event first: whoever looks at the picture has until the client's next flip completes.
    if (eventsToLose_ > 0)
        --eventsToLose_;
    else
        send(DRM_EVENT_FLIP_COMPLETE, done.target, count, board_ns);
    listener_(board_ns, true);
}

void Crtc::wakeWaiters(std::uint64_t count) {
    std::vector<Waiter> due;
    const auto isDue = [&](const Waiter& waiter) { return waiter.due <= count; };
    std::copy_if(waiters_.begin(), waiters_.end(), std::back_inserter(due), isDue);
    waiters_.erase(std::remove_if(waiters_.begin(), waiters_.end(), isDue), waiters_.end());
    for (const Waiter& waiter : due)
        send(DRM_EVENT_VBLANK, waiter.target, waiter.due, vblankTime_ns(waiter.due));
}

void Crtc::endWaiting(std::uint64_t count) {
    for (Waiter& waiter : waiters_)
        waiter.due = std::min(waiter.due, count);
    wakeWaiters(count);
}

void Crtc::serveVblank() {
    const std::uint64_t count = vblankCount();
    // A late loop changes nothing: events tell of the vertical blank that they were due at, and the
    // picture went on screen then.
    wakeWaiters(count);
    if (pending_ && !held_ && pending_->due <= count) {
        const std::uint64_t due = pending_->due;
        finishPending(due, vblankTime_ns(due));
    }
    arm();
}

void Crtc::arm() {
    if (timer_ != 0)
        board_.loop().cancel(timer_);
    timer_ = 0;
    if (!on())
        return;
    std::uint64_t next = 0;
    if (pending_ && !held_)
        next = pending_->due;
    for (const Waiter& waiter : waiters_)
        next = next == 0 ? waiter.due : std::min(next, waiter.due);
    if (next == 0)
        return;
    // One machine nanosecond on: the division must not let the timer run before its board time.
    const std::int64_t when = board_.clock().toMachine(vblankTime_ns(next)) + 1;
    timer_ = board_.loop().at(when, [this] {
        timer_ = 0;
        serveVblank();
    });
}

ScreenView Crtc::screen() const {
    return on() ? viewOf(*framebuffer_) : ScreenView();
}

ScreenView Crtc::viewOf(const Framebuffer& source) const {
    ScreenView view;
    view.format = source.format;
    view.width = mode_.hdisplay;
    view.height = mode_.vdisplay;
    if (asleep_ || source.buffers[0] == nullptr)
        return view;
    const bool nv12 = source.format == DRM_FORMAT_NV12;
    // Chroma has no half samples: an odd position starts one pixel earlier.
    const std::size_t x = nv12 ? x_ & ~1u : x_;
    const std::size_t y = nv12 ? y_ & ~1u : y_;
    view.pitches[0] = source.pitches[0];
    view.planes[0] =
        source.buffers[0]->data() + source.offsets[0] + y * source.pitches[0] + x * (nv12 ? 1 : 4);
    if (nv12) {
        view.pitches[1] = source.pitches[1];
        view.planes[1] =
            source.buffers[1]->data() + source.offsets[1] + y / 2 * source.pitches[1] + x;
    }
    return view;
}

}  // namespace board
