#include "board/daemon/camera/framepump.h"

#include <linux/videodev2.h>

#include <algorithm>
#include <utility>

namespace board {

namespace {

// Pictures between camera and screen at the most, where nothing is stuck.
constexpr std::uint32_t mostUnderWay = 64;

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

void FramePump::prepare(const FrameLoopWish& wish) {
    if (canMakeFrames(wish.fourcc))
        state_->worker->find(wish);
}

void FramePump::start(const FrameLoopWish& wish, Fraction interval) {
    stop();
    running_ = true;
    wish_ = wish;
    interval_ = interval;
    sequence_ = 0;
    first_ = state_->frameNumber;
    state_->numbers.clear();
    frames_ = state_->worker->find(wish);
    if (frames_ != nullptr)
        begin();
}

void FramePump::stop() {
    pause();
    running_ = false;
    frames_.reset();
    nextFrames_.reset();
    changeWish_ = {};
}

bool FramePump::changeSize(std::uint32_t width, std::uint32_t height) {
    if (!running_)
        return false;
    changeWish_ = wish_;
    changeWish_.width = width;
    changeWish_.height = height;
    nextFrames_ = state_->worker->find(changeWish_);
    return true;
}

void FramePump::pause() {
    if (timer_ != 0)
        state_->board.loop().cancel(timer_);
    timer_ = 0;
}

void FramePump::setStalled(bool stalled) {
    if (!running_ || frames_ == nullptr)
        return;
    pause();
    if (!stalled)
        begin();
}

void FramePump::setAsleep(bool asleep) {
    if (asleep == asleep_)
        return;
    asleep_ = asleep;
    pause();
    if (!asleep && running_ && frames_ != nullptr)
        begin();
}

void FramePump::framesReady(const FrameLoopWish& wish,
                            const std::shared_ptr<const FrameLoop>& frames,
                            const std::string& error) {
    const bool asked = running_ && frames_ == nullptr && wish == wish_;
    const bool change = running_ && frames_ != nullptr && wish == changeWish_;
    if ((asked || change) && frames == nullptr)
        state_->board.log("camera: no pictures: " + error);
    if (change)
        nextFrames_ = frames;
    if (!asked)
        return;
    if (frames == nullptr) {
        queue_.fail();
        changed_();
        return;
    }
    frames_ = frames;
    begin();
}

void FramePump::begin() {
    if (state_->stalled || asleep_)
        return;
    start_ns_ = state_->board.clock().now_ns();
    next_ = 1;
    arm();
}

void FramePump::arm() {
    const std::int64_t due = start_ns_ + duration_ns(next_, interval_);
    timer_ = state_->board.loop().at(state_->board.clock().toMachine(due), [this] { frameDue(); });
}

// Another loop's marks begin at 0 again. Those of this one must be far from it, so that pictures
// that are still under way are not taken for the new ones.
void FramePump::changeLoop() {
    const std::optional<LoopPlace> place = frames_->place(state_->frameNumber - first_);
    if (nextFrames_ == nullptr || (place && place->mark < mostUnderWay))
        return;
    frames_ = std::move(nextFrames_);
    wish_ = changeWish_;
    changeWish_ = {};
    first_ = state_->frameNumber;
    state_->numbers.changeLoop(first_);
}

void FramePump::frameDue() {
    ++next_;
    arm();
    changeLoop();
    // An encoder that is late leaves out an interval, not a picture.
    if (!frames_->has(state_->frameNumber - first_))
        return;
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
    const auto time_100us = std::uint32_t(buffer.time_ns / 100000);
    const std::uint32_t index = frame - first_;
    const Stamp stamp{frame, time_100us};
    const std::size_t length = frames_->compose(index, stamp, buffer.data(), buffer.length());
    look(buffer, stamp);
    if (const std::optional<LoopPlace> place = frames_->place(index))
        state_->numbers.note(place->mark, {frame + std::uint32_t(place->ahead), time_100us});
    buffer.bytesUsed = std::uint32_t(std::min<std::size_t>(length, buffer.length()));
    if (const std::optional<PayloadFault> fault = state_->faults.next(wish_.fourcc))
        spoil(buffer, *fault);
    if (state_->payloadFrames != 0) {
        --state_->payloadFrames;
        buffer.bytesUsed = std::min(state_->payloadBytes, buffer.length());
    }
    state_->payloads.add(wish_.fourcc, buffer.data(), buffer.bytesUsed);
    if (state_->watcher != nullptr)
        tell(buffer, frame);
}

void FramePump::tell(const CameraBuffer& buffer, std::uint32_t frame) {
    wire::ViewPayload about{};
    about.fourcc = wish_.fourcc;
    about.width = wish_.width;
    about.height = wish_.height;
    about.bytes = buffer.bytesUsed;
    about.frame = frame;
    about.flagged = buffer.damaged ? 1 : 0;
    about.time_ns = buffer.time_ns;
    state_->watcher->payloadDelivered(about, buffer.data());
}

// The mark is the board's own: it stays where it is, wherever the camera looks.
void FramePump::look(CameraBuffer& buffer, const Stamp& stamp) {
    const std::size_t bytes = std::size_t(wish_.width) * wish_.height * 2;
    if (wish_.fourcc != V4L2_PIX_FMT_YUYV || !view_ || buffer.length() < bytes)
        return;
    const PictureView view = view_();
    if (view.whole())
        return;
    showView(view, buffer.data(), wish_.width, wish_.height, scratch_);
    if (stampRows * stampCell(wish_.width) <= wish_.height)
        drawStampYuyv(buffer.data(), wish_.width * 2, wish_.width, stamp);
}

void FramePump::spoil(CameraBuffer& buffer, PayloadFault fault) {
    std::vector<std::uint8_t> payload(buffer.data(), buffer.data() + buffer.bytesUsed);
    damage(fault, wish_.fourcc, buffer.length(), state_->faults.random(), payload);
    buffer.bytesUsed = std::uint32_t(std::min<std::size_t>(payload.size(), buffer.length()));
    std::copy_n(payload.begin(), buffer.bytesUsed, buffer.data());
    buffer.damaged = fault == PayloadFault::errorFlag;
}

}  // namespace board
