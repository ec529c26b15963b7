// The camera's side: who it is and which modes it lists.
#include "control/capture/analysisfile.h"
#include "control/capture/videonode.h"
#include "control/task/drivertext.h"
#include "control/task/logline.h"
#include "control/task/uniquefd.h"
#include "control/task/xioctl.h"

#include <linux/videodev2.h>

#include <cerrno>
#include <cstring>

namespace {

// No camera comes near; a driver that never says "no more" must not hold the start for ever.
constexpr std::uint32_t maxEntries = 1024;      // of one enumeration
constexpr std::uint32_t maxEnumerated = 16384;  // sizes and intervals of one camera together

constexpr std::uint64_t maxMjpegPixels = 1920ULL * 1080ULL;
constexpr std::uint32_t maxMjpegBandwidth = 1920U * 1080U * 60U;

std::uint32_t wholeFps(const v4l2_fract& interval) {
    return interval.numerator == 0 ? 0 : interval.denominator / interval.numerator;
}

// Walks sizes and frame rates of one pixel format; `visit` gets width, height, fps.
class ModeWalk {
  public:
    explicit ModeWalk(int fd) : fd_(fd) {}

    template <typename Visit>
    void forEachMode(std::uint32_t fourcc, const Visit& visit) {
        for (std::uint32_t index = 0; index < maxEntries && spend(); ++index) {
            v4l2_frmsizeenum size{};
            size.index = index;
            size.pixel_format = fourcc;
            if (xioctl(fd_, VIDIOC_ENUM_FRAMESIZES, &size) == -1) {
                return;
            }
            if (size.type == V4L2_FRMSIZE_TYPE_DISCRETE) {
                forEachRate(fourcc, size.discrete, visit);
            }
        }
    }

  private:
    template <typename Visit>
    void forEachRate(std::uint32_t fourcc, const v4l2_frmsize_discrete& size, const Visit& visit) {
        for (std::uint32_t index = 0; index < maxEntries && spend(); ++index) {
            v4l2_frmivalenum interval{};
            interval.index = index;
            interval.pixel_format = fourcc;
            interval.width = size.width;
            interval.height = size.height;
            if (xioctl(fd_, VIDIOC_ENUM_FRAMEINTERVALS, &interval) == -1) {
                return;
            }
            // A range of intervals is listed by its shortest, which is the highest frame rate.
            const bool discrete = interval.type == V4L2_FRMIVAL_TYPE_DISCRETE;
            visit(size.width, size.height,
                  wholeFps(discrete ? interval.discrete : interval.stepwise.min));
        }
    }

    bool spend() { return enumerated_++ < maxEnumerated; }

    int fd_;
    std::uint32_t enumerated_ = 0;
};

}  // namespace

bool AnalysisFile::analysisUvcDevice() {
    const UniqueFd node = openVideoNode(devicePath);
    if (!node.valid() || !queryCapability(node.get())) {
        return false;
    }
    enumerateFormats(node.get());
    return true;
}

bool AnalysisFile::queryCapability(int fd) {
    v4l2_capability capability{};
    if (xioctl(fd, VIDIOC_QUERYCAP, &capability) == -1) {
        const int error = errno;
        if (error == EINVAL) {
            logErr(devicePath, " is no V4L2 device");
        } else {
            logErr("VIDIOC_QUERYCAP, ", error, ", ", strerror(error));
        }
        return false;
    }
    cardName = fieldText(capability.card);
    logOut(capabilityText(capability));
    if ((capability.capabilities & V4L2_CAP_VIDEO_CAPTURE) == 0) {
        logErr(devicePath, " is no video capture device");
        return false;
    }
    if ((capability.capabilities & V4L2_CAP_STREAMING) == 0) {
        logErr(devicePath, " does not support streaming i/o");
        return false;
    }
    return true;
}

void AnalysisFile::enumerateFormats(int fd) {
    ModeWalk walk(fd);
    for (std::uint32_t index = 0; index < maxEntries; ++index) {
        v4l2_fmtdesc format{};
        format.index = index;
        format.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
        if (xioctl(fd, VIDIOC_ENUM_FMT, &format) == -1) {
            return;
        }
        for (std::size_t list = 0; list < fmtNames.size(); ++list) {
            const fmtStr& name = fmtNames[list];
            if (name.fourcc != format.pixelformat) {
                continue;
            }
            walk.forEachMode(name.fourcc,
                             [&](std::uint32_t width, std::uint32_t height, std::uint32_t fps) {
                                 const uvcFmt mode(width, height, fps, name);
                                 if (isAccepted(mode)) {
                                     uvcFmtLists[list].push_back(mode);
                                 }
                             });
        }
    }
}

bool AnalysisFile::isAccepted(const uvcFmt& mode) const {
    if (mode.fps <= 15) {
        return false;
    }
    if (cardName == "OBSBOT Tiny 4K" && mode.width == 1920 && mode.height == 1080 &&
        mode.fps == 60) {
        return false;
    }
    if (mode.fmt.fourcc != fmtNames[0].fourcc) {
        return true;
    }
    return std::uint64_t{mode.width} * mode.height <= maxMjpegPixels &&
           mode.width * mode.height * mode.fps <= maxMjpegBandwidth;
}
