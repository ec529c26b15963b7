#include "board/daemon/display/modetiming.h"

#include <algorithm>
#include <cstring>

namespace board {

drm_mode_modeinfo toModeInfo(const DisplayMode& mode) {
    drm_mode_modeinfo info{};
    info.clock = mode.clock_kHz;
    info.hdisplay = mode.hdisplay;
    info.hsync_start = mode.hsyncStart;
    info.hsync_end = mode.hsyncEnd;
    info.htotal = mode.htotal;
    info.hskew = mode.hskew;
    info.vdisplay = mode.vdisplay;
    info.vsync_start = mode.vsyncStart;
    info.vsync_end = mode.vsyncEnd;
    info.vtotal = mode.vtotal;
    info.vscan = mode.vscan;
    info.vrefresh = mode.vrefresh_Hz;
    info.flags = mode.flags;
    info.type = mode.type;
    const std::size_t length = std::min(mode.name.size(), sizeof(info.name) - 1);
    std::memcpy(info.name, mode.name.data(), length);
    return info;
}

double refresh_Hz(const drm_mode_modeinfo& mode) {
    double refresh = mode.clock * 1000.0 / (double(mode.htotal) * double(mode.vtotal));
    if ((mode.flags & DRM_MODE_FLAG_INTERLACE) != 0)
        refresh *= 2;
    if ((mode.flags & DRM_MODE_FLAG_DBLSCAN) != 0)
        refresh /= 2;
    if (mode.vscan > 1)
        refresh /= mode.vscan;
    return refresh;
}

bool isUsableMode(const drm_mode_modeinfo& mode) {
    if (mode.hdisplay == 0 || mode.vdisplay == 0)
        return false;
    if (mode.hsync_start < mode.hdisplay || mode.hsync_end < mode.hsync_start ||
        mode.htotal < mode.hsync_end)
        return false;
    if (mode.vsync_start < mode.vdisplay || mode.vsync_end < mode.vsync_start ||
        mode.vtotal < mode.vsync_end)
        return false;
    const double refresh = refresh_Hz(mode);
    return refresh >= 1.0 && refresh <= 1000.0;
}

bool sameTiming(const drm_mode_modeinfo& a, const drm_mode_modeinfo& b) {
    drm_mode_modeinfo left = a, right = b;
    for (drm_mode_modeinfo* mode : {&left, &right}) {
        std::memset(mode->name, 0, sizeof mode->name);
        mode->type = 0;
        mode->vrefresh = 0;
    }
    return std::memcmp(&left, &right, sizeof left) == 0;
}

VblankTiming::VblankTiming(const drm_mode_modeinfo& mode, std::int64_t start_ns)
    : start_ns_(start_ns) {
    // A usable mode's period is at most a second, so nothing here leaves 64 bits.
    std::uint64_t dividend = std::uint64_t(mode.htotal) * mode.vtotal * 1000000;
    divisor_ = mode.clock;
    if ((mode.flags & DRM_MODE_FLAG_INTERLACE) != 0)
        divisor_ *= 2;
    if ((mode.flags & DRM_MODE_FLAG_DBLSCAN) != 0)
        dividend *= 2;
    if (mode.vscan > 1)
        dividend *= mode.vscan;
    whole_ = dividend / divisor_;
    part_ = dividend % divisor_;
}

std::int64_t VblankTiming::time_ns(std::uint64_t index) const {
    return start_ns_ + std::int64_t(index * whole_ + index * part_ / divisor_);
}

std::uint64_t VblankTiming::indexAt(std::int64_t board_ns) const {
    if (board_ns <= start_ns_)
        return 0;
    const double period = double(whole_) + double(part_) / double(divisor_);
    auto index = std::uint64_t(double(board_ns - start_ns_) / period);
    // The quotient can be one off at a boundary.
    while (index > 0 && time_ns(index) > board_ns)
        --index;
    while (time_ns(index + 1) <= board_ns)
        ++index;
    return index;
}

}  // namespace board
