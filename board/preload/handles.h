// Open descriptors of the board in this process. Several descriptors (dup) and mappings may stand
// for one handle; the last one closes its connection. Lock-free; any thread, signal-safe.
#pragma once

#include "board/preload/raw.h"
#include "board/protocol/sharedpage.h"
#include "board/protocol/wire.h"

#include <atomic>
#include <cstdint>

namespace board::preload {

struct Handle {
    std::atomic<std::uint64_t> word;  // generation << 32 | references
    std::atomic<std::uint32_t> claimed;
    std::atomic<int> connection;  // -1: not ours any more (child of a fork)
    std::atomic<int> events;      // companion descriptor, readable while events wait; -1: none
    wire::Kind kind;
    std::uint32_t slot;
    std::uint32_t mode;  // what fstat says
    std::uint64_t rdev;
    std::uint64_t inode;
    FutexLock lock;  // one round trip at a time

    std::uint32_t state() const;  // bits of the shared page
};

// A counted hold on a handle for the time of a call.
class HandleRef {
  public:
    HandleRef() = default;
    explicit HandleRef(Handle* held) : handle_(held) {}  // takes over a count
    HandleRef(HandleRef&& other) noexcept : handle_(other.handle_) { other.handle_ = nullptr; }
    HandleRef& operator=(HandleRef&&) = delete;
    ~HandleRef();

    explicit operator bool() const { return handle_ != nullptr; }
    Handle* operator->() const { return handle_; }
    Handle& operator*() const { return *handle_; }
    Handle* get() const { return handle_; }
    HandleRef again() const;  // one more hold on the same handle
    Handle* keep();           // gives the count away: to a descriptor or a mapping

  private:
    Handle* handle_ = nullptr;
};

namespace detail {
// Constants initialise them, where they are defined.
// NOLINTNEXTLINE(bugprone-dynamic-static-initializers)
extern std::atomic<int> openDescriptors;
// NOLINTNEXTLINE(bugprone-dynamic-static-initializers)
extern std::atomic<std::uint32_t> descriptors[];
}  // namespace detail

constexpr int maxDescriptors = 65536;  // numbers above are refused

// Whether any descriptor of the board is open: the first question of every wrapper.
inline bool anyOpen() {
    return detail::openDescriptors.load(std::memory_order_relaxed) != 0;
}
inline bool isBoards(int fd) {
    return fd >= 0 && fd < maxDescriptors &&
           detail::descriptors[fd].load(std::memory_order_relaxed) != 0;
}

HandleRef handleOf(int fd);  // empty: not a descriptor of the board
bool isHidden(int fd);       // one of our connections or companions

// A fresh handle with one hold, connection and companion unset; empty when there are too many.
HandleRef newHandle();
// Lets `fd` stand for the handle. False when the number is out of range.
bool attach(int fd, HandleRef handle);
// Takes `fd` out; the returned hold is its own. Must come before the number is given back.
HandleRef detach(int fd);

// Moves a descriptor of ours out of the program's way and hides it; returns the new number.
int hide(int fd);

void dropHandlesInChild();

}  // namespace board::preload
