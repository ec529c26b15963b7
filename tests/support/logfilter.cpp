#include "tests/support/logfilter.h"

#include "tests/support/pattern.h"

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <utility>

namespace support {

namespace {

// Regular expressions for whole lines.
const char* const chances[] = {
    // A worker found its queue empty, or the screen had no new frame: depends on who ran first.
    R"(Decoder_(Rawvideo|MJPEG_MPP|H264_MPP) getq timeout)",
    R"(show control getq timeout)",
    // The microphone and the output wake on their own.
    R"(PlaybackAudio getq timeout)",
    // The microphone's buffer ran over: its reader had no turn for so long.
    R"([01]\.avail error = -32)",
    R"(SNDWAV_ReadPcm <+ Buffer Underrun >+)",
    // More than 36 frames waited: only when the display was held up.
    R"(clean queue buff)",
    // Reports of half a minute.
    R"(fps:\d+)",
    R"(cap:\d+)",
    // Memory, every 6000 rounds.
    R"(hw memory\[\d+\])",
    // Temperatures, every 60 seconds: a shell's words and the kernel's numbers.
    R"(cpu[01]:)",
    R"(\d{5})",
    // The camera went between taking a buffer and giving it back.
    R"(VIDIOC_QBUF)",
};

struct Replacement {
    const char* form;
    const char* steady;
};

const Replacement replacements[] = {
    {R"(0x[0-9a-f]{6,16})", "POINTER"},
    // What was still queued at the end.
    {R"((close remain avpacket queue :)\d+)", "$1N"},
    // Whichever descriptor was free when the receiver was found.
    {R"((/dev/input/event\d+: open, fd = )\d+)", "$1N"},
};

// Lines in steady form whose place among the others is chance: nothing waits for their thread.
const char* const wanderers[] = {
    // The receiver is searched for while the pipeline is built.
    R"(/dev/input/event\d+: open, fd = N)",
    // The output's two threads end by themselves.
    R"(PlaybackAudio resamplePlay normal stop!)",
};

std::string printable(const std::string& line) {
    std::string text;
    for (const unsigned char byte : line) {
        if (byte >= 0x20 && byte < 0x7f) {
            text += char(byte);
        } else {
            char code[8];
            std::snprintf(code, sizeof code, "\\x%02x", byte);
            text += code;
        }
    }
    return text;
}

// Lines that say the same again for as long as something else takes: once is enough.
const char* const repetitions[] = {
    // A silent camera, until the supervisor has torn the pipeline down.
    R"(select timeout)",
    // An output that is gone, for each piece of sound that was on its way.
    R"(Error snd_pcm_writei: .*)",
};

bool matchesAny(const std::string& line, const std::vector<Pattern>& forms) {
    return std::any_of(forms.begin(), forms.end(),
                       [&](const Pattern& form) { return form.matchesWhole(line); });
}

}  // namespace

bool comesByChance(const std::string& line) {
    static const std::vector<Pattern> forms(std::begin(chances), std::end(chances));
    return matchesAny(line, forms);
}

std::string steadyForm(const std::string& line) {
    std::string text = printable(line);
    for (const Replacement& replacement : replacements) {
        text = Pattern(replacement.form).replaceAll(text, replacement.steady);
    }
    return text;
}

std::vector<std::string> steadyLines(const std::vector<std::string>& log) {
    static const std::vector<Pattern> wandering(std::begin(wanderers), std::end(wanderers));
    static const std::vector<Pattern> repeated(std::begin(repetitions), std::end(repetitions));
    std::vector<std::string> lines, placedByChance;
    for (const std::string& line : log) {
        if (comesByChance(line)) {
            continue;
        }
        std::string steady = steadyForm(line);
        if (!lines.empty() && steady == lines.back() && matchesAny(steady, repeated)) {
            continue;
        }
        std::vector<std::string>& place = matchesAny(steady, wandering) ? placedByChance : lines;
        place.push_back(std::move(steady));
    }
    lines.insert(lines.end(), placedByChance.begin(), placedByChance.end());
    return lines;
}

}  // namespace support
