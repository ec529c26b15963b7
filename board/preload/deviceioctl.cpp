#include "board/preload/deviceioctl.h"

#include "board/preload/connection.h"
#include "board/preload/park.h"
#include "board/preload/pcmioctl.h"

#include <fcntl.h>
#include <linux/videodev2.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <time.h>

namespace board::preload {

namespace {

// A wait looks at the handle's state this often: streaming may end without a byte on the socket.
constexpr long waitSlice_ns = 100000000;

bool isDescriptorsOwn(std::uint32_t request) {
    return request == FIOCLEX || request == FIONCLEX || request == FIONBIO || request == FIOASYNC;
}

bool isNonBlocking(int fd) {
    return (raw(SYS_fcntl, fd, F_GETFL) & O_NONBLOCK) != 0;
}

long pollOne(int fd, long timeout_ns) {
    pollfd one = {fd, POLLIN, 0};
    timespec limit = {0, timeout_ns};
    return raw(SYS_ppoll, &one, 1, &limit, nullptr, 0);
}

// Programs call DQBUF thousands of times a second: the usual "nothing yet" needs no round trip.
bool isKnownEmpty(const Handle& handle, int fd, const void* argument) {
    const std::uint32_t state = handle.state();
    if ((state & wire::handleStreaming) == 0 || (state & wire::handleGone) != 0)
        return false;
    // A wrong type or pointer is told before emptiness; that is the daemon's to say.
    if (!readable(argument, sizeof(v4l2_buffer)) ||
        static_cast<const v4l2_buffer*>(argument)->type != V4L2_BUF_TYPE_VIDEO_CAPTURE)
        return false;
    return pollOne(fd, 0) == 0;
}

// The descriptor whose readability ends the wait of this ioctl; -1 for one that never waits.
int awaited(const Handle& handle, int fd, std::uint32_t request) {
    if (handle.kind != wire::Kind::v4l2)
        return -1;
    if (request == std::uint32_t(VIDIOC_DQBUF))
        return fd;
    return request == std::uint32_t(VIDIOC_DQEVENT) ? handle.events.load() : -1;
}

}  // namespace

long deviceIoctl(Handle& handle, int fd, std::uint32_t request, void* argument) {
    if (isDescriptorsOwn(request))
        return raw(SYS_ioctl, fd, request, argument);
    if (anyParks() && parkIoctl(request) == Parked::interrupted)
        return -EINTR;
    if (handle.kind == wire::Kind::pcm)
        return pcmIoctl(handle, fd, request, argument);
    const int source = awaited(handle, fd, request);
    for (;;) {
        const bool waits = source >= 0 && !isNonBlocking(fd);
        if (source == fd && !waits && isKnownEmpty(handle, fd, argument))
            return -EAGAIN;
        const long result = callIoctl(handle, fd, request, argument);
        if (result != -EAGAIN || !waits)
            return result;
        const std::uint32_t state = handle.state();
        long ready = 0;
        while (ready == 0 && handle.state() == state)
            ready = pollOne(source, waitSlice_ns);
        if (ready < 0)
            return ready;
    }
}

}  // namespace board::preload
