// What the sound tests share: boards with a microphone of any kind, recordings of what was played.
#pragma once

#include "tests/support/board.h"

#include <cstdint>
#include <string>
#include <vector>

namespace support {

// The camera's microphone as its listing describes it; `limits` (JSON, may be empty) are what the
// card really does.
struct MicrophoneKind {
    unsigned channels = 2;
    std::string format = "S16_LE";
    unsigned rate = 48000;
    std::string limits;
};

// A scenario with a small picture, this microphone and an output; the file's path. `hears` is a
// source of the board's, `output` a name or a description in JSON.
std::string soundScenario(const MicrophoneKind& microphone, const std::string& hears,
                          const std::string& output = "\"synthetic-output\"");

// Sixteen-bit samples of a WAV file, interleaved. Throws std::runtime_error.
struct Recorded {
    unsigned rate = 0, channels = 0;
    std::vector<std::int16_t> samples;
    std::size_t frames() const { return samples.size() / channels; }
    int at(std::size_t frame, unsigned channel) const {
        return samples[frame * channels + channel];
    }
};
Recorded readRecorded(const std::string& path);

// How often the recording does not go on where it was (a counting source), and frames that sound
// twice.
struct Continuity {
    std::size_t repeated = 0, jumps = 0, foreign = 0;  // foreign: channels that do not belong
    std::vector<std::size_t> repeatedAt;
};
Continuity followRamp(const Recorded& recorded);

// A 1 kHz tone in one channel: frequency, amplitude (full scale 1), what is not the tone against
// it.
struct ToneFigures {
    double frequency_Hz = 0, amplitude = 0, rest = 0;
};
ToneFigures measureTone(const Recorded& recorded, unsigned channel, std::size_t from,
                        std::size_t frames);

// Processor seconds that the threads of these names have used.
double threadTime_s(int pid, const std::vector<std::string>& names);

// Memory of its own that the process has: buffers shared with devices are not among it.
std::uint64_t ownMemory_kB(int pid);

}  // namespace support
