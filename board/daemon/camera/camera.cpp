#include "board/daemon/camera.h"

#include "board/daemon/camera/pluggedcamera.h"
#include "board/daemon/pluggings.h"

#include <linux/videodev2.h>

namespace board {

class Camera::Impl : public Pluggings<PluggedCamera> {
  public:
    Impl(Board& board, const CameraDescription& given)
        : state(std::make_shared<CameraState>(board)), description(given) {
        state->worker = std::make_unique<PictureWorker>(
            board.loop(),
            [this](const FrameLoopWish& wish, const std::shared_ptr<const FrameLoop>& frames,
                   const std::string& error) {
                if (current != nullptr)
                    current->pump().framesReady(wish, frames, error);
            });
    }

    ~Impl() {
        unplug();
        state->worker.reset();
    }

    std::shared_ptr<CameraState> state;
    CameraDescription description;
};

Camera::Camera(Board& board, const CameraDescription& description)
    : impl_(std::make_unique<Impl>(board, description)) {}

Camera::~Camera() = default;

std::string Camera::plug(unsigned firstNumber) {
    if (impl_->current != nullptr)
        return nodePath();
    const unsigned number = impl_->freeNumber(firstNumber);
    impl_->current = std::make_shared<PluggedCamera>(impl_->state, impl_->description, number);
    impl_->current->plug();
    return nodePath();
}

void Camera::unplug() {
    impl_->unplug();
    impl_->forgetClosed();
}

bool Camera::plugged() const {
    return impl_->current != nullptr;
}

std::string Camera::nodePath() const {
    return plugged() ? impl_->current->path() : "";
}

const std::string& Camera::name() const {
    return impl_->description.name;
}

void Camera::replaceDescription(const CameraDescription& description) {
    impl_->description = description;
}

void Camera::stall(bool stalled) {
    impl_->state->stalled = stalled;
    if (plugged())
        impl_->current->pump().setStalled(stalled);
}

void Camera::setRecording(const std::string& recording) {
    impl_->state->recording = recording;
}

void Camera::setPayload(std::uint32_t bytes, unsigned count) {
    impl_->state->payloadBytes = bytes;
    impl_->state->payloadFrames = count;
}

std::string Camera::planFault(PayloadFault fault, unsigned count, std::uint32_t seed) {
    if (plugged() && !canHave(impl_->current->formats().fourcc(), fault))
        return "the camera's format cannot have this fault";
    impl_->state->faults.plan(fault, count, seed);
    return {};
}

void Camera::mixFaults(unsigned perMille, std::uint32_t seed) {
    impl_->state->faults.mix(perMille, seed);
}

std::string Camera::changeEncodedSize(std::uint32_t width, std::uint32_t height) {
    if (width % 2 != 0 || height % 2 != 0)
        return "width and height must be even";
    if (!plugged() || impl_->current->formats().fourcc() != V4L2_PIX_FMT_H264 ||
        !impl_->current->pump().changeSize(width, height))
        return "the camera does not stream H264";
    return {};
}

std::string Camera::startPayloads(const std::string& path) {
    return impl_->state->payloads.start(path);
}

std::string Camera::stopPayloads() {
    return impl_->state->payloads.stop();
}

void Camera::setWatcher(Watcher* watcher) {
    impl_->state->watcher = watcher;
}

std::optional<Stamp> Camera::delivered(const Stamp& stamp) const {
    return impl_->state->numbers.resolve(stamp);
}

PtzState Camera::ptz() const {
    PtzState state;
    if (!plugged())
        return state;
    PluggedCamera& camera = *impl_->current;
    camera.refreshPositions();
    const auto valueOf = [&](std::uint32_t id) -> std::int64_t {
        return camera.controls().exists(id) ? camera.controls().event({id, 0}).value : 0;
    };
    state.pan = valueOf(V4L2_CID_PAN_ABSOLUTE);
    state.tilt = valueOf(V4L2_CID_TILT_ABSOLUTE);
    state.zoom = valueOf(V4L2_CID_ZOOM_ABSOLUTE);
    state.panSpeed = valueOf(V4L2_CID_PAN_SPEED);
    state.tiltSpeed = valueOf(V4L2_CID_TILT_SPEED);
    state.zoomSpeed = valueOf(V4L2_CID_ZOOM_CONTINUOUS);
    state.moves = impl_->description.ptz.moves;
    state.asleep = camera.units().asleep();
    state.tracking = camera.units().tracking();
    return state;
}

const ToldList& Camera::told() const {
    return impl_->state->told;
}

CameraFigures Camera::figures() const {
    CameraFigures figures;
    figures.delivered = impl_->state->delivered;
    figures.lost = impl_->state->lost;
    if (!plugged())
        return figures;
    const CameraFormats& formats = impl_->current->formats();
    figures.fourcc = formats.fourcc();
    figures.width = formats.width();
    figures.height = formats.height();
    figures.interval = formats.interval();
    figures.marked = impl_->current->pump().marked();
    figures.streaming = impl_->current->queue().streaming();
    return figures;
}

unsigned Camera::openHandles() const {
    return impl_->openHandles();
}

}  // namespace board
