// Frame buffers of another process, mapped for reading.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <deque>

namespace board::console {

// Keeps the last few mappings: a program shows the same buffers again and again. Used by one
// thread.
class MappedMemory {
  public:
    MappedMemory() = default;
    ~MappedMemory() { clear(); }
    MappedMemory(const MappedMemory&) = delete;
    MappedMemory& operator=(const MappedMemory&) = delete;

    struct Bytes {
        const std::uint8_t* data = nullptr;  // null: it cannot be mapped
        std::size_t size = 0;
    };
    // Valid until eight others have been asked for.
    Bytes of(int descriptor);
    void clear();

  private:
    struct Mapping {
        dev_t device;
        ino_t inode;
        void* address;
        std::size_t size;
    };
    std::deque<Mapping> mappings_;
};

}  // namespace board::console
