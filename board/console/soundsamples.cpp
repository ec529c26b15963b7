#include "board/console/soundsamples.h"

#include <alsa/asoundlib.h>

#include <algorithm>
#include <cmath>
#include <cstring>

namespace board::console {

namespace {

constexpr std::uint32_t mostChannels = 64;

// The upper sixteen bits of a little-endian sample.
std::int16_t upperBits(const char* sample, std::size_t bytes) {
    const auto at = [sample](std::size_t i) { return static_cast<unsigned char>(sample[i]); };
    if (bytes == 1)  // unsigned
        return std::int16_t((int(at(0)) - 128) * 256);
    return std::int16_t(at(bytes - 2) | at(bytes - 1) << 8);
}

std::int16_t fromFloat(const char* sample) {
    float value = 0;
    std::memcpy(&value, sample, sizeof value);
    return std::int16_t(std::clamp(std::isfinite(value) ? value : 0.0f, -1.0f, 1.0f) * 32767.0f);
}

struct Layout {
    std::size_t bytes = 0;  // of a sample; 0: not understood
    std::size_t used = 0;   // of these the lower ones
    bool isFloat = false;
};

Layout layoutOf(std::uint32_t format) {
    switch (int(format)) {
        case SND_PCM_FORMAT_U8:
            return {1, 1};
        case SND_PCM_FORMAT_S16_LE:
            return {2, 2};
        case SND_PCM_FORMAT_S24_3LE:
            return {3, 3};
        case SND_PCM_FORMAT_S24_LE:
            return {4, 3};
        case SND_PCM_FORMAT_S32_LE:
            return {4, 4};
        case SND_PCM_FORMAT_FLOAT_LE:
            return {4, 4, true};
        default:
            return {};
    }
}

}  // namespace

std::vector<std::int16_t> toStereo(std::uint32_t format, std::uint32_t channels, const char* bytes,
                                   std::size_t size, std::uint32_t frames) {
    const Layout layout = layoutOf(format);
    const std::size_t step = layout.bytes * channels;
    if (step == 0 || channels > mostChannels || size / step < frames)
        return {};
    std::vector<std::int16_t> stereo;
    stereo.reserve(std::size_t(frames) * 2);
    for (std::uint32_t i = 0; i < frames; ++i) {
        for (std::size_t side = 0; side < 2; ++side) {
            const char* sample = bytes + i * step + (channels > 1 ? side * layout.bytes : 0);
            stereo.push_back(layout.isFloat ? fromFloat(sample) : upperBits(sample, layout.used));
        }
    }
    return stereo;
}

}  // namespace board::console
