// The board's camera: a V4L2 capture node with the modes and controls of a scenario.
#pragma once

#include "board/daemon/board.h"
#include "board/daemon/camera/toldlist.h"
#include "board/daemon/scenario.h"
#include "board/daemon/watcher.h"
#include "board/media/payloaddamage.h"
#include "board/media/stamp.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace board {

struct CameraFigures {
    std::uint64_t delivered = 0;  // frames that a client could dequeue
    std::uint64_t lost = 0;       // frames for which no buffer was queued
    std::uint32_t fourcc = 0, width = 0, height = 0;
    Fraction interval;
    bool streaming = false;
    bool marked = true;  // the running stream's pictures carry a mark
};

// Where the camera looks and how it is.
struct PtzState {
    std::int64_t pan = 0, tilt = 0, zoom = 0;  // in units of the absolute controls
    std::int64_t panSpeed = 0, tiltSpeed = 0, zoomSpeed = 0;
    bool asleep = false, tracking = false;
    bool moves = false;  // false: whatever it is told, the picture stands still
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
    const std::string& name() const;                                // the description's
    void replaceDescription(const CameraDescription& description);  // takes effect at the next plug

    void stall(bool stalled);  // a stalled camera takes buffers and delivers nothing
    // Picture sources for tests ("field:red"); takes effect at the next stream-on.
    void setRecording(const std::string& recording);
    // The next `count` frames carry this payload length instead of their own (short frames).
    void setPayload(std::uint32_t bytes, unsigned count);
    // The next `count` frames are damaged this way. An error line when the chosen format's cannot
    // be.
    std::string planFault(PayloadFault fault, unsigned count, std::uint32_t seed);
    // From now on `perMille` of a thousand frames are damaged, each in some way; 0 ends it.
    void mixFaults(unsigned perMille, std::uint32_t seed);
    // The pictures in the running H.264 stream get another size while the format stays. Empty, or
    // an error line.
    std::string changeEncodedSize(std::uint32_t width, std::uint32_t height);
    // A copy of all payloads from now on, one behind the other. Empty, or an error line.
    std::string startPayloads(const std::string& path);
    std::string stopPayloads();
    // Told of every payload; null: nobody. Must outlive this or be taken back.
    void setWatcher(Watcher* watcher);
    // A mark as seen on the screen with the number and time of its delivery; nothing when the
    // camera did not deliver it.
    std::optional<Stamp> delivered(const Stamp& stamp) const;
    PtzState ptz() const;  // all zero while unplugged
    // Everything it was told since the board began; see ToldList::since.
    const ToldList& told() const;
    CameraFigures figures() const;
    unsigned openHandles() const;  // descriptors that clients hold, unplugged ones included

  private:
    class Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace board
