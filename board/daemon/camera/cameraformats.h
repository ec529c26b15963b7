// A camera's formats, sizes and intervals, and which of them are chosen. Functions return 0 or
// -errno as the ioctl of the same purpose. Loop thread only.
#pragma once

#include "board/daemon/scenario.h"

#include <linux/videodev2.h>

#include <cstdint>
#include <vector>

namespace board {

class CameraFormats {
  public:
    explicit CameraFormats(const std::vector<CameraFormat>& described);

    int enumerate(v4l2_fmtdesc& entry) const;
    int enumerate(v4l2_frmsizeenum& entry) const;
    int enumerate(v4l2_frmivalenum& entry) const;
    int current(v4l2_format& format) const;
    int adjust(v4l2_format& format) const;  // TRY_FMT
    int choose(v4l2_format& format);        // S_FMT; the interval becomes the size's first
    int parameters(v4l2_streamparm& parameters) const;
    int chooseInterval(v4l2_streamparm& parameters);

    // The chosen mode; all zero when the camera lists none.
    std::uint32_t fourcc() const { return pix_.pixelformat; }
    std::uint32_t width() const { return pix_.width; }
    std::uint32_t height() const { return pix_.height; }
    std::uint32_t imageBytes() const { return pix_.sizeimage; }
    Fraction interval() const { return interval_; }
    Encoding encoding() const;  // of the chosen format

  private:
    const CameraFormat* findFormat(std::uint32_t fourcc) const;
    const CameraSize* findSize(std::uint32_t fourcc, std::uint32_t width,
                               std::uint32_t height) const;
    const CameraSize* nearest(const CameraFormat& format, std::uint32_t width,
                              std::uint32_t height) const;

    std::vector<CameraFormat> formats_;  // those with at least one size
    v4l2_pix_format pix_{};
    Fraction interval_;
};

}  // namespace board
