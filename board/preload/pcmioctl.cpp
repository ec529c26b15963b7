#include "board/preload/pcmioctl.h"

#include "board/preload/clock.h"
#include "board/preload/connection.h"

#include <fcntl.h>
#include <poll.h>
#include <sound/asound.h>
#include <sys/ioctl.h>

namespace board::preload {

namespace {

constexpr std::uint64_t bytesAtOnce = 65536;
// A card that moves nothing for so long has failed, as the kernel sees it. Board time.
constexpr std::int64_t patience_ns = 10 * second_ns;

bool isNonBlocking(int fd) {
    return (raw(SYS_fcntl, fd, F_GETFL) & O_NONBLOCK) != 0;
}

std::int64_t deadline() {
    return machineNow_ns(CLOCK_MONOTONIC) + toMachineLength_ns(patience_ns);
}

// 0 when the stream may have moved on, or -errno.
long await(int fd, short events, std::int64_t until) {
    const std::int64_t left = until - machineNow_ns(CLOCK_MONOTONIC);
    if (left <= 0)
        return -EIO;
    pollfd one = {fd, events, 0};
    timespec limit = toTimespec(left);
    const long ready = raw(SYS_ppoll, &one, 1, &limit, nullptr, 0);
    return ready < 0 ? ready : 0;
}

bool isOfState(long error) {
    return error == -EAGAIN || error == -EPIPE || error == -ESTRPIPE || error == -ENODEV ||
           error == -EBADFD || error == -EINTR;
}

// Moves frames until all are moved, or until no more can be without a wait that nobody wants.
long moveFrames(Handle& handle, int fd, std::uint32_t request, snd_xferi& whole) {
    const short events = request == std::uint32_t(SNDRV_PCM_IOCTL_WRITEI_FRAMES) ? POLLOUT : POLLIN;
    const std::uint64_t size = frameBytes(handle) != 0 ? frameBytes(handle) : 1;
    const std::uint64_t most = bytesAtOnce / size;
    auto* data = static_cast<unsigned char*>(whole.buf);
    std::uint64_t moved = 0;
    std::int64_t until = deadline();
    for (;;) {
        const std::uint64_t left = whole.frames - moved;
        snd_xferi part = {0, data + moved * size, left < most ? left : most};
        long result = callIoctl(handle, fd, request, &part);
        if (result == -EAGAIN && !isNonBlocking(fd)) {
            result = await(fd, events, until);
            if (result == 0)
                continue;
        }
        // What the stream's state says can wait for the next call; a failure cannot.
        if (result < 0 && !isOfState(result))
            moved = 0;
        moved += result > 0 ? std::uint64_t(result) : 0;
        if (result <= 0 || moved == whole.frames) {
            whole.result = moved > 0 ? snd_pcm_sframes_t(moved) : result;
            return moved > 0 ? 0 : result;
        }
        until = deadline();
    }
}

long transfer(Handle& handle, int fd, std::uint32_t request, void* argument) {
    if (!readable(argument, sizeof(snd_xferi)))
        return -EFAULT;
    auto* given = static_cast<snd_xferi*>(argument);
    snd_xferi whole = *given;
    const long result = moveFrames(handle, fd, request, whole);
    given->result = whole.result;
    return result;
}

// The number of frames that were passed over comes back in the argument.
long shift(Handle& handle, int fd, std::uint32_t request, void* argument) {
    const long result = callIoctl(handle, fd, request, argument);
    if (result < 0)
        return result;
    *static_cast<snd_pcm_uframes_t*>(argument) = snd_pcm_uframes_t(result);
    return 0;
}

// Plays to the end.
long drain(Handle& handle, int fd, std::uint32_t request, void* argument) {
    const std::int64_t until = deadline();
    for (;;) {
        const long result = callIoctl(handle, fd, request, argument);
        if (result != -EAGAIN || isNonBlocking(fd))
            return result;
        if (const long waited = await(fd, POLLOUT, until); waited < 0)
            return waited;
    }
}

}  // namespace

std::uint32_t frameBytes(const Handle& handle) {
    return handle.state() >> wire::handleFrameShift;
}

long pcmIoctl(Handle& handle, int fd, std::uint32_t request, void* argument) {
    switch (request) {
        case std::uint32_t(SNDRV_PCM_IOCTL_WRITEI_FRAMES):
        case std::uint32_t(SNDRV_PCM_IOCTL_READI_FRAMES):
            return transfer(handle, fd, request, argument);
        case std::uint32_t(SNDRV_PCM_IOCTL_REWIND):
        case std::uint32_t(SNDRV_PCM_IOCTL_FORWARD):
            return shift(handle, fd, request, argument);
        case std::uint32_t(SNDRV_PCM_IOCTL_DRAIN):
            return drain(handle, fd, request, argument);
        default:
            return callIoctl(handle, fd, request, argument);
    }
}

}  // namespace board::preload
