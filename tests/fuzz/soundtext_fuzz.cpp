// Any bytes as the kernel's text about a camera's sound card.
#include "control/camera/obsbot.h"
#include "control/capture/analysisfile.h"
#include "tests/fuzz/fuzzbench.h"

#include <alsa/asoundlib.h>

#include <utility>

namespace {

using fuzzbench::require;

constexpr char textNode[] = "/proc/asound/card1/stream0";
constexpr std::string_view settingLabel = "Altset";

std::size_t settingsIn(std::string_view text) {
    std::size_t count = 0;
    for (std::size_t at = text.find(settingLabel); at != text.npos;
         at = text.find(settingLabel, at + settingLabel.size())) {
        ++count;
    }
    return count;
}

bool usable(const audioInfo& info) {
    static constexpr unsigned rates[] = {48000, 44100, 32000, 16000, 8000};
    bool known = false;
    for (const unsigned rate : rates) {
        known = known || info.rate == rate;
    }
    return known && info.format == SND_PCM_FORMAT_S16_LE;
}

// What is chosen stands in the text and can be played; nothing is chosen only where nothing can.
void check(const AnalysisFile& analysis, bool chosen, std::string_view text) {
    require(analysis.audioInfos.size() <= settingsIn(text), "more settings than the text has");
    const audioInfo& selected = analysis.selectedAudio;
    bool listed = false;
    bool any = false;
    for (const audioInfo& info : analysis.audioInfos) {
        require(info.channels <= 9, "channels are one digit");
        any = any || usable(info);
        listed = listed || (info.channels == selected.channels && info.format == selected.format &&
                            info.rate == selected.rate);
    }
    require(chosen == any, "whether there is a choice");
    if (chosen) {
        require(listed && usable(selected), "the setting that is chosen");
    } else {
        require(selected.format == -1 && selected.rate == 0 && selected.channels == 0,
                "no sound says so");
    }
}

}  // namespace

AnalysisFile::AnalysisFile(std::string path) : devicePath(std::move(path)) {}
AnalysisFile::~AnalysisFile() = default;

extern "C" {

int LLVMFuzzerInitialize(int*, char***) {
    fuzzbench::standFor(textNode);
    return 0;
}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    fuzzbench::writeFile(data, size);
    AnalysisFile analysis("");
    const bool chosen = analysis.analysisAudioDevice();
    check(analysis, chosen, text);
    return 0;
}

}  // extern "C"
