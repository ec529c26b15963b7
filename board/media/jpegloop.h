// Motion JPEG: the pictures of a recording, encoded once. Only the rows under the mark are encoded
// when a frame is delivered, and put in front of the others.
#pragma once

#include "board/media/frameloop.h"
#include "board/media/jpegpicture.h"
#include "board/media/recording.h"

#include <vector>

namespace board {

class JpegLoop : public FrameLoop {
  public:
    // YUYV gives 4:2:2, YU12 4:2:0.
    JpegLoop(const PictureLoop& pictures, unsigned quality);

    std::size_t compose(std::uint32_t index, const Stamp& stamp, std::uint8_t* destination,
                        std::size_t capacity) const override;
    bool marked() const override { return markRows_ != 0; }

  private:
    struct Frame {
        std::vector<std::uint8_t> head;  // up to the first coded row
        std::vector<std::uint8_t> tail;  // behind the mark's rows
        JpegPlanes top;                  // what the mark is drawn into
    };

    unsigned quality_;
    std::uint32_t markRows_ = 0;  // rows of MCUs; 0: there is no room for a mark
    std::vector<Frame> frames_;
};

}  // namespace board
