#include "board/daemon/camera/framepump.h"

#include <algorithm>
#include <utility>

namespace board {

namespace {

// count * interval without rounding errors that add up. count stays below 2^32 for years.
std::int64_t duration_ns(std::uint64_t count, Fraction interval) {
    const std::uint64_t parts = count * interval.numerator;
    return std::int64_t(parts / interval.denominator * 1000000000 +
                        parts % interval.denominator * 1000000000 / interval.denominator);
}

}  // namespace

FramePump::FramePump(std::shared_ptr<CameraState> state, BufferQueue& queue,
                     std::function<void()> changed)
    : state_(std::move(state)), queue_(queue), changed_(std::move(changed)) {}

FramePump::~FramePump() {
    stop();
}

void FramePump::prepare(const PictureSource& source) {
    if (canLoadPictures(source.fourcc))
        state_->worker->find(source);
}

void FramePump::start(const PictureSource& source, Fraction interval) {
    stop();
    running_ = true;
    source_ = source;
    interval_ = interval;
    sequence_ = 0;
    pictures_ = state_->worker->find(source);
    if (pictures_ != nullptr)
        begin();
}

void FramePump::stop() {
    if (timer_ != 0)
        state_->board.loop().cancel(timer_);
    timer_ = 0;
    running_ = false;
    pictures_.reset();
}

void FramePump::setStalled(bool stalled) {
    if (!running_ || pictures_ == nullptr)
        return;
    if (timer_ != 0)
        state_->board.loop().cancel(timer_);
    timer_ = 0;
    if (!stalled)
        begin();
}

void FramePump::picturesReady(const PictureSource& source,
                              const std::shared_ptr<const PictureLoop>& pictures,
                              const std::string& error) {
    if (!running_ || pictures_ != nullptr || source != source_)
        return;
    if (pictures == nullptr) {
        state_->board.log("camera: no pictures: " + error);
        queue_.fail();
        changed_();
        return;
    }
    pictures_ = pictures;
    begin();
}

void FramePump::begin() {
    if (state_->stalled)
        return;
    start_ns_ = state_->board.clock().now_ns();
    next_ = 1;
    arm();
}

void FramePump::arm() {
    const std::int64_t due = start_ns_ + duration_ns(next_, interval_);
    timer_ = state_->board.loop().at(state_->board.clock().toMachine(due), [this] { frameDue(); });
}

void FramePump::frameDue() {
    ++next_;
    arm();
    // A frame without a buffer is gone, as on the bus: its numbers are not used again.
    const std::uint32_t frame = state_->frameNumber++;
    const std::uint32_t sequence = sequence_++;
    CameraBuffer* buffer = queue_.next();
    if (buffer == nullptr) {
        ++state_->lost;
        return;
    }
    buffer->sequence = sequence;
    fill(*buffer, frame);
    queue_.complete();
    ++state_->delivered;
    changed_();
}

void FramePump::fill(CameraBuffer& buffer, std::uint32_t frame) {
    buffer.time_ns = state_->board.clock().now_ns();
    composeFrame(*pictures_, frame, std::uint32_t(buffer.time_ns / 100000), buffer.data());
    buffer.bytesUsed = std::uint32_t(pictures_->pictureBytes);
    if (state_->payloadFrames == 0)
        return;
    --state_->payloadFrames;
    buffer.bytesUsed = std::min(state_->payloadBytes, buffer.length());
}

}  // namespace board
