#include "control/audio/audioresample.h"

#include "control/task/logline.h"

extern "C" {
#include <libavdevice/avdevice.h>
#include <libavutil/channel_layout.h>
#include <libavutil/mathematics.h>
#include <libavutil/mem.h>
#include <libavutil/opt.h>
#include <libswresample/swresample.h>
}

#include <algorithm>
#include <cstring>
#include <limits>

namespace {

std::int64_t layoutFor(unsigned int channels) {
    return channels == 1 ? AV_CH_LAYOUT_MONO : AV_CH_LAYOUT_STEREO;
}

int channelsOf(std::int64_t layout) {
    AVChannelLayout described{};
    av_channel_layout_from_mask(&described, static_cast<std::uint64_t>(layout));
    return described.nb_channels;
}

// Frames at the destination's rate, rounded up; 0 for numbers that make no sense.
int framesAfter(std::int64_t frames, unsigned int dstRate, unsigned int srcRate) {
    if (srcRate == 0) {
        return 0;
    }
    const std::int64_t after = av_rescale_rnd(frames, dstRate, srcRate, AV_ROUND_UP);
    return after > 0 && after <= std::numeric_limits<int>::max() ? static_cast<int>(after) : 0;
}

void freeSamples(std::uint8_t** planes) {
    if (planes != nullptr) {
        av_freep(&planes[0]);
        av_free(planes);
    }
}

}  // namespace

AudioResample::AudioResample(const audioInfo& src, const audioInfo& dst)
    : source(src),
      destination(dst),
      src_ch_layout(layoutFor(src.channels)),
      dst_ch_layout(layoutFor(dst.channels)),
      src_sample_fmt(switchAvFmt(static_cast<snd_pcm_format_t>(src.format))),
      dst_sample_fmt(switchAvFmt(static_cast<snd_pcm_format_t>(dst.format))) {
    avdevice_register_all();
    logOut("src channels ", source.channels);
    logOut("src format ", source.format);
    logOut("src sample ", source.rate);
    logOut("dst channels ", destination.channels);
    logOut("dst format ", destination.format);
    logOut("dst sample ", destination.rate);
    configureContext();
    if (!allocateSource() || !allocateDestination()) {
        return;
    }
    resampler_ready = 1;
    logOut("audio resample init succeed");
}

AudioResample::~AudioResample() {
    freeSamples(src_data);
    freeSamples(dst_data);
    if (swr_ctx != nullptr) {
        swr_close(swr_ctx);
        swr_free(&swr_ctx);
    }
}

AVSampleFormat AudioResample::switchAvFmt(snd_pcm_format_t fmt) {
    switch (fmt) {
        case SND_PCM_FORMAT_U8:
            return AV_SAMPLE_FMT_U8;
        case SND_PCM_FORMAT_S24_LE:
        case SND_PCM_FORMAT_S24_BE:
        case SND_PCM_FORMAT_S32_LE:
        case SND_PCM_FORMAT_S32_BE:
            return AV_SAMPLE_FMT_S32;
        case SND_PCM_FORMAT_FLOAT_LE:
        case SND_PCM_FORMAT_FLOAT_BE:
            return AV_SAMPLE_FMT_FLT;
        default:
            return AV_SAMPLE_FMT_S16;
    }
}

// A context that could not be set up refuses at the first chunk.
void AudioResample::configureContext() {
    swr_ctx = swr_alloc();
    if (swr_ctx == nullptr) {
        return;
    }
    av_opt_set_int(swr_ctx, "in_channel_layout", src_ch_layout, 0);
    av_opt_set_int(swr_ctx, "in_sample_rate", source.rate, 0);
    av_opt_set_sample_fmt(swr_ctx, "in_sample_fmt", src_sample_fmt, 0);
    av_opt_set_int(swr_ctx, "out_channel_layout", dst_ch_layout, 0);
    av_opt_set_int(swr_ctx, "out_sample_rate", destination.rate, 0);
    av_opt_set_sample_fmt(swr_ctx, "out_sample_fmt", dst_sample_fmt, 0);
    swr_init(swr_ctx);
}

bool AudioResample::allocateSource() {
    src_nb_channels = channelsOf(src_ch_layout);
    const int result = av_samples_alloc_array_and_samples(&src_data, &src_linesize, src_nb_channels,
                                                          src_nb_samples, src_sample_fmt, 0);
    if (swr_ctx == nullptr || result < 0) {
        logOut("Could not allocate source samples");
        return false;
    }
    return true;
}

bool AudioResample::allocateDestination() {
    dst_nb_samples = framesAfter(src_nb_samples, destination.rate, source.rate);
    max_dst_nb_samples = dst_nb_samples;
    dst_nb_channels = channelsOf(dst_ch_layout);
    const int result = av_samples_alloc_array_and_samples(&dst_data, &dst_linesize, dst_nb_channels,
                                                          dst_nb_samples, dst_sample_fmt, 0);
    if (result < 0) {
        logOut("Could not allocate destination samples");
        return false;
    }
    return true;
}

unsigned int AudioResample::sourceFrameBytes() const {
    const unsigned int channels = std::max<unsigned int>(source.channels, 1);
    return channels * static_cast<unsigned int>(av_get_bytes_per_sample(src_sample_fmt));
}

// The context never holds back as much as a whole chunk, because every call makes room for all.
unsigned int AudioResample::outputLimit() const {
    const int frames = framesAfter(2 * std::int64_t{src_nb_samples}, destination.rate, source.rate);
    const int bytes =
        av_samples_get_buffer_size(nullptr, dst_nb_channels, frames, dst_sample_fmt, 1);
    return static_cast<unsigned int>(std::max(bytes, 0));
}

void AudioResample::takeSource(const unsigned char* in, unsigned int inLen) {
    const unsigned int frameBytes = sourceFrameBytes();
    inLen = std::min(inLen, chunkFrames * frameBytes);
    if (source.channels <= 2) {
        std::memcpy(src_data[0], in, inLen);
        return;
    }
    const unsigned int takenBytes = frameBytes / source.channels * 2;
    for (unsigned int frame = 0; frame < inLen / frameBytes; ++frame) {
        std::memcpy(src_data[0] + std::size_t{frame} * takenBytes,
                    in + std::size_t{frame} * frameBytes, takenBytes);
    }
}

bool AudioResample::makeRoom() {
    dst_nb_samples = framesAfter(swr_get_delay(swr_ctx, source.rate) + src_nb_samples,
                                 destination.rate, source.rate);
    if (dst_nb_samples <= max_dst_nb_samples) {
        return true;
    }
    av_freep(&dst_data[0]);
    logOut("redefine malloc resample");
    max_dst_nb_samples = 0;
    if (av_samples_alloc(dst_data, &dst_linesize, dst_nb_channels, dst_nb_samples, dst_sample_fmt,
                         1) < 0) {
        return false;
    }
    max_dst_nb_samples = dst_nb_samples;
    return true;
}

bool AudioResample::resampleProcess(const unsigned char* in, unsigned int inLen, unsigned char* out,
                                    unsigned int* outLen) {
    if (resampler_ready != 1) {
        return false;
    }
    takeSource(in, inLen);
    if (!makeRoom()) {
        return false;
    }
    const auto** input = const_cast<const std::uint8_t**>(src_data);
    const int converted = swr_convert(swr_ctx, dst_data, dst_nb_samples, input, src_nb_samples);
    if (converted < 0) {
        logOut("Error while converting");
        return false;
    }
    const int size =
        av_samples_get_buffer_size(&dst_linesize, dst_nb_channels, converted, dst_sample_fmt, 1);
    if (size < 0) {
        logOut("Could not get sample buffer size");
        return false;
    }
    std::memcpy(out, dst_data[0], static_cast<std::size_t>(size));
    *outLen = static_cast<unsigned int>(size);
    return true;
}
