// The camera's microphone: captured on notification, handed on a period at a time.
#pragma once

#include "control/audio/alsahandles.h"
#include "control/audio/bytefifo.h"
#include "control/task/mediatypes.h"
#include "control/task/receive_handler.h"
#include "control/task/taskbase.h"

#include <csignal>
#include <cstdint>
#include <string>
#include <vector>

// Needs SIGIO blocked in every thread of the process: the task accepts the notification itself, so
// nothing of it runs in signal context and nothing after close().
class Captureaudio final : public TaskBase {
  public:
    struct SNDPCMContainer {
        PcmHandle handle;
        snd_async_handler_t* asyncHandler = nullptr;  // goes with the handle
        OutputHandle log;                             // on standard error
        snd_pcm_uframes_t chunk_size = 0;             // period in frames
        snd_pcm_uframes_t buffer_size = 0;            // frames
        snd_pcm_format_t format = SND_PCM_FORMAT_UNKNOWN;
        std::uint32_t channels = 0;
        std::uint64_t period_bytes = 0;
        std::uint64_t buffer_bytes = 0;
        std::uint64_t bits_per_sample = 0;
        std::uint64_t bits_per_frame = 0;
        std::uint64_t period_time = 0;  // microseconds, as requested
    };

    // Opens and configures the device; one that cannot be opened never gives data. The owner starts
    // the task with activate(1).
    explicit Captureaudio(const audioInfo& audio);
    ~Captureaudio() override;

    // ALSA's number for the name of a sample format, -1 for a name that is not known.
    static int getFormatsByStr(const std::string& name);

    // The stage that gets the sound: not owned, set before the task runs.
    void linkPlaybackReceiveHandler(Receive_handler* handler);

    // The captured bytes that were not handed on yet. Any thread.
    void pushPcmData(const unsigned char* p, unsigned int n);
    unsigned int popPcmData(unsigned char* out, unsigned int n);  // how many were there, at most n
    unsigned int getPcmRemainLength() const;

    // Stops the task and closes the device; 0. May be called again.
    int close() override;
    int svc() override;

  private:
    static void asyncHandlerCallback(snd_async_handler_t* handler);
    void asyncCaptureHandler(snd_async_handler_t* handler);

    bool initCaptureAudio();
    bool SNDWAV_SetParams(SNDPCMContainer* container);
    void startDevice();
    void restartDevice();
    void reviveDevice();
    void captureUntilStopped();
    bool waitForNotification();
    bool isOurs(const siginfo_t& notification) const;
    bool readPeriod(snd_pcm_t* pcm);
    void reportAvailError(const char* label, snd_pcm_sframes_t error);
    void sendPeriod();

    bool initialised = false;
    audioInfo audio;
    SNDPCMContainer pcm;
    std::vector<unsigned char> readBuf;  // at least one period
    Receive_handler* playbackReceiver = nullptr;
    ByteFifo pcmBuffer;
    std::vector<int> descriptors;  // of the device, as notifications name them
    bool troubled = false;         // the last notification met an error
    bool startRefused = false;     // and that was said
};
