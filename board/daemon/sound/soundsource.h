// What a microphone hears: frames by their number, in any format. Loop thread only.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace board {

// Puts a sample (full scale: 32 bits) into memory in a linear or float format of the kernel's
// numbering. The number of bytes is soundFormatBits(format) / 8.
void packSample(std::int32_t sample, int format, std::uint8_t* bytes);

class SoundSource {
  public:
    virtual ~SoundSource() = default;
    // The sample of a channel in the frame with this number, counted from the stream's start.
    virtual std::int32_t sample(std::uint64_t frame, std::uint32_t channel,
                                std::uint32_t rate_Hz) const = 0;
};

// "sweep", "tone:FREQUENCY", "clicks", "noise", "ramp" (counts frames), "silence". Null for another
// text.
std::shared_ptr<const SoundSource> makeGenerator(const std::string& text);

// A clip of frames, played again and again.
class ClipSource : public SoundSource {
  public:
    ClipSource(std::vector<std::int32_t> samples, std::uint32_t channels);
    std::int32_t sample(std::uint64_t frame, std::uint32_t channel,
                        std::uint32_t rate_Hz) const override;

  private:
    std::vector<std::int32_t> samples_;  // frame after frame
    std::uint32_t channels_;
    std::uint64_t frames_;
};

}  // namespace board
