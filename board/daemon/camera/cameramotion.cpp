#include "board/daemon/camera/cameramotion.h"

#include <linux/videodev2.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace board {

namespace {

constexpr double strongestZoom = 4;

const CameraControl* find(const CameraDescription& camera, std::uint32_t id) {
    for (const CameraControl& control : camera.controls)
        if (control.id == id)
            return &control;
    return nullptr;
}

}  // namespace

CameraMotion::CameraMotion(const CameraDescription& camera) : ptz_(camera.ptz) {
    pan_.absolute = V4L2_CID_PAN_ABSOLUTE;
    pan_.relative = V4L2_CID_PAN_RELATIVE;
    pan_.speed = V4L2_CID_PAN_SPEED;
    pan_.reset = V4L2_CID_PAN_RESET;
    tilt_.absolute = V4L2_CID_TILT_ABSOLUTE;
    tilt_.relative = V4L2_CID_TILT_RELATIVE;
    tilt_.speed = V4L2_CID_TILT_SPEED;
    tilt_.reset = V4L2_CID_TILT_RESET;
    zoom_.absolute = V4L2_CID_ZOOM_ABSOLUTE;
    zoom_.relative = V4L2_CID_ZOOM_RELATIVE;
    zoom_.speed = V4L2_CID_ZOOM_CONTINUOUS;
    describe(pan_, camera, ptz_.panPerSecond);
    describe(tilt_, camera, ptz_.tiltPerSecond);
    describe(zoom_, camera, ptz_.zoomPerSecond);
}

void CameraMotion::describe(Axis& axis, const CameraDescription& camera, double perSecond) const {
    const CameraControl* position = find(camera, axis.absolute);
    axis.present = position != nullptr && position->maximum > position->minimum;
    if (!axis.present)
        return;
    axis.minimum = position->minimum;
    axis.maximum = position->maximum;
    axis.step = std::max<std::int64_t>(position->step, 1);
    axis.initial = position->value;
    axis.middle = position->defaultValue;
    axis.from = axis.to = double(std::clamp(position->value, axis.minimum, axis.maximum));
    axis.perSecond = perSecond;
    if (!ptz_.moves)
        return;
    const CameraControl* speed = find(camera, axis.speed);
    axis.fastest = speed == nullptr ? double(axis.maximum - axis.minimum)
                                    : perSecond * double(std::max<std::int64_t>(speed->maximum, 1));
}

double CameraMotion::Axis::at(std::int64_t now_ns) const {
    const double way = velocity * double(now_ns - start_ns) / 1e9;
    if (velocity == 0)
        return from;
    if (way >= std::abs(to - from))
        return to;
    return to > from ? from + way : from - way;
}

double CameraMotion::Axis::fraction(std::int64_t now_ns) const {
    return present ? (at(now_ns) - double(minimum)) / double(maximum - minimum) : 0;
}

void CameraMotion::Axis::go(double target, double speed, std::int64_t now_ns) {
    from = at(now_ns);
    to = std::clamp(target, double(minimum), double(maximum));
    velocity = std::max(speed, 0.0);
    if (speed < 0)
        from = to;
    start_ns = now_ns;
    moved = true;
}

void CameraMotion::set(std::uint32_t id, std::int64_t value, std::int64_t now_ns) {
    for (Axis* axis : {&pan_, &tilt_, &zoom_}) {
        if (!axis->present || id == 0)
            continue;
        if (id == axis->absolute)
            axis->go(double(value), axis->fastest, now_ns);
        else if (id == axis->relative)
            axis->go(axis->at(now_ns) + double(value), axis->fastest, now_ns);
        else if (id == axis->reset)
            axis->go(double(axis->middle), axis->fastest, now_ns);
        else if (id == axis->speed)
            axis->go(double(value < 0 ? axis->minimum : axis->maximum),
                     std::abs(double(value)) * axis->perSecond, now_ns);
    }
}

void CameraMotion::stop(std::int64_t now_ns) {
    for (Axis* axis : {&pan_, &tilt_, &zoom_})
        if (axis->present && axis->moved)
            axis->go(axis->at(now_ns), 0, now_ns);
}

bool CameraMotion::has(std::uint32_t id) const {
    for (const Axis* axis : {&pan_, &tilt_, &zoom_})
        if (axis->present && id == axis->absolute)
            return true;
    return false;
}

std::int64_t CameraMotion::position(std::uint32_t id, std::int64_t now_ns) const {
    for (const Axis* axis : {&pan_, &tilt_, &zoom_}) {
        if (!axis->present || id != axis->absolute)
            continue;
        if (!axis->moved)
            return axis->initial;  // also one outside the range, as cameras report it
        const double steps = (axis->at(now_ns) - double(axis->minimum)) / double(axis->step);
        return std::min(axis->minimum + std::int64_t(std::lround(steps)) * axis->step,
                        axis->maximum);
    }
    return 0;
}

PictureView CameraMotion::view(std::int64_t now_ns) const {
    PictureView view;
    view.size = (ptz_.moves ? ptz_.viewPercent / 100.0 : 1.0) /
                (1 + (strongestZoom - 1) * zoom_.fraction(now_ns));
    const double right = pan_.present ? pan_.fraction(now_ns) : 0.5;
    const double up = tilt_.present ? tilt_.fraction(now_ns) : 0.5;
    view.left = right * (1 - view.size);
    view.top = (1 - up) * (1 - view.size);
    return view;
}

}  // namespace board
