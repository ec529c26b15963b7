// Which sample formats have names, and which formats the output plays.
#include "control/audio/captureaudio.h"
#include "control/audio/playbackaudio.h"

namespace {

struct FormatName {
    const char* name;
    snd_pcm_format_t format;
};

constexpr FormatName formatNames[] = {
    {"S8", SND_PCM_FORMAT_S8},
    {"U8", SND_PCM_FORMAT_U8},
    {"S16_LE", SND_PCM_FORMAT_S16_LE},
    {"S16_BE", SND_PCM_FORMAT_S16_BE},
    {"U16_LE", SND_PCM_FORMAT_U16_LE},
    {"U16_BE", SND_PCM_FORMAT_U16_BE},
    {"S24_LE", SND_PCM_FORMAT_S24_LE},
    {"S24_BE", SND_PCM_FORMAT_S24_BE},
    {"S32_LE", SND_PCM_FORMAT_S32_LE},
    {"S32_BE", SND_PCM_FORMAT_S32_BE},
    {"U32_LE", SND_PCM_FORMAT_U32_LE},
    {"U32_BE", SND_PCM_FORMAT_U32_BE},
    {"FLOAT_LE", SND_PCM_FORMAT_FLOAT_LE},
    {"FLOAT_BE", SND_PCM_FORMAT_FLOAT_BE},
    {"FLOAT64_LE", SND_PCM_FORMAT_FLOAT64_LE},
    {"FLOAT64_BE", SND_PCM_FORMAT_FLOAT64_BE},
    {"S24_3LE", SND_PCM_FORMAT_S24_3LE},
    {"S24_3BE", SND_PCM_FORMAT_S24_3BE},
    {"U24_3LE", SND_PCM_FORMAT_U24_3LE},
    {"U24_3BE", SND_PCM_FORMAT_U24_3BE},
};

}  // namespace

int Captureaudio::getFormatsByStr(const std::string& name) {
    for (const FormatName& known : formatNames) {
        if (name == known.name) {
            return known.format;
        }
    }
    return -1;
}

bool PlaybackAudio::isSupportedPlaybackFormat(const audioInfo& fmt) {
    return fmt.channels == 2 && fmt.format == SND_PCM_FORMAT_S16_LE &&
           (fmt.rate == 44100 || fmt.rate == 48000 || fmt.rate == 32000);
}
