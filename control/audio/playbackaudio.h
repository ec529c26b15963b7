// The board's sound output: takes the camera's sound, converts it where needed and plays it.
#pragma once

#include "control/audio/alsahandles.h"
#include "control/audio/audioresample.h"
#include "control/audio/bytefifo.h"
#include "control/task/mediatypes.h"
#include "control/task/receive_handler.h"
#include "control/task/taskbase.h"

#include <pthread.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

struct msgAudio;

// Two threads: the task's receives and converts, the writer alone touches the device.
class PlaybackAudio final : public TaskBase, public Receive_handler {
  public:
    struct SNDPCMContainer {
        PcmHandle handle;
        OutputHandle log;               // on standard error
        std::uint64_t period_size = 0;  // frames
        std::uint64_t buffer_size = 0;  // frames
        snd_pcm_format_t format = SND_PCM_FORMAT_UNKNOWN;
        std::uint32_t channels = 0;
        std::uint64_t period_bytes = 0;
        std::uint64_t buffer_bytes = 0;
        std::uint64_t bits_per_sample = 0;
        std::uint64_t bits_per_frame = 0;
        std::uint64_t period_time = 0;  // microseconds, as granted
    };

    // Opens "hw:0,0" for the device format and starts both threads. Without a device the sound is
    // received and thrown away.
    PlaybackAudio(const audioInfo& source, const audioInfo& device);
    ~PlaybackAudio() override;

    // Whether the output plays this format as it is.
    static bool isSupportedPlaybackFormat(const audioInfo& fmt);

    int receive_handler(void* msg, unsigned int arg) override;
    bool queueAllow_angler() override;  // always true

    // The sound in device format that waits for the writer. Any thread.
    void pushPcmData(const unsigned char* data, unsigned int len);
    unsigned int popPcmData(unsigned char* dst, unsigned int len);  // how many were there
    unsigned int getPcmRemainLength() const;

    // Writes `frames` frames out of a buffer that holds a whole period; what is missing to one is
    // silence. The frames written, or the negative errno that ended it; -EPIPE also when an
    // underrun was met and all was written afterwards. On the writer thread while it plays.
    snd_pcm_sframes_t SNDWAV_WritePcm(unsigned char* data, unsigned int frames);

    // Stops both threads, lets the device play what it holds for a short time, closes it and frees
    // the messages still queued; 0. May be called again.
    int close() override;
    int svc() override;

  private:
    bool initPlaybackAudio();
    bool SNDWAV_SetParams(SNDPCMContainer* container);

    // The receiving thread.
    void take(const msgAudio& chunk);
    void resample(const unsigned char* data, unsigned int length);
    void resampleChunk(const unsigned char* data, unsigned int length);

    // The writer thread.
    static void* svc_run_resamplePlay(void* self);
    void resamplePlay();
    void prefill();
    void playPeriod();
    void skipTo(std::size_t level);
    int waitForRoom(std::chrono::milliseconds limit);
    void pause(std::chrono::microseconds time) const;

    void drainDevice();

    audioInfo source;
    audioInfo device;  // the rate is the granted one
    bool playback_ready = false;
    bool need_resample = false;
    SNDPCMContainer pcm;
    std::vector<unsigned char> playBuf;      // at least one period
    std::vector<unsigned char> resampleBuf;  // at least one converted chunk
    std::vector<unsigned char> spareBuf;
    std::vector<unsigned char> remainder;  // of captured periods longer than the resampler's chunk
    std::unique_ptr<AudioResample> resampler;
    ByteFifo pcmFifo;
    pthread_t resampleThread{};
    bool writerStarted = false;
};
