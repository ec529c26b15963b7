// The hardware parameters that a stream can have: what a program asks for is narrowed to what the
// card can do and to what goes together, and at last to one value each.
#pragma once

#include "board/daemon/soundlimits.h"

#include <sound/asound.h>

#include <cstdint>

namespace board {

// What was chosen.
struct SoundFormat {
    int format = 0;  // SNDRV_PCM_FORMAT number
    std::uint32_t rate_Hz = 0, channels = 0;
    std::uint32_t periodFrames = 0, bufferFrames = 0;
    std::uint32_t sampleBits = 0;
    int access = 0;  // SNDRV_PCM_ACCESS_...

    std::uint32_t frameBytes() const { return sampleBits / 8 * channels; }
    bool operator==(const SoundFormat& other) const {
        return format == other.format && rate_Hz == other.rate_Hz && channels == other.channels;
    }
};

class HardwareSpace {
  public:
    explicit HardwareSpace(SoundLimits limits);

    // HW_REFINE: 0, or -EINVAL when nothing is left.
    int refine(snd_pcm_hw_params& params) const;
    // HW_PARAMS: one value for each parameter, the first that is possible (the last for the
    // buffer's size), and what they mean.
    int choose(snd_pcm_hw_params& params, SoundFormat& chosen) const;

    const SoundLimits& limits() const { return limits_; }

  private:
    bool apply(snd_pcm_hw_params& params) const;
    void applyLimits(snd_pcm_hw_params& params) const;
    bool applySettings(snd_pcm_hw_params& params) const;
    void describe(snd_pcm_hw_params& params) const;

    SoundLimits limits_;
};

}  // namespace board
