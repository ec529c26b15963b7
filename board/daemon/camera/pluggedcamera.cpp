#include "board/daemon/camera/pluggedcamera.h"

#include "board/daemon/camera/camerahandle.h"
#include "board/media/recording.h"

#include <linux/videodev2.h>

#include <linux/usb/video.h>

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <utility>

namespace board {

namespace {

constexpr unsigned videoMajor = 81;

}  // namespace

PluggedCamera::PluggedCamera(std::shared_ptr<CameraState> state,
                             const CameraDescription& description, unsigned number)
    : state_(std::move(state)),
      description_(description),
      number_(number),
      formats_(description.formats),
      controls_(description.controls),
      motion_(description),
      units_(description.units),
      pump_(state_, queue_, [this] { refresh(); }) {
    pump_.setView([this] { return motion_.view(now_ns()); });
}

PluggedCamera::~PluggedCamera() = default;

std::string PluggedCamera::path() const {
    return "/dev/video" + std::to_string(number_);
}

std::unique_ptr<Handle> PluggedCamera::open(std::uint32_t /*fileFlags*/, std::uint32_t /*pid*/,
                                            int* error) {
    if (gone_) {
        *error = ENODEV;
        return nullptr;
    }
    try {
        auto handle = std::make_unique<CameraHandle>(shared_from_this());
        handles_.push_back(handle.get());
        return handle;
    } catch (const std::system_error& failure) {
        *error = failure.code().value();
        return nullptr;
    }
}

void PluggedCamera::plug() {
    state_->board.addNode(path(), videoMajor, number_, *this);
}

void PluggedCamera::unplug() {
    if (gone_)
        return;
    gone_ = true;
    state_->board.removeNode(path());
    pump_.stop();
    queue_.clear();
    owner_ = nullptr;
    for (CameraHandle* handle : handles_) {
        state_->board.setHandleState(handle->slot, wire::handleGone);
        handle->hangUp();
    }
}

bool PluggedCamera::ownedByOther(const CameraHandle& handle) const {
    return owner_ != nullptr && owner_ != &handle;
}

int PluggedCamera::requestBuffers(CameraHandle& handle, v4l2_requestbuffers& request) {
    const int result = queue_.request(request, formats_.imageBytes());
    owner_ = queue_.empty() ? nullptr : &handle;
    return result;
}

FrameLoopWish PluggedCamera::wish() const {
    FrameLoopWish wish;
    wish.recording = !state_->recording.empty() ? state_->recording : description_.recording;
    if (wish.recording.empty())
        wish.recording = defaultRecording();
    wish.fourcc = formats_.fourcc();
    wish.width = formats_.width();
    wish.height = formats_.height();
    if (canLoadPictures(wish.fourcc))
        return wish;
    wish.encoding = formats_.encoding();
    const Fraction interval = formats_.interval();
    // One loop serves Motion JPEG at every rate.
    if (wish.fourcc == V4L2_PIX_FMT_H264)
        wish.encoding.framesPerSecond = std::max(1u, interval.denominator / interval.numerator);
    return wish;
}

void PluggedCamera::formatChosen() {
    pump_.prepare(wish());
}

int PluggedCamera::streamOn(std::uint32_t type) {
    if (type == V4L2_BUF_TYPE_VIDEO_CAPTURE && queue_.streaming())
        return 0;
    if (!queue_.empty() && !canMakeFrames(formats_.fourcc())) {
        state_->board.log("camera: format " + fourccText(formats_.fourcc()) +
                          " cannot be delivered: stream-on fails");
        return -EIO;
    }
    if (const int error = queue_.streamOn(type))
        return error;
    pump_.start(wish(), formats_.interval());
    refresh();
    return 0;
}

int PluggedCamera::streamOff(std::uint32_t type) {
    if (const int error = queue_.streamOff(type))
        return error;
    pump_.stop();
    refresh();
    return 0;
}

void PluggedCamera::refresh() {
    for (CameraHandle* handle : handles_) {
        // Without a running stream there is nothing to wait for: the descriptor reports at once and
        // the call that follows says why.
        const bool live = handle == owner_ && queue_.streaming();
        handle->signalReady(live && !queue_.failed() ? queue_.doneCount() : 1);
        const std::uint32_t bits = live ? wire::handleStreaming : 0;
        if (handle->stateBits == bits)
            continue;
        handle->stateBits = bits;
        state_->board.setHandleState(handle->slot, bits);
    }
}

void PluggedCamera::report(const std::vector<ControlChange>& changed, const CameraHandle& by) {
    const std::int64_t now = now_ns();
    for (const ControlChange& change : changed) {
        const v4l2_event_ctrl event = controls_.event(change);
        for (CameraHandle* handle : handles_)
            handle->controlChanged(change, event, now, handle == &by);
    }
}

void PluggedCamera::told(const std::vector<v4l2_ext_control>& asked,
                         const std::vector<v4l2_ext_control>& items, int result) {
    const std::int64_t now = now_ns();
    for (std::size_t i = 0; i < asked.size() && i < items.size(); ++i) {
        Told told;
        told.time_ns = now;
        told.result = result;
        told.isControl = true;
        told.id = items[i].id;
        told.asked = asked[i].value;
        told.given = items[i].value;
        state_->told.add(told);
        if (result == 0 && !units_.asleep())
            motion_.set(items[i].id, items[i].value, now);
    }
}

void PluggedCamera::refreshPositions() {
    for (const std::uint32_t id :
         {V4L2_CID_PAN_ABSOLUTE, V4L2_CID_TILT_ABSOLUTE, V4L2_CID_ZOOM_ABSOLUTE})
        if (motion_.has(id))
            controls_.store(id, motion_.position(id, now_ns()));
}

int PluggedCamera::queryUnit(const uvc_xu_control_query& query, NestedBlock& data) {
    const int result = units_.query(query, data);
    if (query.query != UVC_SET_CUR)
        return result;
    Told told;
    told.time_ns = now_ns();
    told.result = result;
    told.unit = query.unit;
    told.selector = query.selector;
    told.bytes = data.sentAs<std::uint8_t>();
    state_->told.add(told);
    // A sleeping camera stands still and sends nothing.
    if (units_.asleep())
        motion_.stop(told.time_ns);
    pump_.setAsleep(units_.asleep());
    return result;
}

void PluggedCamera::closed(CameraHandle& handle) {
    handles_.erase(std::remove(handles_.begin(), handles_.end(), &handle), handles_.end());
    if (owner_ != &handle)
        return;
    owner_ = nullptr;
    pump_.stop();
    queue_.clear();
}

}  // namespace board
