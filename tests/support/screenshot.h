// The board's screen as a person sees it.
#pragma once

#include "tests/support/board.h"

#include <cstdint>
#include <vector>

namespace support {

struct Rgb {
    std::uint32_t width = 0, height = 0;
    std::vector<std::uint8_t> bytes;  // red, green, blue of each pixel
};

// Empty, and a failure of the running test, when the board does not write a readable picture.
Rgb takeScreenshot(Board& board);

}  // namespace support
