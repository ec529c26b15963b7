// Fills a camera's queued buffers with frames at the exact interval of its mode. Loop thread only.
#pragma once

#include "board/daemon/board.h"
#include "board/daemon/camera/bufferqueue.h"
#include "board/daemon/camera/loopnumbers.h"
#include "board/daemon/camera/payloadfaults.h"
#include "board/daemon/camera/payloadfile.h"
#include "board/daemon/camera/pictureworker.h"
#include "board/daemon/camera/toldlist.h"
#include "board/daemon/scenario.h"
#include "board/daemon/watcher.h"
#include "board/media/pictureview.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace board {

// What outlives a single plugging of a camera.
struct CameraState {
    explicit CameraState(Board& owner) : board(owner) {}

    Board& board;
    std::unique_ptr<PictureWorker> worker;  // null once the Camera is gone
    std::uint32_t frameNumber = 0;          // of the next frame; never starts again
    std::uint64_t delivered = 0, lost = 0;
    std::uint32_t payloadBytes = 0;
    unsigned payloadFrames = 0;  // frames that still get payloadBytes
    PayloadFaults faults;
    PayloadFile payloads;
    Watcher* watcher = nullptr;
    LoopNumbers numbers;
    bool stalled = false;
    ToldList told;
    std::string recording;  // set by order; empty: the description's, else the default
};

class FramePump {
  public:
    // `changed` is called after each frame that went into a buffer, and when the stream failed.
    FramePump(std::shared_ptr<CameraState> state, BufferQueue& queue,
              std::function<void()> changed);
    ~FramePump();
    FramePump(const FramePump&) = delete;
    FramePump& operator=(const FramePump&) = delete;

    // Asked for each frame: what part of an uncompressed (YUYV) recording is shown.
    void setView(std::function<PictureView()> view) { view_ = std::move(view); }
    // Has the frames made ahead of start().
    void prepare(const FrameLoopWish& wish);
    // Frames come one interval after they are made, and at every interval from then on.
    void start(const FrameLoopWish& wish, Fraction interval);
    void stop();
    void setStalled(bool stalled);
    void setAsleep(bool asleep);  // no frames, whatever is ordered
    // The encoder of the running stream changes its pictures' size, whatever the format says. False
    // when nothing streams.
    bool changeSize(std::uint32_t width, std::uint32_t height);
    void framesReady(const FrameLoopWish& wish, const std::shared_ptr<const FrameLoop>& frames,
                     const std::string& error);
    bool marked() const { return frames_ == nullptr || frames_->marked(); }

  private:
    void pause();
    void begin();
    void arm();
    void frameDue();
    void changeLoop();
    void fill(CameraBuffer& buffer, std::uint32_t frame);
    void look(CameraBuffer& buffer, const Stamp& stamp);
    void tell(const CameraBuffer& buffer, std::uint32_t frame);
    void spoil(CameraBuffer& buffer, PayloadFault fault);

    std::shared_ptr<CameraState> state_;
    BufferQueue& queue_;
    std::function<void()> changed_;
    std::function<PictureView()> view_;
    std::vector<std::uint8_t> scratch_;
    FrameLoopWish wish_;
    Fraction interval_;
    std::shared_ptr<const FrameLoop> frames_;
    std::shared_ptr<const FrameLoop> nextFrames_;  // of another size, to go on with
    FrameLoopWish changeWish_;
    std::uint32_t first_ = 0;  // number of the loop's first frame
    bool running_ = false;
    bool asleep_ = false;
    std::int64_t start_ns_ = 0;  // board time; frame n is due n intervals later
    std::uint64_t next_ = 0;
    std::uint32_t sequence_ = 0;
    EventLoop::TimerId timer_ = 0;
};

}  // namespace board
