// One playback session for one camera: owns every stage of the pipeline and runs the capture task.
#pragma once

#include "control/capture/analysisfile.h"
#include "control/capture/selecttimeout.h"
#include "control/task/autoadjustoffsettime.h"
#include "control/task/receive_handler.h"
#include "control/task/taskbase.h"
#include "control/task/uniquefd.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>

class Captureaudio;
class DecCommon;
class PlaybackAudio;
class ShowControl;

// Built, started, asked and deleted by one thread, the supervisor's. A session never restarts.
class CaptureMedia final : public TaskBase, public SelectTimeout {
  public:
    // `devicePath`: the camera's V4L2 node. Opens nothing, starts nothing.
    explicit CaptureMedia(std::string devicePath);
    // Stops every stage, the stages that hand over before those that receive.
    ~CaptureMedia() override;

    // Builds and starts the pipeline. On false the caller deletes the object.
    bool startPlayMedia();
    // 0 healthy, 1 capture failed, 2 display disconnected.
    int getCaptureError();
    // The stage that gets the frames: not owned, replaceable before the task runs.
    void linkVideoReceiveHandler(Receive_handler* handler);

    // Stops the task, releases the device; 0.
    int close() override;
    int svc() override;

  private:
    struct FreeDeleter {
        void operator()(void* memory) const { std::free(memory); }
    };
    struct MappedBuffer {  // one driver buffer
        void* start;
        std::size_t length;  // bytes
    };
    enum class WaitResult { ready, timeout, failed, stopped };

    void startAudio();

    // Steps of the device; each prints one line when it fails.
    bool open_uvc_device();
    bool init_uvc_device();
    bool init_mmap();
    bool start_capturing();
    bool stop_capturing();
    bool uninit_device();
    bool close_uvc_device();
    void setFrameRate();

    // Steps of the capture task.
    WaitResult waitForFrame(std::int64_t timeout_us);
    void reportWaitFailure(const char* what);
    void warmUp();
    void pace() const;
    void idleUntilStopped() const;
    bool read_frame(bool deliver);
    bool process_image(const void* p, int size);

    std::unique_ptr<AnalysisFile> analysis;
    autoAdjustOffsetTime offsetTime;
    std::unique_ptr<DecCommon> decoder;
    std::unique_ptr<ShowControl> showControl;
    std::unique_ptr<TaskBase> spareStage;
    std::unique_ptr<PlaybackAudio> playbackAudio;  // both null when the camera has no usable sound
    std::unique_ptr<Captureaudio> captureAudio;
    Receive_handler* videoReceiver = nullptr;
    std::atomic<std::int32_t> captureError{0};
    timeval startTime{};             // origin of the frames' pts
    std::uint32_t warmupFrames = 0;  // discarded so far
    bool started = false;            // the warm-up is over
    UniqueFd fd;                     // the camera's node
    std::unique_ptr<MappedBuffer[], FreeDeleter> buffers;
    std::uint32_t n_buffers = 0;  // mapped ones
};
