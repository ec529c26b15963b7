// The camera's sound formats, read from the kernel's text about its USB-audio card.
#include "control/audio/captureaudio.h"
#include "control/audio/playbackaudio.h"
#include "control/capture/analysisfile.h"
#include "control/task/logline.h"
#include "control/task/uniquefd.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <string_view>

namespace {

// No device comes near; a text without end must not hold the start for ever.
constexpr std::size_t longestText = 65536;

constexpr std::string_view altsetLabel = "Altset";

std::string streamPath(int card) {
    return "/proc/asound/card" + std::to_string(card) + "/stream0";
}

std::string wholeText(const std::string& path) {
    const UniqueFd file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    std::string text;
    char block[4096];
    ssize_t got = 0;
    while (text.size() < longestText && (got = read(file.get(), block, sizeof block)) > 0) {
        text.append(block, static_cast<std::size_t>(got));
    }
    return text;
}

// What follows the first such label, up to the end of its line; false when there is none.
bool lineAfter(const std::string& text, std::size_t from, std::string_view label,
               std::string& value) {
    const std::size_t at = text.find(label, from);
    if (at == std::string::npos) {
        return false;
    }
    const std::size_t begin = at + label.size();
    value = text.substr(begin, text.find('\n', begin) - begin);
    return true;
}

bool isFullBandwidth(std::uint32_t rate) {
    return rate == 48000 || rate == 44100 || rate == 32000;
}

bool fitsFirst(const audioInfo& info) {
    return PlaybackAudio::isSupportedPlaybackFormat(info);
}

bool fitsSecond(const audioInfo& info) {
    return info.format == SND_PCM_FORMAT_S16_LE && isFullBandwidth(info.rate);
}

bool fitsThird(const audioInfo& info) {
    return info.format == SND_PCM_FORMAT_S16_LE && (info.rate == 16000 || info.rate == 8000);
}

struct Tier {
    const char* name;
    bool (*fits)(const audioInfo&);
};

constexpr Tier tiers[] = {{"first", fitsFirst}, {"second", fitsSecond}, {"third", fitsThird}};

}  // namespace

bool AnalysisFile::analysisAudioDevice() {
    audioInfos.clear();
    int card = 1;
    while (card <= 2 && access(streamPath(card).c_str(), F_OK) != 0) {
        ++card;
    }
    if (card > 2) {
        selectNoAudio();
        return false;
    }
    selectedAudio.device = "hw:" + std::to_string(card) + ",0";
    const std::string text = wholeText(streamPath(card));
    const unsigned int count = parseAudioSettings(text);
    std::size_t index = 0;
    if (!selectAudio(index)) {
        logOut("audio select faild");
        selectNoAudio();
        return false;
    }
    logOut("count = ", count, " index = ", index);
    writeOut(text.back() == '\n' ? text : text + '\n');
    logOut("###!!!---***  select audio fmt ***---!!!### : device: ", selectedAudio.device,
           " channels:", selectedAudio.channels, " formats:", selectedAudio.format,
           " rate:", selectedAudio.rate);
    return true;
}

void AnalysisFile::selectNoAudio() {
    selectedAudio.channels = 0;
    selectedAudio.format = -1;
    selectedAudio.rate = 0;
}

// Each setting takes the first labels behind the start of the one before it, whatever they belong
// to: status lines that hold the word count as settings, too.
unsigned int AnalysisFile::parseAudioSettings(const std::string& text) {
    unsigned int count = 0;
    std::size_t start = 0;
    for (;;) {
        const std::size_t altset = text.find(altsetLabel, start);
        if (altset == std::string::npos) {
            return count;
        }
        ++count;
        audioInfo info;
        std::string value;
        if (lineAfter(text, start, "Channels: ", value)) {
            const std::string digit = value.substr(0, 1);
            info.channels = static_cast<std::uint16_t>(std::atoi(digit.c_str()));
            logOut(count, " channelsStr ", digit, " channels ", info.channels);
            if (lineAfter(text, start, "Format: ", value)) {
                info.format = Captureaudio::getFormatsByStr(value);
                logOut(count, " formatStr ", value, " format ", info.format);
            }
            if (lineAfter(text, start, "Rates: ", value)) {
                info.rate = static_cast<std::uint32_t>(std::strtol(value.c_str(), nullptr, 10));
                logOut(count, " rateStr ", value, " rate ", info.rate);
            }
            audioInfos.push_back(info);
        }
        start = altset + altsetLabel.size();
    }
}

// The first setting that passes the best tier that any passes.
bool AnalysisFile::selectAudio(std::size_t& index) {
    for (const Tier& tier : tiers) {
        for (index = 0; index < audioInfos.size(); ++index) {
            const audioInfo& info = audioInfos[index];
            if (tier.fits(info)) {
                selectedAudio.channels = info.channels;
                selectedAudio.format = info.format;
                selectedAudio.rate = info.rate;
                logOut("audio select ", tier.name, " succeed");
                return true;
            }
        }
    }
    return false;
}
