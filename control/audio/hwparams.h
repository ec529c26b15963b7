// Negotiation of a PCM device's hardware parameters, the same for microphone and output.
#pragma once

#include <alsa/asoundlib.h>

#include <memory>

struct HwRequest {
    snd_pcm_format_t format;
    unsigned int channels;
    unsigned int rate;           // Hz
    unsigned int bufferPeriods;  // periods of 1024 frames that the device's buffer holds at most
};

struct HwGrant {
    unsigned int rate;                 // Hz
    unsigned int requestedPeriodTime;  // microseconds that 1024 frames take at the granted rate
    unsigned int periodTime;           // microseconds
    snd_pcm_uframes_t periodSize;      // frames
    snd_pcm_uframes_t bufferSize;      // frames
    unsigned long bitsPerSample;       // as stored
    unsigned long bitsPerFrame;
    unsigned long periodBytes;
    unsigned long bufferBytes;
};

// For one device and one set-up; a step that fails prints one line.
class HwParams {
  public:
    // `handle`: an open device, not owned.
    HwParams(snd_pcm_t* handle, const HwRequest& request);

    // Asks and sets: from here on the device is configured.
    bool install();
    // Reads the sizes that came of it; false when no buffering is possible with them.
    bool readSizes();
    const HwGrant& granted() const { return grant_; }

  private:
    struct Free {
        void operator()(snd_pcm_hw_params_t* params) const { snd_pcm_hw_params_free(params); }
    };

    bool setSampleLayout();
    bool setRate();
    bool setTimes();

    snd_pcm_t* handle_;
    HwRequest request_;
    HwGrant grant_{};
    std::unique_ptr<snd_pcm_hw_params_t, Free> params_;
};
