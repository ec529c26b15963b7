#include "board/daemon/sound/soundsource.h"

#include "board/daemon/stream0.h"

#include <sound/asound.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace board {

namespace {

constexpr double fullScale = 2147483648.0;
constexpr double halfScale = 0.5;
constexpr double twoPi = 6.283185307179586;

std::int32_t scaled(double value) {
    return std::int32_t(std::clamp(value * fullScale, -fullScale, fullScale - 1));
}

class Tone : public SoundSource {
  public:
    explicit Tone(double frequency_Hz) : frequency_Hz_(frequency_Hz) {}
    std::int32_t sample(std::uint64_t frame, std::uint32_t /*channel*/,
                        std::uint32_t rate_Hz) const override {
        // Whole seconds drop out for a whole frequency, so that the phase stays exact.
        const std::uint64_t seconds = frame / rate_Hz;
        const double turns = frequency_Hz_ * double(frame % rate_Hz) / rate_Hz +
                             (frequency_Hz_ - std::floor(frequency_Hz_)) * double(seconds);
        return scaled(halfScale * std::sin(twoPi * (turns - std::floor(turns))));
    }

  private:
    double frequency_Hz_;
};

// From 100 Hz to 8 kHz in 8 s, then again; the pitch grows evenly to the ear.
class Sweep : public SoundSource {
  public:
    std::int32_t sample(std::uint64_t frame, std::uint32_t /*channel*/,
                        std::uint32_t rate_Hz) const override {
        constexpr double length_s = 8, low_Hz = 100, high_Hz = 8000, amplitude = 0.25;
        const double t = double(frame % (std::uint64_t(length_s) * rate_Hz)) / rate_Hz;
        const double growth = std::log(high_Hz / low_Hz);
        const double turns = low_Hz * length_s / growth * std::expm1(t / length_s * growth);
        return scaled(amplitude * std::sin(twoPi * (turns - std::floor(turns))));
    }
};

// A click of one millisecond at the start of every second.
class Clicks : public SoundSource {
  public:
    std::int32_t sample(std::uint64_t frame, std::uint32_t /*channel*/,
                        std::uint32_t rate_Hz) const override {
        return frame % rate_Hz < rate_Hz / 1000 ? scaled(halfScale) : 0;
    }
};

class Noise : public SoundSource {
  public:
    std::int32_t sample(std::uint64_t frame, std::uint32_t channel,
                        std::uint32_t /*rate_Hz*/) const override {
        // A hash of the place: the same noise every time.
        std::uint64_t x = frame * 0x9e3779b97f4a7c15U + channel + 1;
        x = (x ^ (x >> 30)) * 0xbf58476d1ce4e5b9U;
        x = (x ^ (x >> 27)) * 0x94d049bb133111ebU;
        return std::int32_t(x >> 32) / 4;
    }
};

// The frame's number in the upper half and in the lower one: it counts in every width.
class Ramp : public SoundSource {
  public:
    std::int32_t sample(std::uint64_t frame, std::uint32_t channel,
                        std::uint32_t /*rate_Hz*/) const override {
        const auto number = std::uint32_t(frame & 0xffff);
        return std::int32_t(((number + channel) & 0xffff) << 16 | number);
    }
};

class Silence : public SoundSource {
  public:
    std::int32_t sample(std::uint64_t, std::uint32_t, std::uint32_t) const override { return 0; }
};

bool isBigEndian(int format) {
    const std::string name = soundFormatName(format);
    return name.size() > 2 && name.compare(name.size() - 2, 2, "BE") == 0;
}

// The bits of the sample in the format's own representation, lowest byte first.
std::uint64_t representation(std::int32_t sample, int format, unsigned significantBits) {
    if (format == SNDRV_PCM_FORMAT_FLOAT_LE || format == SNDRV_PCM_FORMAT_FLOAT_BE) {
        const auto value = float(double(sample) / fullScale);
        std::uint32_t bits = 0;
        std::memcpy(&bits, &value, sizeof bits);
        return bits;
    }
    if (format == SNDRV_PCM_FORMAT_FLOAT64_LE || format == SNDRV_PCM_FORMAT_FLOAT64_BE) {
        const double value = double(sample) / fullScale;
        std::uint64_t bits = 0;
        std::memcpy(&bits, &value, sizeof bits);
        return bits;
    }
    std::uint32_t bits = std::uint32_t(sample);
    if (soundFormatName(format).front() == 'U')
        bits ^= 0x80000000U;
    return std::uint64_t(bits) >> (32 - significantBits);
}

unsigned significantBits(int format) {
    const std::string name = soundFormatName(format);
    return name.size() > 1 ? unsigned(std::atoi(name.c_str() + 1)) : 0;
}

}  // namespace

void packSample(std::int32_t sample, int format, std::uint8_t* bytes) {
    if (format == SNDRV_PCM_FORMAT_S16_LE) {  // nearly always
        bytes[0] = std::uint8_t(std::uint32_t(sample) >> 16);
        bytes[1] = std::uint8_t(std::uint32_t(sample) >> 24);
        return;
    }
    const unsigned count = soundFormatBits(format) / 8;
    const std::uint64_t bits = representation(sample, format, significantBits(format));
    for (unsigned i = 0; i < count; ++i)
        bytes[isBigEndian(format) ? count - 1 - i : i] = std::uint8_t(bits >> (8 * i));
}

std::shared_ptr<const SoundSource> makeGenerator(const std::string& text) {
    const std::string tone = "tone:";
    if (text.compare(0, tone.size(), tone) == 0) {
        char* end = nullptr;
        const double frequency = std::strtod(text.c_str() + tone.size(), &end);
        const bool whole = end != text.c_str() + tone.size() && *end == '\0';
        if (whole && frequency > 0 && frequency < 400000)
            return std::make_shared<Tone>(frequency);
        return nullptr;
    }
    if (text == "sweep")
        return std::make_shared<Sweep>();
    if (text == "clicks")
        return std::make_shared<Clicks>();
    if (text == "noise")
        return std::make_shared<Noise>();
    if (text == "ramp")
        return std::make_shared<Ramp>();
    if (text == "silence")
        return std::make_shared<Silence>();
    return nullptr;
}

ClipSource::ClipSource(std::vector<std::int32_t> samples, std::uint32_t channels)
    : samples_(std::move(samples)),
      channels_(std::max<std::uint32_t>(channels, 1)),
      frames_(samples_.size() / channels_) {}

std::int32_t ClipSource::sample(std::uint64_t frame, std::uint32_t channel,
                                std::uint32_t /*rate_Hz*/) const {
    if (frames_ == 0)
        return 0;
    return samples_[std::size_t(frame % frames_) * channels_ + channel % channels_];
}

}  // namespace board
