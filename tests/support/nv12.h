// A picture in memory.
#pragma once

#include <cstdint>
#include <vector>

namespace support {

// NV12 without padding.
struct Picture {
    std::uint32_t width = 0, height = 0;
    std::vector<std::uint8_t> luma;
    std::vector<std::uint8_t> chroma;  // U and V interleaved
};

}  // namespace support
