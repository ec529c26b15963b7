// Pictures that were scanned out, and what they should have been.
#pragma once

#include "board/media/recording.h"
#include "tests/support/board.h"
#include "tests/support/nv12.h"

#include <cstdint>
#include <string>
#include <vector>

namespace support {

struct ShownFrame {
    std::uint32_t frame = 0;       // the camera's number, from its mark
    std::uint32_t time_100us = 0;  // when the camera took it
    Picture picture;
};

// Lets the board keep the next `count` scanned-out pictures that carry a camera's mark and reads
// them.
std::vector<ShownFrame> takeShownFrames(Board& board, unsigned count);

struct Likeness {  // decibels; 99 when equal
    double luma_dB = 0, u_dB = 0, v_dB = 0;
};
Likeness compare(const Picture& seen, const Picture& expected);

// The camera's frames as the display should show them: composed from the recording as the camera
// does, chroma lines averaged in pairs, and scaled by swscale where the sizes differ.
class ExpectedPictures {
  public:
    // Decodes the recording; throws std::runtime_error.
    ExpectedPictures(const std::string& recording, std::uint32_t cameraWidth,
                     std::uint32_t cameraHeight);
    Picture of(const ShownFrame& shown) const;

  private:
    board::PictureLoop loop_;
};

// The mean colour of a part of the picture in the middle, clear of the mark: Y, U, V.
struct Colour {
    double y = 0, u = 0, v = 0;
};
Colour middleColour(const Picture& picture);

}  // namespace support
