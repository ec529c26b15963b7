#include "board/preload/handles.h"

#include "board/preload/run.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <time.h>

namespace board::preload {

namespace detail {
std::atomic<int> openDescriptors{0};
// 0: not ours, hiddenEntry: ours but not the program's, else generation << 16 | handle index + 1.
std::atomic<std::uint32_t> descriptors[maxDescriptors];
}  // namespace detail

namespace {

constexpr std::uint32_t hiddenEntry = 0xffffffff;
constexpr unsigned maxOpenHandles = wire::maxHandles;
// select() serves numbers below 1024; low numbers belong to the program.
constexpr int hiddenFrom[] = {900, 600, 300};
// A daemon that does not take notice of a close in this time is stuck.
constexpr long closeLimit_s = 2;

Handle handles[maxOpenHandles];

std::uint32_t generationOf(std::uint64_t word) {
    return std::uint32_t(word >> 32) & 0xffff;
}

std::uint32_t entryOf(const Handle& handle) {
    return generationOf(handle.word.load(std::memory_order_relaxed)) << 16 |
           std::uint32_t(&handle - handles + 1);
}

void closeHidden(int fd) {
    if (fd < 0)
        return;
    if (fd < maxDescriptors)
        detail::descriptors[fd].store(0, std::memory_order_release);
    raw(SYS_close, fd);
}

// Like a kernel's close, it returns when the device has been released: a program that closes and
// opens again must not meet its own earlier descriptor.
void closeConnection(int fd) {
    if (fd < 0)
        return;
    raw(SYS_shutdown, fd, SHUT_WR);
    pollfd end = {fd, POLLIN, 0};
    timespec limit = {closeLimit_s, 0};
    raw(SYS_ppoll, &end, 1, &limit, nullptr, 0);
    closeHidden(fd);
}

void release(Handle& handle) {
    const std::uint64_t before = handle.word.fetch_sub(1, std::memory_order_acq_rel);
    if (std::uint32_t(before) != 1)
        return;
    const SignalsBlocked blocked;
    closeConnection(handle.connection.exchange(-1));
    closeHidden(handle.events.exchange(-1));
    handle.word.store(((before >> 32) + 1) << 32, std::memory_order_release);
    handle.claimed.store(0, std::memory_order_release);
}

Handle* acquire(std::uint32_t entry) {
    Handle& handle = handles[(entry & 0xffff) - 1];
    std::uint64_t word = handle.word.load(std::memory_order_acquire);
    while (generationOf(word) == entry >> 16 && std::uint32_t(word) != 0)
        if (handle.word.compare_exchange_weak(word, word + 1, std::memory_order_acq_rel))
            return &handle;
    return nullptr;
}

}  // namespace

std::uint32_t Handle::state() const {
    return slot < wire::maxHandles ? boardPage()->handles[slot].load(std::memory_order_acquire) : 0;
}

HandleRef::~HandleRef() {
    if (handle_ != nullptr)
        release(*handle_);
}

HandleRef HandleRef::again() const {
    if (handle_ != nullptr)
        handle_->word.fetch_add(1, std::memory_order_acq_rel);
    return HandleRef(handle_);
}

Handle* HandleRef::keep() {
    Handle* kept = handle_;
    handle_ = nullptr;
    return kept;
}

HandleRef handleOf(int fd) {
    if (fd < 0 || fd >= maxDescriptors)
        return {};
    for (;;) {
        const std::uint32_t entry = detail::descriptors[fd].load(std::memory_order_acquire);
        if (entry == 0 || entry == hiddenEntry)
            return {};
        if (Handle* handle = acquire(entry))
            return HandleRef(handle);
        // Closed meanwhile; the number may stand for something else already.
        if (detail::descriptors[fd].load(std::memory_order_acquire) == entry)
            return {};
    }
}

bool isHidden(int fd) {
    return fd >= 0 && fd < maxDescriptors &&
           detail::descriptors[fd].load(std::memory_order_acquire) == hiddenEntry;
}

HandleRef newHandle() {
    for (Handle& handle : handles) {
        std::uint32_t expected = 0;
        if (!handle.claimed.compare_exchange_strong(expected, 1, std::memory_order_acq_rel))
            continue;
        handle.connection.store(-1);
        handle.events.store(-1);
        handle.kind = wire::Kind::none;
        handle.slot = wire::maxHandles;
        handle.word.fetch_add(1, std::memory_order_acq_rel);
        return HandleRef(&handle);
    }
    return {};
}

bool attach(int fd, HandleRef handle) {
    if (fd < 0 || fd >= maxDescriptors)
        return false;
    detail::openDescriptors.fetch_add(1);
    const Handle* kept = handle.keep();
    detail::descriptors[fd].store(entryOf(*kept), std::memory_order_release);
    return true;
}

HandleRef detach(int fd) {
    const std::uint32_t entry = detail::descriptors[fd].load(std::memory_order_acquire);
    if (entry == 0 || entry == hiddenEntry)
        return {};
    std::uint32_t expected = entry;
    if (!detail::descriptors[fd].compare_exchange_strong(expected, 0, std::memory_order_acq_rel))
        return {};
    detail::openDescriptors.fetch_sub(1);
    return HandleRef(&handles[(entry & 0xffff) - 1]);
}

int hide(int fd) {
    int moved = fd;
    for (const int lowest : hiddenFrom) {
        const long number = raw(SYS_fcntl, fd, F_DUPFD_CLOEXEC, lowest);
        if (number < 0)
            continue;
        raw(SYS_close, fd);
        moved = int(number);
        break;
    }
    if (moved < maxDescriptors)
        detail::descriptors[moved].store(hiddenEntry, std::memory_order_release);
    return moved;
}

void dropHandlesInChild() {
    for (Handle& handle : handles) {
        if (std::uint32_t(handle.word.load()) == 0)
            continue;
        closeHidden(handle.connection.exchange(-1));
        closeHidden(handle.events.exchange(-1));
        handle.lock.reset();
    }
}

}  // namespace board::preload
