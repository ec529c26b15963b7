// The capture session's V4L2 node: opening, set-up, streaming, release.
#include "control/capture/capturemedia.h"
#include "control/capture/videonode.h"
#include "control/decode/deccommon.h"
#include "control/display/showcontrol.h"
#include "control/task/logline.h"
#include "control/task/xioctl.h"

#include <linux/videodev2.h>
#include <sys/mman.h>

#include <cerrno>

namespace {

constexpr std::uint32_t wantedBuffers = 3;

}  // namespace

bool CaptureMedia::open_uvc_device() {
    fd = openVideoNode(analysis->devicePath);
    return fd.valid();
}

bool CaptureMedia::init_uvc_device() {
    const decInfo& mode = analysis->captureInfo;
    v4l2_format format{};
    format.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    format.fmt.pix.width = mode.width;
    format.fmt.pix.height = mode.height;
    format.fmt.pix.pixelformat = mode.format;
    format.fmt.pix.field = V4L2_FIELD_INTERLACED;
    if (xioctl(fd.get(), VIDIOC_S_FMT, &format) == -1) {
        logErr("VIDIOC_S_FMT faild");
        return false;
    }
    setFrameRate();
    return init_mmap();
}

// A camera that does not let its rate be set is used at its own.
void CaptureMedia::setFrameRate() {
    v4l2_streamparm parameters{};
    parameters.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    v4l2_fract& interval = parameters.parm.capture.timeperframe;
    if (xioctl(fd.get(), VIDIOC_G_PARM, &parameters) == -1) {
        logErr("VIDIOC_G_PARM faild");
    }
    logOut("src numerator=", interval.numerator);
    logOut("src denominator=", interval.denominator);
    interval.numerator = 1;
    interval.denominator = analysis->captureInfo.fps;
    if (xioctl(fd.get(), VIDIOC_S_PARM, &parameters) == -1) {
        logErr("VIDIOC_S_PARM faild");
    }
    logOut("dst numerator=", interval.numerator);
    logOut("dst denominator=", interval.denominator);
}

bool CaptureMedia::init_mmap() {
    v4l2_requestbuffers request{};
    request.count = wantedBuffers;
    request.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    request.memory = V4L2_MEMORY_MMAP;
    if (xioctl(fd.get(), VIDIOC_REQBUFS, &request) == -1) {
        if (errno == EINVAL) {
            logErr(analysis->devicePath, " does not support memory mapping");
        } else {
            logErr("VIDIOC_REQBUFS faild");
        }
        return false;
    }
    buffers.reset(static_cast<MappedBuffer*>(std::calloc(request.count, sizeof(MappedBuffer))));
    if (buffers == nullptr) {
        logErr("Out of memory");
        return false;
    }
    for (n_buffers = 0; n_buffers < request.count; ++n_buffers) {
        v4l2_buffer buf{};
        buf.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
        buf.memory = V4L2_MEMORY_MMAP;
        buf.index = n_buffers;
        if (xioctl(fd.get(), VIDIOC_QUERYBUF, &buf) == -1) {
            logErr("VIDIOC_QUERYBUF faild");
            return false;
        }
        void* start = mmap(nullptr, buf.length, PROT_READ | PROT_WRITE, MAP_SHARED, fd.get(),
                           static_cast<off_t>(buf.m.offset));
        if (start == MAP_FAILED) {
            logErr("mmap ", n_buffers, " faild");
            return false;
        }
        buffers[n_buffers] = {start, buf.length};
    }
    return true;
}

bool CaptureMedia::start_capturing() {
    for (std::uint32_t index = 0; index < n_buffers; ++index) {
        v4l2_buffer buf{};
        buf.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
        buf.memory = V4L2_MEMORY_MMAP;
        buf.index = index;
        if (xioctl(fd.get(), VIDIOC_QBUF, &buf) == -1) {
            logErr("VIDIOC_QBUF faild");
            return false;
        }
    }
    int type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    if (xioctl(fd.get(), VIDIOC_STREAMON, &type) == -1) {
        logErr("VIDIOC_STREAMON faild");
        return false;
    }
    return true;
}

bool CaptureMedia::stop_capturing() {
    int type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    if (xioctl(fd.get(), VIDIOC_STREAMOFF, &type) == -1) {
        logErr("VIDIOC_STREAMOFF faild");
        return false;
    }
    return true;
}

bool CaptureMedia::uninit_device() {
    bool released = true;
    for (std::uint32_t index = 0; index < n_buffers; ++index) {
        if (munmap(buffers[index].start, buffers[index].length) == -1) {
            logErr("munmap ", index, " faild");
            released = false;
        }
    }
    buffers.reset();
    n_buffers = 0;
    return released;
}

bool CaptureMedia::close_uvc_device() {
    if (fd.reset() == -1) {
        logErr("uvc close");
        return false;
    }
    return true;
}
