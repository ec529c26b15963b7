#include "tests/support/logfilter.h"

#include <cstdio>
#include <regex>

namespace support {

namespace {

// Regular expressions for whole lines.
const char* const chances[] = {
    // A worker found its queue empty, or the screen had no new frame: depends on who ran first.
    R"(Decoder_(Rawvideo|MJPEG_MPP|H264_MPP) getq timeout)",
    R"(show control getq timeout)",
    // The microphone and the output wake on their own.
    R"(PlaybackAudio getq timeout)",
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

}  // namespace

bool comesByChance(const std::string& line) {
    static const std::vector<std::regex> forms = [] {
        std::vector<std::regex> compiled;
        for (const char* chance : chances) {
            compiled.emplace_back(chance);
        }
        return compiled;
    }();
    for (const std::regex& form : forms) {
        if (std::regex_match(line, form)) {
            return true;
        }
    }
    return false;
}

std::string steadyForm(const std::string& line) {
    std::string text = printable(line);
    for (const Replacement& replacement : replacements) {
        text = std::regex_replace(text, std::regex(replacement.form), replacement.steady);
    }
    return text;
}

std::vector<std::string> steadyLines(const std::vector<std::string>& log) {
    std::vector<std::string> lines;
    for (const std::string& line : log) {
        if (!comesByChance(line)) {
            lines.push_back(steadyForm(line));
        }
    }
    return lines;
}

}  // namespace support
