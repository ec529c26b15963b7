// A picture as JPEG has it: three planes, full range, chroma halved in both directions.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace board::console {

// Planes are padded to whole blocks of sixteen (chroma: eight) by repeating their edges.
struct I420Picture {
    std::uint32_t width = 0, height = 0;  // pixels
    std::uint32_t stride = 0;             // of luma in bytes; chroma's is half of it
    std::vector<std::uint8_t> y, u, v;

    // Keeps the memory where it can; contents are undefined then.
    void resize(std::uint32_t newWidth, std::uint32_t newHeight);
    // Repeats the edges once the visible part is there.
    void pad();
    // From the screen's 16..235 and 16..240 to JPEG's 0..255, in place.
    void expandRange();
};

// The largest size with the same proportions that goes into `most`; even, never larger than the
// source.
struct PictureSize {
    std::uint32_t width = 0, height = 0;
};
PictureSize fitInto(PictureSize source, PictureSize most);

}  // namespace board::console
