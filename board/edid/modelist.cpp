#include "board/edid/modelist.h"

#include <drm_mode.h>

#include <algorithm>
#include <tuple>

#include "board/edid/timings.h"

namespace board {

void ModeList::add(const DisplayMode& mode) {
    for (DisplayMode& known : modes_) {
        if (known.clock_kHz == mode.clock_kHz && sameTiming(known, mode)) {
            known.type |= mode.type;
            return;
        }
    }
    modes_.push_back(mode);
}

std::vector<DisplayMode> ModeList::sorted() const {
    const auto rank = [](const DisplayMode& mode) {
        return std::make_tuple((mode.type & DRM_MODE_TYPE_PREFERRED) != 0,
                               unsigned(mode.hdisplay) * mode.vdisplay, mode.vrefresh_Hz,
                               mode.clock_kHz);
    };
    std::vector<DisplayMode> modes = modes_;
    std::stable_sort(modes.begin(), modes.end(),
                     [&](const auto& one, const auto& other) { return rank(one) > rank(other); });
    return modes;
}

}  // namespace board
