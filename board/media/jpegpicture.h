// A picture as a webcam's JPEG: baseline, the standard's Huffman tables, a restart marker after
// every row of MCUs.
#pragma once

#include <cstdint>
#include <vector>

namespace board {

// Planes that are padded to whole MCUs by repeating their edges.
struct JpegPlanes {
    std::uint32_t width = 0, height = 0;  // of the picture
    bool fullChromaHeight = false;        // 4:2:2, else 4:2:0
    std::uint32_t stride = 0;             // of luma; chroma's is half of it
    std::vector<std::uint8_t> y, u, v;

    std::uint32_t rowLines() const { return fullChromaHeight ? 8 : 16; }  // of a row of MCUs
};

// From YUYV (4:2:2) or YU12 (4:2:0), lines without gaps; only the first `lines` lines of the
// picture.
JpegPlanes planesOfYuyv(const std::uint8_t* picture, std::uint32_t width, std::uint32_t height,
                        std::uint32_t lines);
JpegPlanes planesOfYu12(const std::uint8_t* picture, std::uint32_t width, std::uint32_t height,
                        std::uint32_t lines);

std::vector<std::uint8_t> encodeJpeg(const JpegPlanes& planes, unsigned quality);

// Where the coded rows begin, and the place after each restart marker, the end-of-image marker
// last.
struct JpegRows {
    std::size_t first = 0;
    std::vector<std::size_t> next;
};
JpegRows findRows(const std::vector<std::uint8_t>& jpeg);

}  // namespace board
