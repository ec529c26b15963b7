// A media file's sound as frames of 32-bit samples. Any thread.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace board {

struct DecodedSound {
    std::vector<std::int32_t> samples;  // frame after frame
    std::uint32_t channels = 0;
};

// The first `longest_s` seconds at this rate, on as many channels as the file has; samples of a
// file with the same rate and at most 32 bits are exact. Throws std::runtime_error with one line
// when the file cannot be opened or has no sound.
DecodedSound decodeSound(const std::string& path, std::uint32_t rate_Hz, unsigned longest_s);

}  // namespace board
