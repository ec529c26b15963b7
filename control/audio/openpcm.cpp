#include "control/audio/openpcm.h"

#include "control/task/logline.h"

bool openPcm(const std::string& device, snd_pcm_stream_t stream, PcmHandle& handle,
             OutputHandle& log, const std::function<bool()>& setUp) {
    snd_output_t* output = nullptr;
    if (snd_output_stdio_attach(&output, stderr, 0) < 0) {
        logOut(" Error snd_output_stdio_attach");
        return false;
    }
    log.reset(output);
    snd_pcm_t* opened = nullptr;
    if (snd_pcm_open(&opened, device.c_str(), stream, 0) < 0) {
        logOut(" Error snd_pcm_open ", device);
        return false;
    }
    handle.reset(opened);
    if (!setUp()) {
        logOut(" Error set_snd_pcm_params ", device);
        return false;
    }
    snd_pcm_dump(opened, output);
    return true;
}
