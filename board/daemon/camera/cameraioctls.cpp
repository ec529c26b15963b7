// The ioctls of a camera's descriptor, one function each.
#include "board/daemon/camera/camerahandle.h"
#include "board/daemon/camera/pluggedcamera.h"

#include <fcntl.h>
#include <linux/uvcvideo.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace board {

namespace {

template <std::size_t size>
void copyText(__u8 (&to)[size], const std::string& from) {
    std::memset(to, 0, size);
    std::memcpy(to, from.data(), std::min(from.size(), size - 1));
}

}  // namespace

int CameraHandle::capability(v4l2_capability& capability) {
    const CameraDescription& description = camera_->description();
    capability = {};
    copyText(capability.driver, description.driver);
    copyText(capability.card, description.card);
    copyText(capability.bus_info, description.busInfo);
    capability.version = description.version;
    capability.device_caps = V4L2_CAP_VIDEO_CAPTURE | V4L2_CAP_STREAMING | V4L2_CAP_EXT_PIX_FORMAT;
    capability.capabilities = capability.device_caps | V4L2_CAP_DEVICE_CAPS;
    return 0;
}

int CameraHandle::enumFormat(v4l2_fmtdesc& entry) {
    return camera_->formats().enumerate(entry);
}
int CameraHandle::enumSize(v4l2_frmsizeenum& entry) {
    return camera_->formats().enumerate(entry);
}
int CameraHandle::enumInterval(v4l2_frmivalenum& entry) {
    return camera_->formats().enumerate(entry);
}
int CameraHandle::getFormat(v4l2_format& format) {
    return camera_->formats().current(format);
}
int CameraHandle::tryFormat(v4l2_format& format) {
    return camera_->formats().adjust(format);
}

int CameraHandle::setFormat(v4l2_format& format) {
    v4l2_format adjusted = format;
    if (const int error = camera_->formats().adjust(adjusted))
        return error;
    if (!camera_->queue().empty())
        return -EBUSY;
    const int result = camera_->formats().choose(format);
    if (result == 0)
        camera_->formatChosen();
    return result;
}

int CameraHandle::getParameters(v4l2_streamparm& parameters) {
    return camera_->formats().parameters(parameters);
}

int CameraHandle::setParameters(v4l2_streamparm& parameters) {
    if (parameters.type == V4L2_BUF_TYPE_VIDEO_CAPTURE && camera_->queue().streaming())
        return -EBUSY;
    return camera_->formats().chooseInterval(parameters);
}

int CameraHandle::enumInput(v4l2_input& input) {
    if (input.index != 0)
        return -EINVAL;
    input = {};
    copyText(input.name, "Camera 1");
    input.type = V4L2_INPUT_TYPE_CAMERA;
    return 0;
}

int CameraHandle::getInput(std::int32_t& input) {
    input = 0;
    return 0;
}

int CameraHandle::setInput(std::int32_t& input) {
    if (!camera_->queue().empty())
        return -EBUSY;
    return input == 0 ? 0 : -EINVAL;
}

int CameraHandle::getPriority(std::uint32_t& priority) {
    priority = highestPriority();
    return 0;
}

int CameraHandle::setPriority(std::uint32_t& priority) {
    if (priority != V4L2_PRIORITY_BACKGROUND && priority != V4L2_PRIORITY_INTERACTIVE &&
        priority != V4L2_PRIORITY_RECORD)
        return -EINVAL;
    priority_ = priority;
    return 0;
}

int CameraHandle::queryControl(v4l2_queryctrl& query) {
    return camera_->controls().query(query);
}
int CameraHandle::queryExtControl(v4l2_query_ext_ctrl& query) {
    return camera_->controls().query(query);
}
int CameraHandle::queryMenu(v4l2_querymenu& entry) {
    return camera_->controls().menu(entry);
}
int CameraHandle::getControl(v4l2_control& control) {
    camera_->refreshPositions();
    return camera_->controls().get(control);
}

int CameraHandle::setControl(v4l2_control& control) {
    std::vector<ControlChange> changed;
    v4l2_ext_control asked{};
    asked.id = control.id;
    asked.value = control.value;
    const int result = camera_->controls().set(control, changed);
    v4l2_ext_control given = asked;
    given.value = control.value;
    camera_->told({asked}, {given}, result);
    camera_->report(changed, *this);
    return result;
}

int CameraHandle::extControls(IoctlCall& call) {
    auto header = call.load<v4l2_ext_controls>();
    std::vector<v4l2_ext_control> items;
    if (!call.blocks.empty())
        items = call.blocks[0].sentAs<v4l2_ext_control>();
    if (items.size() != header.count)
        return -EINVAL;
    std::vector<ControlChange> changed;
    const std::vector<v4l2_ext_control> asked = items;
    camera_->refreshPositions();
    const int result = camera_->controls().extended(call.request, header, items, changed);
    if (call.request == VIDIOC_S_EXT_CTRLS)
        camera_->told(asked, items, result);
    camera_->report(changed, *this);
    call.store(header);
    if (!call.blocks.empty())
        call.blocks[0].replyWith(items);
    return result;
}

int CameraHandle::queryUnit(IoctlCall& call) {
    if (call.blocks.empty())
        return -EINVAL;
    return camera_->queryUnit(call.load<uvc_xu_control_query>(), call.blocks[0]);
}

int CameraHandle::subscribe(v4l2_event_subscription& subscription) {
    if (subscription.type != V4L2_EVENT_CTRL || !camera_->controls().exists(subscription.id))
        return -EINVAL;
    const bool first = !events_.subscribed(subscription.id);
    events_.subscribe(subscription.id, subscription.flags);
    // The heading of a class never changes and has no state to begin with.
    if (!first || camera_->controls().isClass(subscription.id) ||
        !(subscription.flags & V4L2_EVENT_SUB_FL_SEND_INITIAL))
        return 0;
    const ControlChange state{subscription.id, V4L2_EVENT_CTRL_CH_VALUE | V4L2_EVENT_CTRL_CH_FLAGS};
    events_.post(state.id, camera_->controls().event(state), camera_->now_ns());
    return 0;
}

int CameraHandle::unsubscribe(v4l2_event_subscription& subscription) {
    if (subscription.type == V4L2_EVENT_ALL)
        events_.unsubscribeAll();
    else if (subscription.type == V4L2_EVENT_CTRL)
        events_.unsubscribe(subscription.id);
    return 0;
}

int CameraHandle::dequeueEvent(IoctlCall& call) {
    auto event = call.load<v4l2_event>();
    const int result = events_.take(event);
    call.store(event);
    // A blocking caller waits at its own end, on the event descriptor.
    return result == -ENOENT && !(call.fileFlags & O_NONBLOCK) ? -EAGAIN : result;
}

int CameraHandle::requestBuffers(v4l2_requestbuffers& request) {
    if (request.type != V4L2_BUF_TYPE_VIDEO_CAPTURE || request.memory != V4L2_MEMORY_MMAP)
        return -EINVAL;
    if (camera_->ownedByOther(*this))
        return -EBUSY;
    return camera_->requestBuffers(*this, request);
}

int CameraHandle::queryBuffer(v4l2_buffer& buffer) {
    return camera_->queue().query(buffer);
}

int CameraHandle::queueBuffer(v4l2_buffer& buffer) {
    if (camera_->ownedByOther(*this))
        return -EBUSY;
    return camera_->queue().queue(buffer);
}

int CameraHandle::dequeueBuffer(v4l2_buffer& buffer) {
    if (camera_->ownedByOther(*this))
        return -EBUSY;
    const int result = camera_->queue().dequeue(buffer);
    if (result == 0)
        camera_->refresh();
    return result;
}

int CameraHandle::streamOn(std::int32_t& type) {
    if (camera_->ownedByOther(*this))
        return -EBUSY;
    return camera_->streamOn(std::uint32_t(type));
}

int CameraHandle::streamOff(std::int32_t& type) {
    if (camera_->ownedByOther(*this))
        return -EBUSY;
    return camera_->streamOff(std::uint32_t(type));
}

}  // namespace board
