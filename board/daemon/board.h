// What every device of the board may use: the loop, board time, nodes, slots, the scenario's words.
#pragma once

#include "board/daemon/device.h"
#include "board/daemon/eventloop.h"
#include "board/protocol/sharedpage.h"

#include <cstdint>
#include <functional>
#include <string>

namespace board {

// Board time runs `speed` times as fast as the machine's (1 to 10), from the start of the run.
class BoardClock {
  public:
    BoardClock(std::uint32_t speed, std::int64_t origin_ns) : speed_(speed), origin_(origin_ns) {}
    std::int64_t now_ns() const { return toBoard(EventLoop::now_ns()); }
    std::int64_t toBoard(std::int64_t machine_ns) const {
        return origin_ + (machine_ns - origin_) * std::int64_t(speed_);
    }
    std::int64_t toMachine(std::int64_t board_ns) const {
        return origin_ + (board_ns - origin_) / std::int64_t(speed_);
    }

  private:
    std::uint32_t speed_;
    std::int64_t origin_;
};

// Implemented by the daemon's core; devices hold a reference.
class Board {
  public:
    virtual ~Board() = default;
    virtual EventLoop& loop() = 0;
    virtual const BoardClock& clock() const = 0;
    // What the board's clients read from CLOCK_REALTIME, ns.
    virtual std::int64_t realtime_ns() const { return clock().now_ns(); }

    // Puts a node into place (a new inode each time) or takes it away. `device` stays owned by the
    // caller and must outlive its open handles. Also writes /sys/dev/char/MAJOR:MINOR/uevent.
    virtual void addNode(const std::string& path, unsigned major, unsigned minor,
                         Device& device) = 0;
    virtual void removeNode(const std::string& path) = 0;

    // State bits of an open handle, seen by its client without a round trip.
    virtual void setHandleState(std::uint32_t slot, std::uint32_t bits) = 0;

    // One line in the daemon's own log.
    virtual void log(const std::string& line) = 0;
};

}  // namespace board
