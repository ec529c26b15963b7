// Memory for the intermediate pictures of one blit.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>

namespace rga {

// Kept per thread: a video asks for the same sizes at every frame, and fresh memory costs a page
// fault for every 4 KB. Freed when the thread ends.
class Scratch {
  public:
    // This thread's memory, everything taken before given back.
    static Scratch& begin();

    // At least `bytes` (not zero), undefined content, valid until the thread's next begin().
    // Throws std::bad_alloc.
    std::uint8_t* take(std::size_t bytes);

  private:
    struct Slot {
        std::unique_ptr<std::uint8_t[]> memory;
        std::size_t bytes = 0;
    };
    std::array<Slot, 20> slots_;  // more than the longest blit takes
    std::size_t used_ = 0;
};

}  // namespace rga
