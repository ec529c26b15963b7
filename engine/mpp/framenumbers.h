// Finds missing pictures: H.264 numbers the pictures that others refer to, and libavcodec fills
// gaps in the numbers with copies without saying so.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "engine/mpp/accessunits.h"

namespace mpp {

class FrameNumbers {
  public:
    // Looks at the next unit. True when a picture that its own may refer to is missing before it.
    bool missingBefore(const AccessUnit& unit);
    // The next unit is not expected to follow the last.
    void forget() { known_ = false; }

  private:
    struct Sequence {
        bool known = false;
        bool separatePlanes = false;
        bool gapsAllowed = false;
        bool framesOnly = false;  // no picture is a single field
        int numberBits = 0;
    };

    void takeSequence(const std::uint8_t* nal, std::size_t size);
    void takePicture(const std::uint8_t* nal, std::size_t size);
    bool checkSlice(const std::uint8_t* nal, std::size_t size);

    std::array<Sequence, 32> sequences_;
    std::array<std::uint8_t, 256> sequenceOf_{};  // by the number of the picture parameter set
    bool known_ = false;
    std::uint32_t last_ = 0;  // number of the last picture that others may refer to
};

}  // namespace mpp
