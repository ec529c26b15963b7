#include "board/daemon/camera/cameraformats.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace board {

namespace {

std::uint32_t lineBytes(std::uint32_t fourcc, std::uint32_t width) {
    switch (fourcc) {
        case V4L2_PIX_FMT_NV12:
        case V4L2_PIX_FMT_YUV420:
        case V4L2_PIX_FMT_GREY:
            return width;
        case V4L2_PIX_FMT_RGB24:
        case V4L2_PIX_FMT_BGR24:
            return width * 3;
        default:
            return width * 2;
    }
}

std::uint32_t imageBytes(const CameraFormat& format, const CameraSize& size) {
    // A compressed frame may take as much as an uncompressed one: what webcams announce.
    if (format.imageBytes != 0)
        return format.imageBytes;
    if (format.compressed)
        return size.width * size.height * 2;
    const std::uint32_t luma = lineBytes(format.fourcc, size.width) * size.height;
    const bool planar = format.fourcc == V4L2_PIX_FMT_NV12 || format.fourcc == V4L2_PIX_FMT_YUV420;
    return planar ? luma + luma / 2 : luma;
}

v4l2_pix_format picture(const CameraFormat& format, const CameraSize& size) {
    v4l2_pix_format pix{};
    pix.width = size.width;
    pix.height = size.height;
    pix.pixelformat = format.fourcc;
    pix.field = V4L2_FIELD_NONE;
    pix.bytesperline = format.compressed ? 0 : lineBytes(format.fourcc, size.width);
    pix.sizeimage = imageBytes(format, size);
    pix.colorspace = V4L2_COLORSPACE_SRGB;
    pix.priv = V4L2_PIX_FMT_PRIV_MAGIC;
    pix.ycbcr_enc = V4L2_YCBCR_ENC_601;
    pix.xfer_func = V4L2_XFER_FUNC_709;
    return pix;
}

Fraction firstInterval(const CameraSize& size) {
    return size.intervals.empty() ? Fraction{1, 30} : size.intervals.front();
}

// In units of 100 ns, as USB cameras count; saturates as the driver does.
std::uint64_t unitsOf(std::uint32_t numerator, std::uint32_t denominator) {
    if (denominator == 0)
        return UINT32_MAX;
    return std::min<std::uint64_t>(std::uint64_t(numerator) * 10000000 / denominator, UINT32_MAX);
}

}  // namespace

CameraFormats::CameraFormats(const std::vector<CameraFormat>& described) {
    for (const CameraFormat& format : described) {
        if (!format.sizes.empty())
            formats_.push_back(format);
    }
    if (formats_.empty())
        return;
    pix_ = picture(formats_[0], formats_[0].sizes[0]);
    interval_ = firstInterval(formats_[0].sizes[0]);
}

const CameraFormat* CameraFormats::findFormat(std::uint32_t fourcc) const {
    for (const CameraFormat& format : formats_) {
        if (format.fourcc == fourcc)
            return &format;
    }
    return nullptr;
}

const CameraSize* CameraFormats::findSize(std::uint32_t fourcc, std::uint32_t width,
                                          std::uint32_t height) const {
    const CameraFormat* format = findFormat(fourcc);
    if (format == nullptr)
        return nullptr;
    for (const CameraSize& size : format->sizes) {
        if (size.width == width && size.height == height)
            return &size;
    }
    return nullptr;
}

Encoding CameraFormats::encoding() const {
    const CameraFormat* format = findFormat(pix_.pixelformat);
    return format != nullptr ? format->encoding : Encoding();
}

int CameraFormats::enumerate(v4l2_fmtdesc& entry) const {
    if (entry.type != V4L2_BUF_TYPE_VIDEO_CAPTURE || entry.index >= formats_.size())
        return -EINVAL;
    const CameraFormat& format = formats_[entry.index];
    const std::uint32_t index = entry.index;
    entry = {};
    entry.index = index;
    entry.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    entry.flags = format.compressed ? V4L2_FMT_FLAG_COMPRESSED : 0;
    entry.pixelformat = format.fourcc;
    std::memcpy(entry.description, format.description.data(),
                std::min(format.description.size(), sizeof entry.description - 1));
    return 0;
}

int CameraFormats::enumerate(v4l2_frmsizeenum& entry) const {
    const CameraFormat* format = findFormat(entry.pixel_format);
    if (format == nullptr || entry.index >= format->sizes.size())
        return -EINVAL;
    const CameraSize& size = format->sizes[entry.index];
    const std::uint32_t index = entry.index;
    entry = {};
    entry.index = index;
    entry.pixel_format = format->fourcc;
    entry.type = V4L2_FRMSIZE_TYPE_DISCRETE;
    entry.discrete = {size.width, size.height};
    return 0;
}

int CameraFormats::enumerate(v4l2_frmivalenum& entry) const {
    const CameraSize* size = findSize(entry.pixel_format, entry.width, entry.height);
    if (size == nullptr || entry.index >= size->intervals.size())
        return -EINVAL;
    const Fraction interval = size->intervals[entry.index];
    v4l2_frmivalenum found{};
    found.index = entry.index;
    found.pixel_format = entry.pixel_format;
    found.width = entry.width;
    found.height = entry.height;
    found.type = V4L2_FRMIVAL_TYPE_DISCRETE;
    found.discrete = {interval.numerator, interval.denominator};
    entry = found;
    return 0;
}

int CameraFormats::current(v4l2_format& format) const {
    if (format.type != V4L2_BUF_TYPE_VIDEO_CAPTURE || formats_.empty())
        return -EINVAL;
    format = {};
    format.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    format.fmt.pix = pix_;
    return 0;
}

const CameraSize* CameraFormats::nearest(const CameraFormat& format, std::uint32_t width,
                                         std::uint32_t height) const {
    // The area that the two rectangles do not share; the first of equals wins.
    const std::uint64_t wantedWidth = std::min<std::uint32_t>(width, 0xffff);
    const std::uint64_t wantedHeight = std::min<std::uint32_t>(height, 0xffff);
    const CameraSize* best = nullptr;
    std::uint64_t bestDistance = UINT64_MAX;
    for (const CameraSize& size : format.sizes) {
        const std::uint64_t shared = std::min<std::uint64_t>(size.width, wantedWidth) *
                                     std::min<std::uint64_t>(size.height, wantedHeight);
        const std::uint64_t distance =
            std::uint64_t(size.width) * size.height + wantedWidth * wantedHeight - 2 * shared;
        if (distance >= bestDistance)
            continue;
        bestDistance = distance;
        best = &size;
    }
    return best;
}

int CameraFormats::adjust(v4l2_format& format) const {
    if (format.type != V4L2_BUF_TYPE_VIDEO_CAPTURE || formats_.empty())
        return -EINVAL;
    const CameraFormat* wanted = findFormat(format.fmt.pix.pixelformat);
    if (wanted == nullptr)
        wanted = &formats_.front();
    const CameraSize* size = nearest(*wanted, format.fmt.pix.width, format.fmt.pix.height);
    format = {};
    format.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    format.fmt.pix = picture(*wanted, *size);
    return 0;
}

int CameraFormats::choose(v4l2_format& format) {
    if (const int error = adjust(format))
        return error;
    pix_ = format.fmt.pix;
    interval_ = firstInterval(*findSize(pix_.pixelformat, pix_.width, pix_.height));
    return 0;
}

int CameraFormats::parameters(v4l2_streamparm& parameters) const {
    if (parameters.type != V4L2_BUF_TYPE_VIDEO_CAPTURE || formats_.empty())
        return -EINVAL;
    parameters = {};
    parameters.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    parameters.parm.capture.capability = V4L2_CAP_TIMEPERFRAME;
    parameters.parm.capture.timeperframe = {interval_.numerator, interval_.denominator};
    return 0;
}

int CameraFormats::chooseInterval(v4l2_streamparm& parameters) {
    if (parameters.type != V4L2_BUF_TYPE_VIDEO_CAPTURE || formats_.empty())
        return -EINVAL;
    const v4l2_fract wanted = parameters.parm.capture.timeperframe;
    const auto units = std::int64_t(unitsOf(wanted.numerator, wanted.denominator));
    std::int64_t bestDistance = INT64_MAX;
    for (const Fraction& interval :
         findSize(pix_.pixelformat, pix_.width, pix_.height)->intervals) {
        const std::int64_t distance =
            std::abs(std::int64_t(unitsOf(interval.numerator, interval.denominator)) - units);
        if (distance >= bestDistance)
            continue;
        bestDistance = distance;
        interval_ = interval;
    }
    return this->parameters(parameters);
}

}  // namespace board
