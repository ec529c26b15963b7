// Samples of a sound card as the console uses them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace board::console {

// Left and right of each frame; of more than two channels the first two, one channel stands on both
// sides. `format` is SNDRV_PCM_FORMAT_...; empty for one that is not understood or when `size`
// bytes are too few for `frames` frames.
std::vector<std::int16_t> toStereo(std::uint32_t format, std::uint32_t channels, const char* bytes,
                                   std::size_t size, std::uint32_t frames);

}  // namespace board::console
