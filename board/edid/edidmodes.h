// A display's modes out of its EDID.
#pragma once

#include <cstdint>
#include <vector>

#include "board/daemon/scenario.h"

namespace board {

// The modes that a kernel lists for a display with this EDID, in its order: preferred first, then
// by size, rate and clock, largest first. No mode stands there twice. Reads the base block, CTA-861
// and DisplayID extensions; formats that a display takes as 4:2:0 only and stereo modes are left
// out, as for a driver that knows neither. Blocks with a wrong check sum are skipped; nothing comes
// of a base block without a header. Any bytes are safe. Any thread.
std::vector<DisplayMode> modesFromEdid(const std::vector<std::uint8_t>& edid);

}  // namespace board
