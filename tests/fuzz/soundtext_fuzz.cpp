// Any bytes as the kernel's text about a camera's sound card.
#include "control/camera/obsbot.h"
#include "control/capture/analysisfile.h"

#include <alsa/asoundlib.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace {

constexpr char textNode[] = "/proc/asound/card1/stream0";
constexpr std::string_view settingLabel = "Altset";

// A file in memory that stands for the fixed one.
const char* textPath() {
    static const std::string path =
        "/proc/self/fd/" + std::to_string(memfd_create("stream0", MFD_CLOEXEC));
    return path.c_str();
}

bool isText(const char* path) {
    return std::strcmp(path, textNode) == 0;
}

void require(bool truth, const char* what) {
    if (!truth) {
        std::fprintf(stderr, "broken: %s\n", what);
        std::abort();
    }
}

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

int __real_open(const char* path, int flags, ...);
int __real_access(const char* path, int mode);

int __wrap_open(const char* path, int flags, ...) {
    va_list rest;
    va_start(rest, flags);
    const mode_t mode = va_arg(rest, mode_t);
    va_end(rest);
    return __real_open(isText(path) ? textPath() : path, flags, mode);
}

int __wrap_access(const char* path, int mode) {
    return __real_access(isText(path) ? textPath() : path, mode);
}

int LLVMFuzzerInitialize(int*, char***) {
    return std::freopen("/dev/null", "w", stdout) == nullptr ? 1 : 0;
}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    {
        const UniqueFd file(open(textPath(), O_WRONLY | O_TRUNC | O_CLOEXEC));
        require(write(file.get(), data, size) == static_cast<ssize_t>(size), "the bench's file");
    }
    AnalysisFile analysis("");
    const bool chosen = analysis.analysisAudioDevice();
    check(analysis, chosen, text);
    return 0;
}

}  // extern "C"
