// Standard timings and the formulas for others.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "board/daemon/scenario.h"

namespace board {

// Rounded refresh rate as the kernel computes it from the timing; fields of an interlaced mode.
std::uint32_t refreshRate(const DisplayMode& mode);
// Sets name and refresh rate from the timing.
void finishMode(DisplayMode& mode);
// Same timing, polarity and scanning; the clocks may differ.
bool sameTiming(const DisplayMode& one, const DisplayMode& other);
bool isReducedBlanking(const DisplayMode& mode);

// CTA-861 format by its code, null for a code without one.
const DisplayMode* modeForVic(unsigned vic);
const std::vector<DisplayMode>& ctaModes();
// The formats of HDMI 1.4 by their code (1 to 4), null for others.
const DisplayMode* modeForHdmiVic(unsigned vic);
// The clock of the format's other variant (59.94 for 60 Hz), or its own where there is none.
std::uint32_t alternateClock(const DisplayMode& mode);

// VESA monitor timings.
const std::vector<DisplayMode>& dmtModes();
const DisplayMode* findDmt(unsigned width, unsigned height, unsigned rate, bool reducedBlanking);
// Established timings, bit 0 the highest of the EDID's first byte.
constexpr unsigned establishedCount = 17;
const DisplayMode& establishedMode(unsigned bit);

// VESA coordinated video timing and generalised timing formula, without margins. Nothing for
// figures that give no mode of 16-bit fields.
std::optional<DisplayMode> cvtMode(unsigned width, unsigned height, unsigned rate);
std::optional<DisplayMode> gtfMode(unsigned width, unsigned height, unsigned rate);

}  // namespace board
