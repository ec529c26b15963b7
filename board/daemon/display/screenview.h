// The part of a frame buffer that is on screen, and exact copies of it.
#pragma once

#include "board/media/stamp.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>

namespace board {

// A picture in memory shared with a client, valid until control returns to the event loop. A null
// first plane is a black picture. `format` is DRM_FORMAT_NV12 or DRM_FORMAT_XRGB8888.
struct ScreenView {
    std::uint32_t format = 0;
    std::uint32_t width = 0, height = 0;  // pixels
    const std::uint8_t* planes[2] = {nullptr, nullptr};
    std::uint32_t pitches[2] = {0, 0};  // bytes a line

    bool black() const { return planes[0] == nullptr; }
};

// Costs a look at the mark's cells, not at the picture.
std::optional<Stamp> readStamp(const ScreenView& view);

// A picture of its own, rows without padding; NV12: luma, then chroma. No bytes: black.
struct Snapshot {
    std::uint32_t format = 0;
    std::uint32_t width = 0, height = 0;
    std::size_t size = 0;  // bytes
    std::unique_ptr<std::uint8_t[]> bytes;
    std::size_t capacity = 0;  // bytes that `bytes` has room for

    bool black() const { return size == 0; }
    // As a view of this snapshot, which must outlive it.
    ScreenView view() const;
};

// Copies into `snapshot`, reusing its memory where it is large enough.
void copyScreen(const ScreenView& view, Snapshot& snapshot);

}  // namespace board
