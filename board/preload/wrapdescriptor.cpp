// Calls on descriptors: ioctl, read, write, close, copies, memory.
#include "board/preload/clock.h"
#include "board/preload/deviceioctl.h"
#include "board/preload/handles.h"
#include "board/preload/mappings.h"
#include "board/preload/next.h"
#include "board/preload/park.h"

#include <fcntl.h>
#include <linux/input.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdarg>

using namespace board::preload;
using board::wire::Kind;

namespace {

// A reader that does not expect its device to end would spin.
constexpr timespec goneReadPause = {0, 10000000};

bool isGone(const Handle& handle) {
    return (handle.state() & board::wire::handleGone) != 0;
}

// An input device gives and takes whole events, whatever room there is beside them.
constexpr std::size_t eventBytes = sizeof(input_event);

long readBoard(const Handle& handle, int fd, void* buffer, std::size_t bytes) {
    if (anyParks() && park("read", noDeadline) == Parked::interrupted)
        return -EINTR;
    if (handle.kind == Kind::v4l2)
        return -EINVAL;  // streaming by memory only
    if (handle.kind == Kind::evdev) {
        if (bytes > 0 && bytes < eventBytes)
            return -EINVAL;
        bytes -= bytes % eventBytes;
    }
    // Events that nobody read go with their device.
    const bool lost = handle.kind == Kind::evdev && isGone(handle);
    const long got = lost ? 0 : raw(SYS_read, fd, buffer, bytes);
    const bool atEnd = lost || got == -ECONNRESET || (got == 0 && bytes > 0);
    if (!atEnd || (handle.kind != Kind::drm && handle.kind != Kind::evdev))
        return got;
    raw(SYS_nanosleep, &goneReadPause, nullptr);
    return -ENODEV;
}

// Only input devices take bytes.
long writeBoard(const Handle& handle, int fd, const void* buffer, std::size_t bytes) {
    if (handle.kind != Kind::evdev)
        return -EINVAL;
    if (isGone(handle))
        return -ENODEV;
    if (bytes > 0 && bytes < eventBytes)
        return -EINVAL;
    const long sent =
        raw(SYS_sendto, fd, buffer, bytes - bytes % eventBytes, MSG_NOSIGNAL, nullptr, 0);
    return sent == -EPIPE || sent == -ECONNRESET ? -ENODEV : sent;
}

// Lets `copy` (a number or -errno) stand for the handle too.
int attachCopy(HandleRef handle, long copy) {
    if (copy < 0 || attach(int(copy), static_cast<HandleRef&&>(handle)))
        return toLibc<int>(copy);
    raw(SYS_close, copy);
    return toLibc<int>(-EMFILE);
}

// dup2 and dup3: `make` gives `number` its new meaning.
template <typename Make>
int copyTo(int fd, int number, Make make) {
    if (!anyOpen() || fd == number)
        return make(false);
    if (isHidden(fd) || isHidden(number))
        return toLibc<int>(-EBADF);
    HandleRef handle = handleOf(fd);
    if (!handle && raw(SYS_fcntl, fd, F_GETFD) < 0)
        return toLibc<int>(-EBADF);  // `number` stays what it is
    const HandleRef replaced = detach(number);
    return handle ? attachCopy(static_cast<HandleRef&&>(handle), make(true)) : make(false);
}

template <typename Next>
int fcntlWith(Next& next, int fd, int command, void* argument) {
    if ((command != F_DUPFD && command != F_DUPFD_CLOEXEC) || !isBoards(fd))
        return next(fd, command, argument);
    HandleRef handle = handleOf(fd);
    if (!handle)
        return toLibc<int>(-EBADF);
    return attachCopy(static_cast<HandleRef&&>(handle), raw(SYS_fcntl, fd, command, argument));
}

template <typename Next>
void* mapWith(Next& next, void* address, std::size_t bytes, int protection, int flags, int fd,
              off_t offset) {
    if ((flags & MAP_ANONYMOUS) == 0 && isBoards(fd))
        if (HandleRef handle = handleOf(fd)) {
            const SignalsBlocked blocked;
            return toLibc<void*>(mapBoard(static_cast<HandleRef&&>(handle), address, bytes,
                                          protection, flags, std::uint64_t(offset)));
        }
    return next(address, bytes, protection, flags, fd, offset);
}

}  // namespace

WRAPPER(int, ioctl, (int fd, unsigned long request, ...)) {
    va_list list;
    va_start(list, request);
    void* argument = va_arg(list, void*);
    va_end(list);
    if (isBoards(fd))
        if (const HandleRef handle = handleOf(fd))
            // Programs that hold the request in an int hand over its sign in the upper half.
            return toLibc<int>(deviceIoctl(*handle, fd, std::uint32_t(request), argument));
    NEXT(ioctl);
    return next(fd, request, argument);
}

WRAPPER(ssize_t, read, (int fd, void* buffer, std::size_t bytes)) {
    if (isBoards(fd))
        if (const HandleRef handle = handleOf(fd))
            return toLibc<ssize_t>(readBoard(*handle, fd, buffer, bytes));
    NEXT(read);
    return next(fd, buffer, bytes);
}

WRAPPER(ssize_t, __read_chk, (int fd, void* buffer, std::size_t bytes, std::size_t room)) {
    if (isBoards(fd) && bytes <= room)
        if (const HandleRef handle = handleOf(fd))
            return toLibc<ssize_t>(readBoard(*handle, fd, buffer, bytes));
    NEXT_AS(__read_chk, ssize_t(int, void*, std::size_t, std::size_t));
    return next(fd, buffer, bytes, room);
}

WRAPPER(ssize_t, write, (int fd, const void* buffer, std::size_t bytes)) {
    if (isBoards(fd))
        if (const HandleRef handle = handleOf(fd))
            return toLibc<ssize_t>(writeBoard(*handle, fd, buffer, bytes));
    NEXT(write);
    return next(fd, buffer, bytes);
}

WRAPPER(int, close, (int fd)) {
    if (isBoards(fd)) {
        if (isHidden(fd))
            return toLibc<int>(-EBADF);
        if (const HandleRef handle = detach(fd))
            return toLibc<int>(raw(SYS_close, fd));
    }
    NEXT(close);
    return next(fd);
}

WRAPPER(int, dup, (int fd)) {
    if (isHidden(fd))
        return toLibc<int>(-EBADF);
    if (HandleRef handle = handleOf(fd))
        return attachCopy(static_cast<HandleRef&&>(handle), raw(SYS_dup, fd));
    NEXT(dup);
    return next(fd);
}

WRAPPER(int, dup2, (int fd, int number)) {
    return copyTo(fd, number, [fd, number](bool board) {
        NEXT(dup2);
        return board ? int(raw(SYS_dup3, fd, number, 0)) : next(fd, number);
    });
}

WRAPPER(int, dup3, (int fd, int number, int flags)) {
    return copyTo(fd, number, [fd, number, flags](bool board) {
        NEXT(dup3);
        return board ? int(raw(SYS_dup3, fd, number, flags)) : next(fd, number, flags);
    });
}

WRAPPER(int, fcntl, (int fd, int command, ...)) {
    va_list list;
    va_start(list, command);
    void* argument = va_arg(list, void*);
    va_end(list);
    NEXT(fcntl);
    return fcntlWith(next, fd, command, argument);
}

WRAPPER(int, fcntl64, (int fd, int command, ...)) {
    va_list list;
    va_start(list, command);
    void* argument = va_arg(list, void*);
    va_end(list);
    NEXT(fcntl64);
    return fcntlWith(next, fd, command, argument);
}

WRAPPER(void*, mmap,
        (void* address, std::size_t bytes, int protection, int flags, int fd, off_t offset)) {
    NEXT(mmap);
    return mapWith(next, address, bytes, protection, flags, fd, offset);
}

WRAPPER(void*, mmap64,
        (void* address, std::size_t bytes, int protection, int flags, int fd, off_t offset)) {
    NEXT(mmap64);
    return mapWith(next, address, bytes, protection, flags, fd, offset);
}

WRAPPER(int, munmap, (void* address, std::size_t bytes)) {
    NEXT(munmap);
    if (!anyMapped() || (reinterpret_cast<std::uintptr_t>(address) & 4095) != 0)
        return next(address, bytes);
    const Unmapping gone(address, bytes);
    return next(address, bytes);
}
