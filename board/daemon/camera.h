// The board's camera: a V4L2 capture node with the modes and controls of a scenario.
#pragma once

#include "board/daemon/board.h"
#include "board/daemon/scenario.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace board {

struct CameraFigures {
    std::uint64_t delivered = 0;  // frames that a client could dequeue
    std::uint64_t lost = 0;       // frames for which no buffer was queued
    std::uint32_t fourcc = 0, width = 0, height = 0;
    Fraction interval;
    bool streaming = false;
};

class Camera {
  public:
    // The description is copied. Nothing is in place until plug().
    Camera(Board& board, const CameraDescription& description);
    ~Camera();

    // Puts /dev/videoN in place, N the lowest number from `firstNumber` that is not held by a
    // descriptor of an earlier plugging. Returns the node's path.
    std::string plug(unsigned firstNumber = 0);
    // Takes the node away: every call on an open descriptor answers ENODEV from now on.
    void unplug();
    bool plugged() const;
    std::string nodePath() const;                                   // empty while unplugged
    void replaceDescription(const CameraDescription& description);  // takes effect at the next plug

    void stall(bool stalled);  // a stalled camera takes buffers and delivers nothing
    // Picture sources for tests ("field:red"); takes effect at the next stream-on.
    void setRecording(const std::string& recording);
    // The next `count` frames carry this payload length instead of their own (short frames).
    void setPayload(std::uint32_t bytes, unsigned count);
    CameraFigures figures() const;
    unsigned openHandles() const;  // descriptors that clients hold, unplugged ones included

  private:
    class Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace board
