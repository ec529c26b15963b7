#include <drm_mode.h>

#include <algorithm>
#include <cstdlib>

#include "board/edid/edidblock.h"
#include "board/edid/timings.h"

namespace board {
namespace {

constexpr int clockStep_kHz = 5;

struct Size {
    std::uint16_t width, height;
};

// Detailed timings say the lines of one field; the kernel lists whole pictures.
void joinFields(DisplayMode& mode) {
    constexpr Size interlaced[] = {{1920, 1080}, {720, 480},  {1440, 480}, {2880, 480},
                                   {720, 576},   {1440, 576}, {2880, 576}};
    for (const Size& size : interlaced) {
        if (mode.hdisplay == size.width && mode.vdisplay == size.height / 2) {
            mode.vdisplay = std::uint16_t(mode.vdisplay * 2);
            mode.vsyncStart = std::uint16_t(mode.vsyncStart * 2);
            mode.vsyncEnd = std::uint16_t(mode.vsyncEnd * 2);
            mode.vtotal = std::uint16_t(mode.vtotal * 2 | 1);
        }
    }
    mode.flags |= DRM_MODE_FLAG_INTERLACE;
}

// Descriptors have steps of 10 kHz: 148.35 MHz stands for 148.352.
void snapToCtaClock(DisplayMode& mode) {
    for (const DisplayMode& cta : ctaModes()) {
        if (!sameTiming(cta, mode))
            continue;
        for (const std::uint32_t clock : {cta.clock_kHz, alternateClock(cta)})
            if (std::abs(int(mode.clock_kHz) - int(clock)) <= clockStep_kHz)
                mode.clock_kHz = clock;
        return;
    }
}

std::uint32_t syncFlags(std::uint8_t bits) {
    return (bits & 0x02 ? DRM_MODE_FLAG_PHSYNC : DRM_MODE_FLAG_NHSYNC) |
           (bits & 0x04 ? DRM_MODE_FLAG_PVSYNC : DRM_MODE_FLAG_NVSYNC);
}

}  // namespace

bool addDetailedTiming(const std::uint8_t* d, bool preferred, ModeList& list) {
    const unsigned clock = unsigned(d[0] | d[1] << 8);
    const unsigned hactive = unsigned(d[2] | (d[4] & 0xf0) << 4);
    const unsigned hblank = unsigned(d[3] | (d[4] & 0x0f) << 8);
    const unsigned vactive = unsigned(d[5] | (d[7] & 0xf0) << 4);
    const unsigned vblank = unsigned(d[6] | (d[7] & 0x0f) << 8);
    const unsigned hfront = unsigned(d[8] | (d[11] & 0xc0) << 2);
    const unsigned hsync = unsigned(d[9] | (d[11] & 0x30) << 4);
    const unsigned vfront = unsigned(d[10] >> 4 | (d[11] & 0x0c) << 2);
    const unsigned vsync = unsigned((d[10] & 0x0f) | (d[11] & 0x03) << 4);
    const bool stereo = (d[17] & 0x60) != 0;
    if (clock == 0 || hactive < 64 || vactive < 64 || hsync == 0 || vsync == 0 || stereo)
        return false;
    if (hfront >= hblank || vfront >= vblank)
        return false;
    DisplayMode mode;
    mode.clock_kHz = clock * 10;
    mode.hdisplay = std::uint16_t(hactive);
    mode.hsyncStart = std::uint16_t(hactive + hfront);
    // Some displays' sync reaches beyond their own total, which gives the right rate.
    mode.hsyncEnd = std::uint16_t(hactive + std::min(hfront + hsync, hblank));
    mode.htotal = std::uint16_t(hactive + hblank);
    mode.vdisplay = std::uint16_t(vactive);
    mode.vsyncStart = std::uint16_t(vactive + vfront);
    mode.vsyncEnd = std::uint16_t(vactive + std::min(vfront + vsync, vblank));
    mode.vtotal = std::uint16_t(vactive + vblank);
    mode.flags = syncFlags(d[17]);
    if (d[17] & 0x80)
        joinFields(mode);
    snapToCtaClock(mode);
    mode.type = DRM_MODE_TYPE_DRIVER | (preferred ? DRM_MODE_TYPE_PREFERRED : 0);
    finishMode(mode);
    list.add(mode);
    return true;
}

}  // namespace board
