// A camera's JPEG in small.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace board::console {

// Blue, green, red and an unused byte for each pixel, lines without gaps.
struct BgrxPicture {
    std::uint32_t width = 0, height = 0;
    std::vector<std::uint8_t> bytes;
};

// Decodes at a half, a quarter or an eighth of the size where that is still at least `width` wide.
// Damage shows in the picture; false, and no picture, where nothing can be seen. Code tables may be
// missing, and bytes may stand before the picture.
bool decodeJpeg(const std::uint8_t* bytes, std::size_t size, std::uint32_t width,
                BgrxPicture& picture);

}  // namespace board::console
