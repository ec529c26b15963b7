// A video mode's timing: when each vertical blank falls, exactly and without drift.
#pragma once

#include "board/daemon/scenario.h"

#include <drm_mode.h>

#include <cstdint>

namespace board {

drm_mode_modeinfo toModeInfo(const DisplayMode& mode);

// Whether a CRTC can run it: ordered sync positions, a clock, 1 to 1000 Hz.
bool isUsableMode(const drm_mode_modeinfo& mode);
// Whether changing from one to the other leaves the scan-out's timing as it is.
bool sameTiming(const drm_mode_modeinfo& a, const drm_mode_modeinfo& b);
// Vertical blanks a second: fields for an interlaced mode.
double refresh_Hz(const drm_mode_modeinfo& mode);

// Vertical blank k (0, 1, ...) of a usable mode falls at start + k periods, in board time.
class VblankTiming {
  public:
    VblankTiming() = default;
    VblankTiming(const drm_mode_modeinfo& mode, std::int64_t start_ns);

    std::int64_t time_ns(std::uint64_t index) const;
    // The last vertical blank at or before `board_ns`; 0 before the start.
    std::uint64_t indexAt(std::int64_t board_ns) const;

  private:
    std::int64_t start_ns_ = 0;
    // Period in ns = whole + part / divisor.
    std::uint64_t whole_ = 1, part_ = 0, divisor_ = 1;
};

}  // namespace board
