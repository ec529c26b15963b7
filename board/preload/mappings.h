// Memory of the board that this process has mapped. A mapping holds its handle, as a kernel's holds
// the file: the device is released by the last of close and munmap.
#pragma once

#include "board/preload/handles.h"

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace board::preload {

namespace detail {
// NOLINTNEXTLINE(bugprone-dynamic-static-initializers): a constant initialises it
extern std::atomic<int> mappings;
}  // namespace detail

// The first question of munmap.
inline bool anyMapped() {
    return detail::mappings.load(std::memory_order_acquire) != 0;
}

// mmap on a descriptor of the board; the result is the address or -errno.
long mapBoard(HandleRef handle, void* address, std::size_t bytes, int protection, int flags,
              std::uint64_t offset);

// The board's mappings that begin in a range about to be unmapped. They are taken out before the
// munmap, as another thread may be given the same addresses right after it, and the daemon is told
// when the object goes.
class Unmapping {
  public:
    Unmapping(const void* address, std::size_t bytes);
    ~Unmapping();
    Unmapping(const Unmapping&) = delete;
    Unmapping& operator=(const Unmapping&) = delete;

  private:
    static constexpr unsigned most_ = 64;  // in one munmap; programs unmap one by one
    struct Gone {
        Handle* handle;
        std::size_t bytes;
        std::uint64_t offset;
    };
    Gone gone_[most_];
    unsigned count_ = 0;
};

void dropMappingsInChild();

}  // namespace board::preload
