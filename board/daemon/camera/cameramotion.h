// Where a camera looks: pan, tilt and zoom on their way, in board time. Loop thread only.
#pragma once

#include "board/daemon/scenario.h"
#include "board/media/pictureview.h"

#include <cstdint>

namespace board {

class CameraMotion {
  public:
    explicit CameraMotion(const CameraDescription& camera);

    // The driver sets a control; those that do not move the camera change nothing.
    void set(std::uint32_t id, std::int64_t value, std::int64_t now_ns);
    void stop(std::int64_t now_ns);
    bool has(std::uint32_t id) const;  // one of the three absolute controls, with a range
    // What the camera reports for one of the three absolute controls: on its step.
    std::int64_t position(std::uint32_t id, std::int64_t now_ns) const;
    PictureView view(std::int64_t now_ns) const;

  private:
    struct Axis {
        std::uint32_t absolute = 0, relative = 0, speed = 0, reset = 0;  // controls
        bool present = false, moved = false;
        std::int64_t minimum = 0, maximum = 0, step = 1, initial = 0, middle = 0;
        double perSecond = 1;  // for each unit of speed
        double fastest = -1;   // -1: at once
        double from = 0, to = 0, velocity = 0;
        std::int64_t start_ns = 0;

        double at(std::int64_t now_ns) const;
        double fraction(std::int64_t now_ns) const;  // of the way from minimum to maximum
        void go(double target, double speed, std::int64_t now_ns);
    };
    void describe(Axis& axis, const CameraDescription& camera, double perSecond) const;

    PtzDescription ptz_;
    Axis pan_, tilt_, zoom_;
};

}  // namespace board
