#include "control/audio/hwparams.h"

#include "control/task/logline.h"

#include <algorithm>

namespace {

constexpr unsigned int periodFrames_us = 1024000000;  // 1024 frames at 1 Hz

bool failed(const char* step) {
    logOut(" Error ", step);
    return false;
}

}  // namespace

HwParams::HwParams(snd_pcm_t* handle, const HwRequest& request)
    : handle_(handle), request_(request) {
    grant_.rate = request.rate;
    snd_pcm_hw_params_t* params = nullptr;
    if (snd_pcm_hw_params_malloc(&params) == 0) {
        params_.reset(params);
    }
}

bool HwParams::install() {
    if (!setSampleLayout() || !setRate() || !setTimes()) {
        return false;
    }
    if (snd_pcm_hw_params(handle_, params_.get()) < 0) {
        return failed("snd_pcm_hw_params(handle, params)");
    }
    return true;
}

bool HwParams::setSampleLayout() {
    if (params_ == nullptr || snd_pcm_hw_params_any(handle_, params_.get()) < 0) {
        return failed("snd_pcm_hw_params_any");
    }
    if (snd_pcm_hw_params_set_access(handle_, params_.get(), SND_PCM_ACCESS_RW_INTERLEAVED) < 0) {
        return failed("snd_pcm_hw_params_set_access");
    }
    if (snd_pcm_hw_params_set_format(handle_, params_.get(), request_.format) < 0) {
        return failed("snd_pcm_hw_params_set_format");
    }
    if (snd_pcm_hw_params_set_channels(handle_, params_.get(), request_.channels) < 0) {
        return failed("snd_pcm_hw_params_set_channels");
    }
    return true;
}

bool HwParams::setRate() {
    int direction = 0;
    unsigned int rate = request_.rate;
    if (snd_pcm_hw_params_set_rate_near(handle_, params_.get(), &rate, &direction) < 0 ||
        rate == 0) {
        return failed("snd_pcm_hw_params_set_rate_near");
    }
    if (rate != request_.rate) {
        logOut("The rate ", request_.rate, " Hz is not supported by your hardware.\n==> Using ",
               rate, " Hz instead.");
    }
    grant_.rate = rate;
    grant_.requestedPeriodTime = periodFrames_us / rate;
    grant_.periodTime = grant_.requestedPeriodTime;
    return true;
}

bool HwParams::setTimes() {
    unsigned int bufferTime = 0;
    int direction = 0;
    if (snd_pcm_hw_params_get_buffer_time_max(params_.get(), &bufferTime, &direction) < 0) {
        return failed("snd_pcm_hw_params_get_buffer_time_max");
    }
    logOut("max buffer_time : ", bufferTime);
    bufferTime = std::min(bufferTime, request_.bufferPeriods * grant_.requestedPeriodTime);
    direction = 0;
    if (snd_pcm_hw_params_set_buffer_time_near(handle_, params_.get(), &bufferTime, &direction) <
        0) {
        return failed("snd_pcm_hw_params_set_buffer_time_near");
    }
    logOut("set buffer_time : ", bufferTime);
    direction = 0;
    if (snd_pcm_hw_params_set_period_time_near(handle_, params_.get(), &grant_.periodTime,
                                               &direction) < 0) {
        return failed("snd_pcm_hw_params_set_period_time_near");
    }
    return true;
}

bool HwParams::readSizes() {
    int direction = 0;
    snd_pcm_hw_params_get_period_size(params_.get(), &grant_.periodSize, &direction);
    snd_pcm_hw_params_get_buffer_size(params_.get(), &grant_.bufferSize);
    if (grant_.periodSize == grant_.bufferSize) {
        logOut(" Can't use period equal to buffer size ", grant_.periodSize,
               " == ", grant_.bufferSize);
        return false;
    }
    const int width = snd_pcm_format_physical_width(request_.format);
    grant_.bitsPerSample = static_cast<unsigned long>(std::max(width, 0));
    grant_.bitsPerFrame = grant_.bitsPerSample * request_.channels;
    grant_.periodBytes = grant_.periodSize * grant_.bitsPerFrame / 8;
    grant_.bufferBytes = grant_.bufferSize * grant_.bitsPerFrame / 8;
    logOut("bits_per_sample : ", grant_.bitsPerSample);
    logOut("bits_per_frame : ", grant_.bitsPerFrame);
    logOut("period_bytes : ", grant_.periodBytes);
    logOut("buffer_bytes : ", grant_.bufferBytes);
    return true;
}
