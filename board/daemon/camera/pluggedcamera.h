// One plugging of the camera: the device behind its node, until the last descriptor is closed.
// Loop thread only.
#pragma once

#include "board/daemon/board.h"
#include "board/daemon/camera/bufferqueue.h"
#include "board/daemon/camera/cameracontrols.h"
#include "board/daemon/camera/cameraformats.h"
#include "board/daemon/camera/cameramotion.h"
#include "board/daemon/camera/extensionunits.h"
#include "board/daemon/camera/framepump.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace board {

class CameraHandle;

class PluggedCamera : public Device, public std::enable_shared_from_this<PluggedCamera> {
  public:
    PluggedCamera(std::shared_ptr<CameraState> state, const CameraDescription& description,
                  unsigned number);
    ~PluggedCamera() override;

    std::unique_ptr<Handle> open(std::uint32_t fileFlags, std::uint32_t pid, int* error) override;

    // Puts the node in place, takes it away for ever.
    void plug();
    void unplug();
    bool gone() const { return gone_; }
    unsigned number() const { return number_; }
    std::string path() const;
    unsigned openHandles() const { return unsigned(handles_.size()); }

    // What handles work with. No call of theirs comes here once the camera is gone.
    const CameraDescription& description() const { return description_; }
    CameraFormats& formats() { return formats_; }
    CameraControls& controls() { return controls_; }
    BufferQueue& queue() { return queue_; }
    FramePump& pump() { return pump_; }
    const std::vector<CameraHandle*>& handles() const { return handles_; }

    // Whether another descriptor has the buffers.
    bool ownedByOther(const CameraHandle& handle) const;
    int requestBuffers(CameraHandle& handle, v4l2_requestbuffers& request);
    int streamOn(std::uint32_t type);
    int streamOff(std::uint32_t type);
    void formatChosen();  // pictures of the new size are prepared
    void report(const std::vector<ControlChange>& changed, const CameraHandle& by);
    // What clients set, also in vain: kept in the list, and the camera moves. `result` is the
    // call's; `items` stand as the driver left them, `asked` as they came.
    void told(const std::vector<v4l2_ext_control>& asked,
              const std::vector<v4l2_ext_control>& items, int result);
    // Positions as they are now, into the controls.
    void refreshPositions();
    int queryUnit(const uvc_xu_control_query& query, NestedBlock& data);
    const CameraMotion& motion() const { return motion_; }
    const ExtensionUnits& units() const { return units_; }
    std::int64_t now_ns() const { return state_->board.clock().now_ns(); }

    void refresh();  // what each descriptor reports: readable or not, streaming or not
    void closed(CameraHandle& handle);

  private:
    FrameLoopWish wish() const;

    std::shared_ptr<CameraState> state_;
    const CameraDescription description_;
    const unsigned number_;
    bool gone_ = false;
    CameraFormats formats_;
    CameraControls controls_;
    CameraMotion motion_;
    ExtensionUnits units_;
    BufferQueue queue_;
    FramePump pump_;
    std::vector<CameraHandle*> handles_;
    CameraHandle* owner_ = nullptr;  // of the buffers
};

}  // namespace board
