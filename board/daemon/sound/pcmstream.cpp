#include "board/daemon/sound/pcmstream.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <system_error>
#include <utility>

namespace board {

namespace {

// What errno says about a state in which a call is not possible.
int stateError(int state) {
    switch (state) {
        case SNDRV_PCM_STATE_XRUN:
            return -EPIPE;
        case SNDRV_PCM_STATE_SUSPENDED:
            return -ESTRPIPE;
        case SNDRV_PCM_STATE_DISCONNECTED:
            return -ENODEV;
        default:
            return -EBADFD;
    }
}

}  // namespace

PcmStream::PcmStream(const Parts& parts, bool playback)
    : parts_(parts), playback_(playback), signal_(playback) {}

PcmStream::~PcmStream() {
    if (running())
        stop(SNDRV_PCM_STATE_SETUP, "close");
}

// Frames that can be read, or written.
PcmStream::Frames PcmStream::available() const {
    if (boundary_ == 0)
        return 0;
    if (!playback_)
        return hardware_ >= application_ ? hardware_ - application_
                                         : hardware_ + boundary_ - application_;
    // More than a whole ring is free when the card has run past the last written frame.
    Frames free = hardware_ + format_.bufferFrames;
    free = free >= application_ ? free - application_ : free + boundary_ - application_;
    return free >= boundary_ ? free - boundary_ : free;
}

std::uint64_t PcmStream::queued() const {
    const std::int64_t frames = playback_ ? written() : std::int64_t(available());
    return std::uint64_t(std::clamp<std::int64_t>(frames, 0, format_.bufferFrames));
}

// 0 when the state allows moving data.
int PcmStream::accessible() const {
    if (state_ == SNDRV_PCM_STATE_PREPARED || state_ == SNDRV_PCM_STATE_RUNNING ||
        state_ == SNDRV_PCM_STATE_PAUSED)
        return 0;
    if (state_ == SNDRV_PCM_STATE_DRAINING)
        return playback_ ? -EBADFD : 0;
    return stateError(state_);
}

// 0 when the card is there and awake.
int PcmStream::usable() const {
    if (state_ == SNDRV_PCM_STATE_DISCONNECTED)
        return -ENODEV;
    return asleep ? -ESTRPIPE : 0;
}

int PcmStream::setHardware(snd_pcm_hw_params& params) {
    if (const int error = usable())
        return error;
    if (state_ != SNDRV_PCM_STATE_OPEN && state_ != SNDRV_PCM_STATE_SETUP &&
        state_ != SNDRV_PCM_STATE_PREPARED)
        return -EBADFD;
    if (mappings_ > 0)
        return -EBADFD;
    SoundFormat chosen;
    if (const int error = parts_.space.choose(params, chosen))
        return error;
    const std::size_t bytes = std::size_t(chosen.bufferFrames) * chosen.frameBytes();
    try {
        if (ring_ == nullptr || ring_->bytes() != bytes)
            ring_ = std::make_unique<SoundRing>(bytes);
        else
            std::fill_n(ring_->data(), bytes, std::uint8_t(0));
    } catch (const std::system_error&) {
        return -ENOMEM;
    }
    format_ = chosen;
    boundary_ = chosen.bufferFrames;
    while (boundary_ * 2 <= Frames(LONG_MAX) - chosen.bufferFrames)
        boundary_ *= 2;
    availMin_ = chosen.periodFrames;
    startThreshold_ = 1;
    stopThreshold_ = chosen.bufferFrames;
    timestampMode_ = SNDRV_PCM_TSTAMP_NONE;
    hardware_ = application_ = 0;
    parts_.end.prepare(format_);
    become(SNDRV_PCM_STATE_SETUP);
    return 0;
}

int PcmStream::freeHardware() {
    if (state_ != SNDRV_PCM_STATE_SETUP && state_ != SNDRV_PCM_STATE_PREPARED)
        return stateError(state_) == -ENODEV ? -ENODEV : -EBADFD;
    if (mappings_ > 0)
        return -EBADFD;
    ring_.reset();
    become(SNDRV_PCM_STATE_OPEN);
    return 0;
}

int PcmStream::setSoftware(snd_pcm_sw_params& params) {
    if (state_ == SNDRV_PCM_STATE_OPEN)
        return -EBADFD;
    if (params.tstamp_mode < 0 || params.tstamp_mode > SNDRV_PCM_TSTAMP_LAST ||
        params.avail_min == 0 ||
        (params.silence_size > 0 && params.silence_size < boundary_ &&
         (params.silence_threshold > format_.bufferFrames ||
          params.silence_size > params.silence_threshold)))
        return -EINVAL;
    timestampMode_ = params.tstamp_mode;
    if (params.proto >= SNDRV_PROTOCOL_VERSION(2, 0, 12))
        timestampType_ = int(params.tstamp_type);
    availMin_ = params.avail_min;
    startThreshold_ = params.start_threshold;
    stopThreshold_ = params.stop_threshold;
    params.boundary = boundary_;
    update();
    refresh();
    return 0;
}

int PcmStream::setTimestamps(std::int32_t type) {
    if (type < 0 || type > SNDRV_PCM_TSTAMP_TYPE_LAST)
        return -EINVAL;
    timestampType_ = type;
    return 0;
}

int PcmStream::prepare() {
    if (const int error = usable())
        return error;
    if (state_ == SNDRV_PCM_STATE_OPEN)
        return -EBADFD;
    if (state_ == SNDRV_PCM_STATE_RUNNING || state_ == SNDRV_PCM_STATE_DRAINING)
        return -EBUSY;
    hardware_ = application_ = 0;
    done_ = baseFrames_ = 0;
    become(SNDRV_PCM_STATE_PREPARED);
    return 0;
}

int PcmStream::reset() {
    update();
    if (const int error = accessible())
        return error;
    if (playback_)
        application_ = hardware_;
    else
        hardware_ = application_;
    refresh();
    return 0;
}

void PcmStream::run() {
    base_ns_ = parts_.clock.now_ns();
    baseFrames_ = done_;
    become(SNDRV_PCM_STATE_RUNNING);
}

int PcmStream::start() {
    if (const int error = usable())
        return error;
    if (state_ != SNDRV_PCM_STATE_PREPARED)
        return stateError(state_);
    if (playback_ && written() <= 0)
        return -EPIPE;
    done_ = 0;
    nextInterrupt_ = format_.periodFrames;
    ++parts_.figures.starts;
    parts_.end.begin(format_);
    report("start");
    run();
    return 0;
}

void PcmStream::stop(int state, const char* why) {
    report(why);
    become(state);
}

int PcmStream::drop() {
    if (state_ == SNDRV_PCM_STATE_DISCONNECTED)
        return -ENODEV;
    if (state_ == SNDRV_PCM_STATE_OPEN)
        return -EBADFD;
    update();
    stop(SNDRV_PCM_STATE_SETUP, "drop");
    return 0;
}

int PcmStream::drain() {
    update();
    switch (state_) {
        case SNDRV_PCM_STATE_OPEN:
        case SNDRV_PCM_STATE_SUSPENDED:
        case SNDRV_PCM_STATE_DISCONNECTED:
            return stateError(state_);
        case SNDRV_PCM_STATE_PAUSED:
            run();
            break;
        case SNDRV_PCM_STATE_PREPARED:
            if (!playback_ || written() <= 0 || start() != 0)
                become(SNDRV_PCM_STATE_SETUP);
            break;
        case SNDRV_PCM_STATE_XRUN:
            become(SNDRV_PCM_STATE_SETUP);
            break;
        default:
            break;
    }
    if (state_ == SNDRV_PCM_STATE_RUNNING) {
        const bool left = playback_ ? written() > 0 : available() > 0;
        if (!playback_)
            report("stop");
        become(left ? SNDRV_PCM_STATE_DRAINING : SNDRV_PCM_STATE_SETUP);
    }
    return state_ == SNDRV_PCM_STATE_DRAINING && playback_ ? -EAGAIN : 0;
}

int PcmStream::pause(bool on) {
    if (!parts_.space.limits().pause)
        return -ENOSYS;
    update();
    if (state_ != (on ? SNDRV_PCM_STATE_RUNNING : SNDRV_PCM_STATE_PAUSED))
        return stateError(state_);
    if (on)
        become(SNDRV_PCM_STATE_PAUSED);
    else
        run();
    return 0;
}

int PcmStream::resume() {
    if (state_ == SNDRV_PCM_STATE_DISCONNECTED)
        return -ENODEV;
    if (!parts_.space.limits().resume)
        return -ENOSYS;
    if (state_ != SNDRV_PCM_STATE_SUSPENDED)
        return -EBADFD;
    if (asleep)
        return -EAGAIN;
    wake();
    return 0;
}

int PcmStream::overrun() {
    update();
    if (state_ == SNDRV_PCM_STATE_XRUN)
        return 0;
    if (state_ != SNDRV_PCM_STATE_RUNNING)
        return stateError(state_);
    breakOff();
    return 0;
}

int PcmStream::synchronise() {
    update();
    switch (state_) {
        case SNDRV_PCM_STATE_DRAINING:
            return playback_ ? 0 : -EBADFD;
        case SNDRV_PCM_STATE_RUNNING:
        case SNDRV_PCM_STATE_PREPARED:
        case SNDRV_PCM_STATE_PAUSED:
            return 0;
        default:
            return stateError(state_);
    }
}

int PcmStream::delay(snd_pcm_sframes_t& frames) {
    if (const int error = synchronise())
        return error;
    frames = playback_ ? written() : std::int64_t(available());
    return 0;
}

std::int64_t PcmStream::shift(snd_pcm_uframes_t frames, std::int64_t possible, int sign) {
    if (frames == 0 || possible <= 0)
        return 0;
    const Frames most = std::min<Frames>(frames, Frames(possible));
    application_ = (application_ + (sign > 0 ? most : boundary_ - most)) % boundary_;
    refresh();
    return std::int64_t(most);
}

std::int64_t PcmStream::rewind(snd_pcm_uframes_t frames) {
    if (const int error = synchronise())
        return error;
    return shift(
        frames,
        playback_ ? written() : std::int64_t(format_.bufferFrames) - std::int64_t(available()), -1);
}

std::int64_t PcmStream::forward(snd_pcm_uframes_t frames) {
    if (const int error = synchronise())
        return error;
    return shift(frames, std::int64_t(available()), 1);
}

int PcmStream::channel(snd_pcm_channel_info& info) const {
    if (state_ == SNDRV_PCM_STATE_OPEN || ring_ == nullptr)
        return stateError(state_) == -ENODEV ? -ENODEV : -EBADFD;
    if (info.channel >= format_.channels)
        return -EINVAL;
    info.offset = 0;
    info.first = info.channel * format_.sampleBits;
    info.step = format_.channels * format_.sampleBits;
    return 0;
}

void PcmStream::suspend() {
    update();
    if (state_ == SNDRV_PCM_STATE_OPEN || state_ == SNDRV_PCM_STATE_SETUP ||
        state_ == SNDRV_PCM_STATE_SUSPENDED || state_ == SNDRV_PCM_STATE_DISCONNECTED)
        return;
    suspendedState_ = state_;
    stop(SNDRV_PCM_STATE_SUSPENDED, "suspend");
}

void PcmStream::wake() {
    if (state_ != SNDRV_PCM_STATE_SUSPENDED)
        return;
    base_ns_ = parts_.clock.now_ns();
    baseFrames_ = done_;
    become(suspendedState_);
}

void PcmStream::breakOff() {
    update();
    if (!running())
        return;
    ++parts_.figures.xruns;
    stop(SNDRV_PCM_STATE_XRUN, "xrun");
}

void PcmStream::disconnect() {
    if (state_ == SNDRV_PCM_STATE_DISCONNECTED)
        return;
    update();
    stop(SNDRV_PCM_STATE_DISCONNECTED, "unplug");
    signal_.notify(true);
}

void PcmStream::clockChanging() {
    update();
}

void PcmStream::clockChanged() {
    if (!running())
        return;
    // The fraction of a frame that had passed is lost: a change of clock is no place for exactness.
    base_ns_ = parts_.clock.now_ns();
    baseFrames_ = done_;
    arm();
}

}  // namespace board
