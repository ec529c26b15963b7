// Fills a camera's queued buffers with frames at the exact interval of its mode. Loop thread only.
#pragma once

#include "board/daemon/board.h"
#include "board/daemon/camera/bufferqueue.h"
#include "board/daemon/camera/pictureworker.h"
#include "board/daemon/scenario.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

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
    bool stalled = false;
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

    // Has the pictures made ahead of start().
    void prepare(const PictureSource& source);
    // Frames come one interval after the pictures are ready, and at every interval from then on.
    void start(const PictureSource& source, Fraction interval);
    void stop();
    void setStalled(bool stalled);
    void picturesReady(const PictureSource& source,
                       const std::shared_ptr<const PictureLoop>& pictures,
                       const std::string& error);

  private:
    void begin();
    void arm();
    void frameDue();
    void fill(CameraBuffer& buffer, std::uint32_t frame);

    std::shared_ptr<CameraState> state_;
    BufferQueue& queue_;
    std::function<void()> changed_;
    PictureSource source_;
    Fraction interval_;
    std::shared_ptr<const PictureLoop> pictures_;
    bool running_ = false;
    std::int64_t start_ns_ = 0;  // board time; frame n is due n intervals later
    std::uint64_t next_ = 0;
    std::uint32_t sequence_ = 0;
    EventLoop::TimerId timer_ = 0;
};

}  // namespace board
