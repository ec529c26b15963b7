// Conversion of sound between rates, sample formats and channel counts, 1024 frames at a time.
#pragma once

#include "control/task/mediatypes.h"

#include <alsa/asoundlib.h>

extern "C" {
#include <libavutil/samplefmt.h>
}

#include <cstdint>

struct SwrContext;

// For one thread. What the context holds back comes out with the next chunk.
class AudioResample {
  public:
    static constexpr unsigned int chunkFrames = 1024;

    // Never fails loudly: see resampleProcess.
    AudioResample(const audioInfo& src, const audioInfo& dst);
    ~AudioResample();
    AudioResample(const AudioResample&) = delete;
    AudioResample& operator=(const AudioResample&) = delete;

    // The FFmpeg sample format for an ALSA one; signed 16 bit where there is none.
    static AVSampleFormat switchAvFmt(snd_pcm_format_t fmt);

    // Converts one chunk: `inLen` bytes in the source format, at most 1024 frames (what exceeds
    // them is left out). It always counts as 1024 frames: a shorter chunk is followed by the end of
    // the one before. Of more than two channels the first two are taken. True with `*outLen` bytes
    // in `out`, which holds at least outputLimit() bytes; false, both untouched, when it cannot be
    // converted.
    bool resampleProcess(const unsigned char* in, unsigned int inLen, unsigned char* out,
                         unsigned int* outLen);

    // Bytes of a frame in the source format, and of the largest output of one call.
    unsigned int sourceFrameBytes() const;
    unsigned int outputLimit() const;

  private:
    void configureContext();
    bool allocateSource();
    bool allocateDestination();
    void takeSource(const unsigned char* in, unsigned int inLen);
    bool makeRoom();

    int resampler_ready = 0;
    audioInfo source;
    audioInfo destination;
    SwrContext* swr_ctx = nullptr;
    std::uint8_t** src_data = nullptr;
    std::uint8_t** dst_data = nullptr;
    std::int64_t src_ch_layout;
    std::int64_t dst_ch_layout;
    int src_linesize = 0;
    int dst_linesize = 0;
    int src_nb_channels = 0;
    int dst_nb_channels = 0;
    int src_nb_samples = static_cast<int>(chunkFrames);
    int dst_nb_samples = 0;      // output frames that the current call needs
    int max_dst_nb_samples = 0;  // frames that the destination buffer holds
    AVSampleFormat src_sample_fmt;
    AVSampleFormat dst_sample_fmt;
};
