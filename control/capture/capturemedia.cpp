#include "control/capture/capturemedia.h"

#include "control/audio/captureaudio.h"
#include "control/audio/playbackaudio.h"
#include "control/decode/deccommon.h"
#include "control/display/showcontrol.h"
#include "control/task/fourcc.h"
#include "control/task/logline.h"
#include "control/task/monotonictime.h"
#include "control/task/msgvideo.h"
#include "control/task/xioctl.h"

#include <linux/videodev2.h>
#include <pthread.h>
#include <sys/select.h>

#include <algorithm>
#include <cassert>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <thread>
#include <utility>

namespace {

constexpr int captureCpus = 48;  // CPUs 4 and 5
constexpr std::int64_t firstWait_us = 10000000;
constexpr std::int64_t waitSlice_us = 50000;  // a stopped task is noticed this soon
constexpr int reportInterval_s = 30;

std::int64_t elapsed_us(std::chrono::steady_clock::time_point since) {
    using namespace std::chrono;
    return duration_cast<microseconds>(steady_clock::now() - since).count();
}

// What the output shall play: the camera's format where it can, else two channels of 16 bit.
audioInfo playbackFormat(const audioInfo& camera) {
    if (PlaybackAudio::isSupportedPlaybackFormat(camera)) {
        return camera;
    }
    audioInfo format;
    format.channels = 2;
    format.format = SND_PCM_FORMAT_S16_LE;
    if (camera.rate <= 8000) {
        format.rate = 32000;
    } else if (camera.rate == 48000 || camera.rate == 32000) {
        format.rate = camera.rate;
    } else {
        format.rate = 44100;
    }
    return format;
}

}  // namespace

CaptureMedia::CaptureMedia(std::string devicePath) : offsetTime(65535) {
    selectTimeout_sec = 1;
    selectTimeout_usec = 0;
    analysis = std::make_unique<AnalysisFile>(std::move(devicePath));
}

CaptureMedia::~CaptureMedia() {
    captureAudio.reset();
    playbackAudio.reset();
    CaptureMedia::close();
    decoder.reset();
    spareStage.reset();
    showControl.reset();
    analysis.reset();
    logOut("delete capture media succeed");
}

bool CaptureMedia::startPlayMedia() {
    if (!analysis->openFile()) {
        return false;
    }
    showControl = std::make_unique<ShowControl>(analysis->displayInfo);
    if (!open_uvc_device() || !init_uvc_device()) {
        return false;
    }
    decInfo& mode = analysis->captureInfo;
    decoder.reset(DecCommon::find_decoder_dev(static_cast<int>(mode.format), &mode, 0, ""));
    if (decoder == nullptr || decoder->decoder_open() == 0) {
        return false;
    }
    linkVideoReceiveHandler(decoder.get());
    startAudio();
    showControl->activate(1);
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    if (!start_capturing()) {
        return false;
    }
    activate(1);
    return thr_count() != 0;  // nobody would notice a session that captures nothing
}

// Sound that cannot be captured or played leaves the picture alone.
void CaptureMedia::startAudio() {
    const audioInfo& camera = analysis->selectedAudio;
    if (camera.rate == 0 || camera.format == -1 || camera.channels == 0) {
        return;
    }
    captureAudio = std::make_unique<Captureaudio>(camera);
    playbackAudio = std::make_unique<PlaybackAudio>(camera, playbackFormat(camera));
    captureAudio->linkPlaybackReceiveHandler(playbackAudio.get());
    captureAudio->activate(1);
}

int CaptureMedia::getCaptureError() {
    if (showControl != nullptr && showControl->isConnected() != 1) {
        logOut("show dev disconnect ");
        return 2;
    }
    return captureError;
}

void CaptureMedia::linkVideoReceiveHandler(Receive_handler* handler) {
    videoReceiver = handler;
}

int CaptureMedia::close() {
    running = 0;
    wait();
    const bool stopped = stop_capturing();
    const bool released = uninit_device();
    // What stays open here is closed with the object: a descriptor held for ever would keep the
    // node's number from the next camera.
    if (stopped && released) {
        close_uvc_device();
    }
    return 0;
}

int CaptureMedia::svc() {
    setThreadName("CaptureMedia");
    setCpuCore(captureCpus, pthread_self());
    unsigned int frames = 0;
    auto reference = std::chrono::steady_clock::now();
    bool firstTime = true;
    while (running != 0) {
        const WaitResult result = waitForFrame(
            firstTime ? firstWait_us
                      : selectTimeout_sec * std::int64_t{1000000} + selectTimeout_usec);
        firstTime = false;
        if (result == WaitResult::timeout) {
            reportWaitFailure("select timeout");
        } else if (result == WaitResult::failed) {
            reportWaitFailure("select faild");
            std::this_thread::sleep_for(std::chrono::milliseconds(10));  // it will fail again
        }
        if (result != WaitResult::ready) {
            continue;
        }
        warmUp();
        if (!read_frame(started)) {
            captureError = 1;
            break;
        }
        pace();
        ++frames;
        if (elapsed_us(reference) >= reportInterval_s * std::int64_t{1000000}) {
            logOut("cap:", frames / reportInterval_s);
            frames = 0;
            reference = std::chrono::steady_clock::now();
        }
    }
    idleUntilStopped();
    logOut("CaptureMedia", "svc", " normal stop!");
    return 0;
}

// One wait for a frame, cut into slices. What is there when the time has passed still counts.
CaptureMedia::WaitResult CaptureMedia::waitForFrame(std::int64_t timeout_us) {
    const auto begin = std::chrono::steady_clock::now();
    while (running != 0) {
        const std::int64_t remaining = std::max<std::int64_t>(0, timeout_us - elapsed_us(begin));
        const std::int64_t slice = std::min(remaining, waitSlice_us);
        fd_set readable;
        FD_ZERO(&readable);
        if (fd.valid()) {
            FD_SET(fd.get(), &readable);
        }
        timeval limit{};
        limit.tv_usec = static_cast<suseconds_t>(slice);
        const int result = select(fd.get() + 1, &readable, nullptr, nullptr, &limit);
        if (result > 0) {
            return WaitResult::ready;
        }
        if (result == -1 && errno != EINTR) {
            return WaitResult::failed;
        }
        if (result == 0 && slice == remaining) {
            return WaitResult::timeout;
        }
    }
    return WaitResult::stopped;
}

void CaptureMedia::reportWaitFailure(const char* what) {
    captureError = 1;
    selectTimeout_sec = 0;
    selectTimeout_usec = 100000;
    logErr(what);
}

// The first second's frames are given back undelivered.
void CaptureMedia::warmUp() {
    if (started) {
        return;
    }
    if (warmupFrames >= analysis->captureInfo.fps) {
        started = true;
        startTime = monotonicNow();
    } else {
        ++warmupFrames;
    }
}

// Sleeps until shortly before the next frame is due; 62 ms at most, as slower modes are not used.
void CaptureMedia::pace() const {
    const decInfo& mode = analysis->captureInfo;
    if (mode.format == fourccOf("H264") || running == 0) {
        return;
    }
    const std::uint32_t period_ms = 1000 / mode.fps;  // whole milliseconds
    const double rest_ms = period_ms - offsetTime.averageMs - 2.0;
    if (rest_ms > 0.0) {
        std::this_thread::sleep_for(
            std::chrono::microseconds(static_cast<std::int64_t>(rest_ms * 1000.0)));
    }
}

void CaptureMedia::idleUntilStopped() const {
    while (running != 0) {
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
}

bool CaptureMedia::read_frame(bool deliver) {
    v4l2_buffer buf{};
    buf.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    buf.memory = V4L2_MEMORY_MMAP;
    if (xioctl(fd.get(), VIDIOC_DQBUF, &buf) == -1) {
        const int error = errno;
        if (error == EIO) {
            logErr("VIDIOC_DQBUF faild EIO");
        } else if (error == EAGAIN) {
            logErr("VIDIOC_DQBUF faild EAGAIN");
        } else {
            logErr("VIDIOC_DQBUF faild errno =", error);
        }
        return false;
    }
    assert(buf.index < n_buffers);
    if (deliver) {
        const MappedBuffer& buffer = buffers[buf.index];
        const std::size_t used = std::min<std::size_t>(buf.bytesused, buffer.length);
        process_image(buffer.start, static_cast<int>(used));
    }
    if (xioctl(fd.get(), VIDIOC_QBUF, &buf) == -1) {
        logErr("VIDIOC_QBUF");
    }
    return true;
}

bool CaptureMedia::process_image(const void* p, int size) {
    offsetTime.updateOffsetTime_start();
    if (videoReceiver != nullptr && videoReceiver->queueAllow_angler()) {
        auto msg = std::make_unique<msgVideo>();
        const decInfo& mode = analysis->captureInfo;
        msg->width = msg->virWidth = mode.width;
        msg->height = msg->virHeight = mode.height;
        msg->data[0] = new unsigned char[static_cast<std::size_t>(size)];
        std::memcpy(msg->data[0], p, static_cast<std::size_t>(size));
        msg->length[0] = static_cast<std::uint32_t>(size);
        msg->pts = elapsedMs(startTime, monotonicNow());
        videoReceiver->receive_handler(msg.release(), 0);
    }
    offsetTime.updateOffsetTime_end();
    return true;
}
