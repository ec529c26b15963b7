// How the frames of a stream move: with the card's clock at one end, by the client at the other.
#include "board/daemon/sound/pcmstream.h"
#include "board/protocol/sharedpage.h"

#include <time.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>

namespace board {

namespace {

constexpr std::int64_t second_ns = 1000000000;
// The shortest periods share an interrupt: the board has other devices to serve.
constexpr std::int64_t leastBetweenInterrupts_ns = 200000;

timespec toTimespec(std::int64_t ns) {
    return {ns / second_ns, ns % second_ns};
}

}  // namespace

std::int64_t PcmStream::now_ns() const {
    return timestampType_ == SNDRV_PCM_TSTAMP_TYPE_GETTIMEOFDAY ? parts_.board.realtime_ns()
                                                                : parts_.board.clock().now_ns();
}

// Brings the card's pointer to where it is now.
void PcmStream::update() {
    if (!running())
        return;
    const std::int64_t due =
        baseFrames_ + framesIn(parts_.clock.now_ns() - base_ns_, format_.rate_Hz);
    if (due > done_)
        advance(due - done_);
    updated_ns_ = now_ns();
    checkBounds();
}

void PcmStream::catchUp() {
    update();
    refresh();
}

void PcmStream::advance(std::int64_t frames) {
    const std::int64_t period = format_.periodFrames;
    for (std::int64_t left = frames; left > 0;) {
        const std::int64_t step = std::min(left, period - done_ % period);
        // Of what a late board missed only the last ring can still be read.
        if (!playback_ && left - step >= format_.bufferFrames)
            passOver(step);
        else
            moveThroughRing(step);
        done_ += step;
        left -= step;
        if (done_ % period == 0)
            pastPeriod();
    }
    mostAvailable_ = std::max(mostAvailable_, available());
}

void PcmStream::passOver(std::int64_t frames) {
    parts_.end.skip(std::uint64_t(frames));
    parts_.figures.frames += std::uint64_t(frames);
    hardware_ = (hardware_ + Frames(frames)) % boundary_;
}

void PcmStream::pastPeriod() {
    ++parts_.figures.periods;
    const std::int64_t at = base_ns_ + lengthOf_ns(done_ - baseFrames_, format_.rate_Hz);
    parts_.end.event(
        "period", parts_.clock.stopped() ? parts_.board.clock().now_ns() : parts_.clock.toBoard(at),
        playback_ ? written() : 0);
}

void PcmStream::report(const char* what) {
    parts_.end.event(what, parts_.board.clock().now_ns(), playback_ ? written() : 0);
}

void PcmStream::moveThroughRing(std::int64_t frames) {
    // A card that has played everything goes on with nothing.
    const std::int64_t missing =
        playback_ ? frames - std::clamp<std::int64_t>(written(), 0, frames) : 0;
    parts_.figures.frames += std::uint64_t(frames - missing);
    if (state_ == SNDRV_PCM_STATE_RUNNING)
        parts_.figures.missing += std::uint64_t(missing);
    for (std::int64_t left = frames - missing; left > 0;) {
        const auto at = std::uint32_t(hardware_ % format_.bufferFrames);
        const auto count = std::uint32_t(std::min<std::int64_t>(left, format_.bufferFrames - at));
        parts_.end.move(ring_->data() + std::size_t(at) * format_.frameBytes(), count);
        hardware_ = (hardware_ + count) % boundary_;
        left -= count;
    }
    hardware_ = (hardware_ + Frames(missing)) % boundary_;
}

// Has the card run past what the client did?
void PcmStream::checkBounds() {
    const Frames now = available();
    if (state_ == SNDRV_PCM_STATE_DRAINING) {
        if (now >= format_.bufferFrames)
            stop(SNDRV_PCM_STATE_SETUP, "drained");
    } else if (now >= stopThreshold_) {
        ++parts_.figures.xruns;
        stop(SNDRV_PCM_STATE_XRUN, "xrun");
    }
}

void PcmStream::become(int state) {
    state_ = state;
    triggered_ns_ = now_ns();
    arm();
    refresh();
}

void PcmStream::arm() {
    if (timer_ != 0)
        parts_.board.loop().cancel(timer_);
    timer_ = 0;
    if (!running() || parts_.clock.stopped())
        return;
    std::int64_t next = nextInterrupt_;
    // The last frames end the stream on their own time.
    if (state_ == SNDRV_PCM_STATE_DRAINING)
        next = std::min(next, done_ + std::max<std::int64_t>(written(), 0));
    const std::int64_t at =
        base_ns_ + lengthOf_ns(std::max(next, done_) - baseFrames_, format_.rate_Hz);
    const std::int64_t machine_ns = parts_.board.clock().toMachine(parts_.clock.toBoard(at));
    timer_ =
        parts_.board.loop().at(std::max(machine_ns, lastInterrupt_ns_ + leastBetweenInterrupts_ns),
                               [this] { interrupt(); });
}

void PcmStream::interrupt() {
    timer_ = 0;
    lastInterrupt_ns_ = EventLoop::now_ns();
    update();
    if (done_ >= nextInterrupt_) {
        const std::int64_t period = format_.periodFrames;
        nextInterrupt_ = (done_ / period + 1) * period;
    }
    signal_.notify(pollReady());
    refresh();
    if (running())
        arm();
}

bool PcmStream::pollReady() const {
    switch (state_) {
        case SNDRV_PCM_STATE_RUNNING:
        case SNDRV_PCM_STATE_PREPARED:
        case SNDRV_PCM_STATE_PAUSED:
            return available() >= (wakeAt_ != 0 ? wakeAt_ : availMin_);
        case SNDRV_PCM_STATE_DRAINING:
            return !playback_;
        default:
            return true;
    }
}

// What the client's descriptor and its state word say.
void PcmStream::refresh() {
    signal_.setReady(pollReady());
    const bool readToTheEnd = state_ == SNDRV_PCM_STATE_DRAINING && !playback_ && available() == 0;
    const bool stopped = accessible() != 0 && state_ != SNDRV_PCM_STATE_DRAINING;
    std::uint32_t bits = 0;
    if (state_ == SNDRV_PCM_STATE_DISCONNECTED)
        bits = wire::handleGone;
    else if (stopped || readToTheEnd)
        bits = wire::handleFailed;
    if (state_ != SNDRV_PCM_STATE_OPEN)
        bits |= format_.frameBytes() << wire::handleFrameShift;
    if (bits == told_)
        return;
    told_ = bits;
    parts_.stateChanged(bits);
}

void PcmStream::fillStatus(snd_pcm_mmap_status& status) const {
    status.state = state_;
    status.hw_ptr = hardware_;
    status.tstamp =
        timestampMode_ == SNDRV_PCM_TSTAMP_ENABLE ? toTimespec(updated_ns_) : timespec{};
    status.suspended_state = suspendedState_;
    status.audio_tstamp =
        format_.rate_Hz != 0 ? toTimespec(lengthOf_ns(done_, format_.rate_Hz)) : timespec{};
}

void PcmStream::status(snd_pcm_status& status) {
    update();
    refresh();
    snd_pcm_mmap_status now{};
    fillStatus(now);
    status = {};
    status.state = now.state;
    status.suspended_state = suspendedState_;
    if (state_ == SNDRV_PCM_STATE_OPEN)
        return;
    status.trigger_tstamp = toTimespec(triggered_ns_);
    if (timestampMode_ == SNDRV_PCM_TSTAMP_ENABLE)
        status.tstamp = toTimespec(running() ? updated_ns_ : now_ns());
    status.audio_tstamp = now.audio_tstamp;
    status.driver_tstamp = status.tstamp;
    status.appl_ptr = application_;
    status.hw_ptr = hardware_;
    status.avail = available();
    status.avail_max = std::max(mostAvailable_, available());
    mostAvailable_ = 0;
    const bool counts = running() || state_ == SNDRV_PCM_STATE_DRAINING || accessible() == 0;
    if (counts)
        status.delay = playback_ ? written() : snd_pcm_sframes_t(available());
}

int PcmStream::pointers(snd_pcm_sync_ptr& pointers) {
    if (state_ == SNDRV_PCM_STATE_DISCONNECTED)
        return -ENODEV;
    if ((pointers.flags & SNDRV_PCM_SYNC_PTR_HWSYNC) != 0)
        if (const int error = synchronise())
            return error;
    snd_pcm_mmap_control& control = pointers.c.control;
    if ((pointers.flags & SNDRV_PCM_SYNC_PTR_APPL) != 0) {
        control.appl_ptr = application_;
    } else {
        if (control.appl_ptr >= boundary_ && control.appl_ptr != 0)
            return -EINVAL;
        application_ = control.appl_ptr;
    }
    if ((pointers.flags & SNDRV_PCM_SYNC_PTR_AVAIL_MIN) != 0)
        control.avail_min = availMin_;
    else
        availMin_ = control.avail_min;
    fillStatus(pointers.s.status);
    refresh();
    if (state_ == SNDRV_PCM_STATE_DRAINING)
        arm();
    return 0;
}

// One piece without a wrap, or -EAGAIN.
std::int64_t PcmStream::moveChunk(std::uint8_t* data, std::uint64_t frames) {
    const Frames room = available();
    // Whatever the client made of its pointer: never more than the ring.
    Frames count = std::min<Frames>({frames, room, format_.bufferFrames});
    if (count == 0)
        return -EAGAIN;
    const Frames at = application_ % format_.bufferFrames;
    count = std::min<Frames>(count, format_.bufferFrames - at);
    std::uint8_t* place = ring_->data() + at * format_.frameBytes();
    const std::size_t bytes = count * format_.frameBytes();
    if (playback_)
        std::memcpy(place, data, bytes);
    else
        std::memcpy(data, place, bytes);
    application_ = (application_ + count) % boundary_;
    return std::int64_t(count);
}

std::int64_t PcmStream::transfer(std::uint8_t* data, std::uint64_t frames, bool blocking) {
    if (state_ == SNDRV_PCM_STATE_OPEN)
        return -EBADFD;
    if (format_.access != SNDRV_PCM_ACCESS_RW_INTERLEAVED)
        return -EINVAL;
    update();
    if (frames == 0)
        return 0;
    if (const int error = accessible())
        return error;
    if (!playback_ && state_ == SNDRV_PCM_STATE_PREPARED && frames >= startThreshold_)
        if (const int error = start())
            return error;
    wakeAt_ = 0;
    std::int64_t moved = 0;
    std::int64_t error = 0;
    while (std::uint64_t(moved) < frames && error == 0) {
        const std::int64_t count = moveChunk(data + std::size_t(moved) * format_.frameBytes(),
                                             frames - std::uint64_t(moved));
        if (count < 0)
            error = count;
        else
            moved += count;
        if (playback_ && state_ == SNDRV_PCM_STATE_PREPARED &&
            written() >= std::int64_t(std::min<Frames>(startThreshold_, LONG_MAX)))
            error = start();
    }
    if (error == -EAGAIN && state_ == SNDRV_PCM_STATE_DRAINING) {
        become(SNDRV_PCM_STATE_SETUP);  // a drained recording has been read to its end
        error = 0;
    }
    if (error == -EAGAIN && blocking)
        wakeAt_ = std::clamp<Frames>(frames - Frames(moved), 1, std::max<Frames>(availMin_, 1));
    refresh();
    return moved > 0 ? moved : error;
}

}  // namespace board
