#include "board/daemon/sound/soundends.h"

namespace board {

void Voice::begin(const SoundFormat& format) {
    source_ = next_;
    format_ = format;
    frame_ = 0;
}

void Voice::move(std::uint8_t* frames, std::uint32_t count, std::int64_t /*left*/) {
    const std::uint32_t bytes = format_.sampleBits / 8;
    for (std::uint32_t i = 0; i < count; ++i, ++frame_)
        for (std::uint32_t channel = 0; channel < format_.channels; ++channel, frames += bytes)
            packSample(source_ ? source_->sample(frame_, channel, format_.rate_Hz) : 0,
                       format_.format, frames);
}

}  // namespace board
