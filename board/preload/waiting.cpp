#include "board/preload/waiting.h"

#include "board/preload/handles.h"

namespace board::preload {

namespace {

constexpr short readBits = POLLIN | POLLRDNORM;
constexpr short writeBits = POLLOUT | POLLWRNORM;
constexpr short goneBits = POLLERR | POLLHUP;

// Kinds whose state says more than their descriptor can.
bool isWatched(wire::Kind kind) {
    return kind == wire::Kind::v4l2 || kind == wire::Kind::pcm;
}

// A stream that has stopped: both directions report at once, and that it is an error.
short immediateSound(const Handle& handle, short events) {
    const std::uint32_t state = handle.state();
    if ((state & wire::handleGone) != 0)
        return POLLERR | POLLNVAL;
    if ((state & wire::handleFailed) != 0)
        return short(POLLERR | (events & (readBits | writeBits)));
    return 0;
}

// What a node says without the help of its descriptor.
short immediate(const Handle& handle, short events) {
    if (handle.kind == wire::Kind::pcm)
        return immediateSound(handle, events);
    const std::uint32_t state = handle.state();
    if ((state & wire::handleGone) != 0)
        return short(goneBits | (events & POLLPRI));
    const bool idle = (state & wire::handleStreaming) == 0;
    return idle && (events & readBits) != 0 ? POLLERR : 0;
}

// Enters what the kernel shall watch for one descriptor: itself and, for events, its companion.
short prepare(const pollfd& wanted, pollfd& main, pollfd& companion) {
    main = {wanted.fd, wanted.events, 0};
    companion = {-1, POLLIN, 0};
    const HandleRef handle = handleOf(wanted.fd);
    if (!handle || !isWatched(handle->kind))
        return 0;
    if (handle->kind == wire::Kind::pcm)
        return immediate(*handle, wanted.events);
    main.events = short(wanted.events & readBits);
    if ((wanted.events & POLLPRI) != 0)
        companion.fd = handle->events;
    return immediate(*handle, wanted.events);
}

short outcome(const pollfd& wanted, const pollfd& main, const pollfd& companion) {
    const HandleRef handle = handleOf(wanted.fd);
    if (!handle || !isWatched(handle->kind))
        return main.revents;
    const short now = immediate(*handle, wanted.events);
    if (handle->kind == wire::Kind::pcm)
        return (now & POLLNVAL) != 0 ? now : short(now | main.revents);
    // The other end closed: the device is gone, whatever lies unread.
    if ((now & POLLHUP) != 0 || (main.revents & POLLHUP) != 0)
        return short(goneBits | (wanted.events & POLLPRI));
    const bool event = (companion.revents & POLLIN) != 0;
    return short(now | main.revents | (event ? POLLPRI : 0));
}

}  // namespace

long waitForAny(pollfd* wanted, unsigned count, pollfd* room, const timespec* timeout,
                const void* signalMask) {
    short known = 0;
    for (unsigned i = 0; i < count; ++i)
        known = short(known | prepare(wanted[i], room[i], room[count + i]));
    timespec limit = timeout != nullptr && known == 0 ? *timeout : timespec{};
    const bool forEver = timeout == nullptr && known == 0;
    const long result = raw(SYS_ppoll, room, 2 * count, forEver ? nullptr : &limit, signalMask, 8);
    if (result < 0)
        return result;
    long ready = 0;
    for (unsigned i = 0; i < count; ++i) {
        wanted[i].revents = outcome(wanted[i], room[i], room[count + i]);
        ready += wanted[i].revents != 0 ? 1 : 0;
    }
    return ready;
}

}  // namespace board::preload
