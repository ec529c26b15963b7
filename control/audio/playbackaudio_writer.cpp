// The thread that feeds the sound output, one period at a time.
#include "control/audio/driftrule.h"
#include "control/audio/playbackaudio.h"
#include "control/task/logline.h"

#include <algorithm>
#include <cerrno>
#include <thread>

namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;

constexpr auto fifoStep = microseconds(2000);
constexpr auto blockedWrite = microseconds(4999);
constexpr auto pauseAfterBlocking = microseconds(30000);
constexpr auto stopSlice = milliseconds(50);  // a stopped task is noticed this soon
constexpr auto shortWriteWait = milliseconds(1000);
// What fails at once is not tried more often than this: the log and the processor are not for it.
constexpr auto retryStep = milliseconds(25);

}  // namespace

void* PlaybackAudio::svc_run_resamplePlay(void* self) {
    static_cast<PlaybackAudio*>(self)->resamplePlay();
    return nullptr;
}

void PlaybackAudio::resamplePlay() {
    setThreadName("resamplePlay");
    if (playback_ready) {
        prefill();
        while (running != 0) {
            playPeriod();
        }
    }
    while (running != 0) {
        pause(fifoStep);
    }
    logOut("PlaybackAudio resamplePlay normal stop!");
}

void PlaybackAudio::prefill() {
    while (running != 0 && getPcmRemainLength() < drift::prefillPeriods * pcm.period_bytes) {
        pause(fifoStep);
    }
}

void PlaybackAudio::playPeriod() {
    const std::size_t remain = getPcmRemainLength();
    if (remain < pcm.period_bytes) {
        pause(fifoStep);
        return;
    }
    const std::size_t frameBytes = pcm.bits_per_frame / 8;
    const std::size_t taken = popPcmData(
        playBuf.data(),
        static_cast<unsigned int>(drift::bytesToTake(remain, pcm.period_bytes, frameBytes)));
    drift::completePeriod(playBuf.data(), taken, pcm.period_bytes, frameBytes);
    const auto begin = std::chrono::steady_clock::now();
    const snd_pcm_sframes_t written =
        SNDWAV_WritePcm(playBuf.data(), static_cast<unsigned int>(pcm.period_size));
    if (std::chrono::steady_clock::now() - begin > blockedWrite) {
        pause(pauseAfterBlocking);
    }
    if (written < 0 && written != -EPIPE) {
        pause(retryStep);
        skipTo(remain);
    }
}

// What came while a device refused its period is gone like that period: else each failure would
// leave the sound later than before.
void PlaybackAudio::skipTo(std::size_t level) {
    for (std::size_t held = getPcmRemainLength(); held > level; held = getPcmRemainLength()) {
        popPcmData(playBuf.data(),
                   static_cast<unsigned int>(std::min(held - level, playBuf.size())));
    }
}

snd_pcm_sframes_t PlaybackAudio::SNDWAV_WritePcm(unsigned char* data, unsigned int frames) {
    snd_pcm_t* handle = pcm.handle.get();
    const std::size_t frameBytes = pcm.bits_per_frame / 8;
    const auto period = static_cast<unsigned int>(pcm.period_size);
    if (frames < period) {
        snd_pcm_format_set_silence(pcm.format, data + frames * frameBytes,
                                   (period - frames) * pcm.channels);
        frames = period;
    }
    snd_pcm_sframes_t written = 0;
    bool underrun = false;
    int underrunsInARow = 0;
    while (frames > 0 && running != 0) {
        if (waitForRoom(stopSlice) == 0) {
            continue;  // it stands still
        }
        const snd_pcm_sframes_t r = snd_pcm_writei(handle, data, frames);
        if (r == -EAGAIN || (r >= 0 && r < static_cast<snd_pcm_sframes_t>(frames))) {
            logOut("EAGAIN ");
            pause(retryStep);
            waitForRoom(shortWriteWait);
        } else if (r == -EPIPE) {
            underrun = true;
            if (snd_pcm_prepare(handle) < 0 || ++underrunsInARow > 1) {
                pause(retryStep);
            }
        } else if (r == -ESTRPIPE) {
            logOut("<<<<<<<<<<<<<<< Need suspend >>>>>>>>>>>>>>>");
            pause(stopSlice);
        } else if (r < 0) {
            logOut("Error snd_pcm_writei: ", snd_strerror(static_cast<int>(r)));
            return underrun ? -EPIPE : r;
        }
        if (r > 0) {
            underrunsInARow = 0;
            data += static_cast<std::size_t>(r) * frameBytes;
            written += r;
            frames -= static_cast<unsigned int>(r);
        }
    }
    return underrun ? -EPIPE : written;
}

// Waits in slices until the device takes a period, for a stopped task does not wait for a device
// that stands still. 1 when it does, 0 when it does not within the limit, negative for a device in
// a state that the write will tell.
int PlaybackAudio::waitForRoom(milliseconds limit) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (running != 0) {
        const auto slice = std::min(limit, stopSlice);
        const int ready = snd_pcm_wait(pcm.handle.get(), static_cast<int>(slice.count()));
        if (ready != 0 || std::chrono::steady_clock::now() >= deadline) {
            return ready;
        }
    }
    return 0;
}

void PlaybackAudio::pause(microseconds time) const {
    if (running != 0) {
        std::this_thread::sleep_for(time);
    }
}
