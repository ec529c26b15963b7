// An open descriptor of the camera: its ioctls, mappings, priority and events. Loop thread only.
#pragma once

#include "board/daemon/camera/bufferqueue.h"
#include "board/daemon/camera/cameracontrols.h"
#include "board/daemon/camera/controlevents.h"
#include "board/daemon/camera/readysignal.h"
#include "board/daemon/device.h"

#include <linux/videodev2.h>

#include <cstdint>
#include <map>
#include <memory>

namespace board {

class PluggedCamera;

class CameraHandle : public Handle {
  public:
    explicit CameraHandle(std::shared_ptr<PluggedCamera> camera);  // throws std::system_error
    ~CameraHandle() override;

    int clientDescriptor() override { return signal_.clientDescriptor(); }
    int eventDescriptor() override { return events_.descriptor(); }
    wire::Kind kind() const override { return wire::Kind::v4l2; }
    bool knows(std::uint32_t request) const override;
    int unknownIoctlError() const override;
    int ioctl(IoctlCall& call) override;
    bool replyOnError(std::uint32_t request) const override;
    Mapping map(std::uint64_t offset, std::uint64_t length, std::uint32_t protection) override;
    void unmapped(std::uint64_t offset, std::uint64_t length) override;

    // Called by the camera.
    void signalReady(unsigned count) { signal_.set(count); }
    void hangUp();
    void controlChanged(const ControlChange& change, const v4l2_event_ctrl& event,
                        std::int64_t time_ns, bool ownChange);
    std::uint32_t priority() const { return priority_; }
    std::uint32_t stateBits = 0;  // last told to the client

  private:
    using Step = int (CameraHandle::*)(IoctlCall&);
    struct Entry {
        Step run;
        bool needsPriority;  // refused while another descriptor has a higher priority
    };
    static const std::map<std::uint32_t, Entry>& table();
    template <typename T, int (CameraHandle::*step)(T&)>
    int with(IoctlCall& call);
    std::uint32_t highestPriority() const;

    int capability(v4l2_capability& capability);
    int enumFormat(v4l2_fmtdesc& entry);
    int enumSize(v4l2_frmsizeenum& entry);
    int enumInterval(v4l2_frmivalenum& entry);
    int getFormat(v4l2_format& format);
    int setFormat(v4l2_format& format);
    int tryFormat(v4l2_format& format);
    int getParameters(v4l2_streamparm& parameters);
    int setParameters(v4l2_streamparm& parameters);
    int enumInput(v4l2_input& input);
    int getInput(std::int32_t& input);
    int setInput(std::int32_t& input);
    int getPriority(std::uint32_t& priority);
    int setPriority(std::uint32_t& priority);
    int queryControl(v4l2_queryctrl& query);
    int queryExtControl(v4l2_query_ext_ctrl& query);
    int queryMenu(v4l2_querymenu& entry);
    int getControl(v4l2_control& control);
    int setControl(v4l2_control& control);
    int extControls(IoctlCall& call);
    int queryUnit(IoctlCall& call);
    int subscribe(v4l2_event_subscription& subscription);
    int unsubscribe(v4l2_event_subscription& subscription);
    int dequeueEvent(IoctlCall& call);
    int requestBuffers(v4l2_requestbuffers& request);
    int queryBuffer(v4l2_buffer& buffer);
    int queueBuffer(v4l2_buffer& buffer);
    int dequeueBuffer(v4l2_buffer& buffer);
    int streamOn(std::int32_t& type);
    int streamOff(std::int32_t& type);

    std::shared_ptr<PluggedCamera> camera_;
    ReadySignal signal_;
    ControlEvents events_;
    std::uint32_t priority_ = V4L2_PRIORITY_DEFAULT;
    std::multimap<std::uint64_t, std::weak_ptr<CameraBuffer>> mappings_;  // by offset
};

}  // namespace board
