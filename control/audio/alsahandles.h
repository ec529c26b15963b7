// Owners of what alsa-lib hands out.
#pragma once

#include <alsa/asoundlib.h>

#include <memory>

struct PcmCloser {
    void operator()(snd_pcm_t* pcm) const { snd_pcm_close(pcm); }
};
using PcmHandle = std::unique_ptr<snd_pcm_t, PcmCloser>;

struct OutputCloser {
    void operator()(snd_output_t* output) const { snd_output_close(output); }
};
using OutputHandle = std::unique_ptr<snd_output_t, OutputCloser>;
