// How a camera's encoder is set, for the compressed formats.
#pragma once

#include <cstdint>

namespace board {

struct Encoding {
    // Motion JPEG: chroma at half the width only (4:2:2), or also at half the height (4:2:0).
    bool fullChromaHeight = true;
    unsigned quality = 85;  // 1 to 100, as JPEG libraries count it

    // H.264.
    std::uint32_t bitRate = 6000000;  // bits a second at the mode's frame rate
    unsigned keyFrameDistance = 30;   // frames from one key frame to the next
    unsigned bFrames = 0;             // between two reference frames
    unsigned parameterSetsEvery = 1;  // so many key frames; 0: only at the start of the stream
    std::uint32_t loopFrames = 0;     // until it begins again; 0: by the pictures' size
    unsigned framesPerSecond = 30;    // what the bit rate is meant for

    bool operator==(const Encoding& other) const {
        return fullChromaHeight == other.fullChromaHeight && quality == other.quality &&
               bitRate == other.bitRate && keyFrameDistance == other.keyFrameDistance &&
               bFrames == other.bFrames && parameterSetsEvery == other.parameterSetsEvery &&
               loopFrames == other.loopFrames && framesPerSecond == other.framesPerSecond;
    }
};

}  // namespace board
