#include "board/daemon/camera/camerahandle.h"

#include "board/daemon/camera/pluggedcamera.h"

#include <linux/uvcvideo.h>
#include <sys/mman.h>

#include <algorithm>
#include <cerrno>
#include <exception>
#include <utility>

namespace board {

CameraHandle::CameraHandle(std::shared_ptr<PluggedCamera> camera) : camera_(std::move(camera)) {
    signal_.set(1);  // nothing streams yet: see PluggedCamera::refresh
}

CameraHandle::~CameraHandle() {
    // The mappings of a dead client are gone; those of a living one may outlast its descriptor, but
    // then nobody tells when they end.
    for (const auto& [offset, mapped] : mappings_) {
        if (const auto buffer = mapped.lock())
            --buffer->mappings;
    }
    camera_->closed(*this);
}

template <typename T, int (CameraHandle::*step)(T&)>
int CameraHandle::with(IoctlCall& call) {
    T argument = call.load<T>();
    const int result = (this->*step)(argument);
    call.store(argument);
    return result;
}

const std::map<std::uint32_t, CameraHandle::Entry>& CameraHandle::table() {
    using H = CameraHandle;
    // clang-format off
    static const std::map<std::uint32_t, Entry> entries = {
        {VIDIOC_QUERYCAP, {&H::with<v4l2_capability, &H::capability>, false}},
        {VIDIOC_ENUM_FMT, {&H::with<v4l2_fmtdesc, &H::enumFormat>, false}},
        {VIDIOC_ENUM_FRAMESIZES, {&H::with<v4l2_frmsizeenum, &H::enumSize>, false}},
        {VIDIOC_ENUM_FRAMEINTERVALS, {&H::with<v4l2_frmivalenum, &H::enumInterval>, false}},
        {VIDIOC_G_FMT, {&H::with<v4l2_format, &H::getFormat>, false}},
        {VIDIOC_S_FMT, {&H::with<v4l2_format, &H::setFormat>, true}},
        {VIDIOC_TRY_FMT, {&H::with<v4l2_format, &H::tryFormat>, false}},
        {VIDIOC_G_PARM, {&H::with<v4l2_streamparm, &H::getParameters>, false}},
        {VIDIOC_S_PARM, {&H::with<v4l2_streamparm, &H::setParameters>, true}},
        {VIDIOC_ENUMINPUT, {&H::with<v4l2_input, &H::enumInput>, false}},
        {VIDIOC_G_INPUT, {&H::with<std::int32_t, &H::getInput>, false}},
        {VIDIOC_S_INPUT, {&H::with<std::int32_t, &H::setInput>, true}},
        {VIDIOC_G_PRIORITY, {&H::with<std::uint32_t, &H::getPriority>, false}},
        {VIDIOC_S_PRIORITY, {&H::with<std::uint32_t, &H::setPriority>, true}},
        {VIDIOC_QUERYCTRL, {&H::with<v4l2_queryctrl, &H::queryControl>, false}},
        {VIDIOC_QUERY_EXT_CTRL, {&H::with<v4l2_query_ext_ctrl, &H::queryExtControl>, false}},
        {VIDIOC_QUERYMENU, {&H::with<v4l2_querymenu, &H::queryMenu>, false}},
        {VIDIOC_G_CTRL, {&H::with<v4l2_control, &H::getControl>, false}},
        {VIDIOC_S_CTRL, {&H::with<v4l2_control, &H::setControl>, true}},
        {VIDIOC_G_EXT_CTRLS, {&H::extControls, false}},
        {VIDIOC_S_EXT_CTRLS, {&H::extControls, true}},
        {VIDIOC_TRY_EXT_CTRLS, {&H::extControls, false}},
        {UVCIOC_CTRL_QUERY, {&H::queryUnit, false}},
        {VIDIOC_SUBSCRIBE_EVENT, {&H::with<v4l2_event_subscription, &H::subscribe>, false}},
        {VIDIOC_UNSUBSCRIBE_EVENT, {&H::with<v4l2_event_subscription, &H::unsubscribe>, false}},
        {VIDIOC_DQEVENT, {&H::dequeueEvent, false}},
        {VIDIOC_REQBUFS, {&H::with<v4l2_requestbuffers, &H::requestBuffers>, true}},
        {VIDIOC_QUERYBUF, {&H::with<v4l2_buffer, &H::queryBuffer>, false}},
        {VIDIOC_QBUF, {&H::with<v4l2_buffer, &H::queueBuffer>, false}},
        {VIDIOC_DQBUF, {&H::with<v4l2_buffer, &H::dequeueBuffer>, false}},
        {VIDIOC_STREAMON, {&H::with<std::int32_t, &H::streamOn>, true}},
        {VIDIOC_STREAMOFF, {&H::with<std::int32_t, &H::streamOff>, true}},
    };
    // clang-format on
    return entries;
}

bool CameraHandle::knows(std::uint32_t request) const {
    return table().count(request) != 0;
}

int CameraHandle::unknownIoctlError() const {
    return camera_->gone() ? ENODEV : ENOTTY;
}

bool CameraHandle::replyOnError(std::uint32_t request) const {
    return request == VIDIOC_G_EXT_CTRLS || request == VIDIOC_S_EXT_CTRLS ||
           request == VIDIOC_TRY_EXT_CTRLS;
}

int CameraHandle::ioctl(IoctlCall& call) {
    if (camera_->gone())
        return -ENODEV;
    const auto found = table().find(call.request);
    if (found == table().end())
        return -ENOTTY;
    if (found->second.needsPriority && priority_ < highestPriority())
        return -EBUSY;
    try {
        return (this->*found->second.run)(call);
    } catch (const std::exception&) {
        // Memory or threads ran out: the caller's problem, not the end of the board.
        return -ENOMEM;
    }
}

std::uint32_t CameraHandle::highestPriority() const {
    std::uint32_t highest = priority_;
    for (const CameraHandle* handle : camera_->handles())
        highest = std::max(highest, handle->priority());
    return highest;
}

Mapping CameraHandle::map(std::uint64_t offset, std::uint64_t length, std::uint32_t protection) {
    Mapping mapping;
    mapping.error = -ENODEV;
    if (camera_->gone())
        return mapping;
    mapping.error = -EINVAL;
    const auto buffer = camera_->queue().atOffset(offset);
    if (buffer == nullptr || length == 0 || length > buffer->mappedLength() ||
        !(protection & PROT_READ))
        return mapping;
    mapping.error = 0;
    mapping.memfd = buffer->memfd();
    ++buffer->mappings;
    mappings_.emplace(offset, buffer);
    return mapping;
}

void CameraHandle::unmapped(std::uint64_t offset, std::uint64_t /*length*/) {
    // The oldest first: a mapping of freed buffers is given up before one of their successors.
    const auto found = mappings_.lower_bound(offset);
    if (found == mappings_.end() || found->first != offset)
        return;
    if (const auto buffer = found->second.lock())
        --buffer->mappings;
    mappings_.erase(found);
}

void CameraHandle::hangUp() {
    signal_.hangUp();
    events_.wake();
}

void CameraHandle::controlChanged(const ControlChange& change, const v4l2_event_ctrl& event,
                                  std::int64_t time_ns, bool ownChange) {
    // One's own change of a value comes back on wish only; what it did to others always does.
    if (ownChange && !(change.changes & V4L2_EVENT_CTRL_CH_FLAGS) &&
        !events_.wantsFeedback(change.id))
        return;
    events_.post(change.id, event, time_ns);
}

}  // namespace board
