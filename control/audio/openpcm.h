// Opening of a PCM device, the same for microphone and output.
#pragma once

#include "control/audio/alsahandles.h"

#include <functional>
#include <string>

// Opens `device` into `handle`, lets `setUp` configure it and dumps the result to `log`, which is
// on standard error. A step that fails prints one line; what was opened until then stays in place.
bool openPcm(const std::string& device, snd_pcm_stream_t stream, PcmHandle& handle,
             OutputHandle& log, const std::function<bool()>& setUp);
