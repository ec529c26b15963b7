#include <drm_mode.h>

#include "board/edid/edidblock.h"
#include "board/edid/timings.h"

namespace board {
namespace {

constexpr std::size_t sectionHeader = 1, sectionHeaderBytes = 4, blockHeaderBytes = 3;
constexpr std::size_t timingBytes = 20, checkSum = 127;
constexpr std::uint8_t typeOne = 0x03, typeSeven = 0x22;

unsigned word(const std::uint8_t* bytes) {
    return unsigned(bytes[0] | bytes[1] << 8);
}

void addTiming(const std::uint8_t* t, unsigned clockUnit_kHz, ModeList& list) {
    const unsigned clock = unsigned(t[0] | t[1] << 8 | t[2] << 16) + 1;
    const unsigned hactive = word(t + 4) + 1, hblank = word(t + 6) + 1;
    const unsigned hfront = (word(t + 8) & 0x7fff) + 1, hsync = word(t + 10) + 1;
    const unsigned vactive = word(t + 12) + 1, vblank = word(t + 14) + 1;
    const unsigned vfront = (word(t + 16) & 0x7fff) + 1, vsync = word(t + 18) + 1;
    const bool fits = hactive + hblank <= UINT16_MAX && vactive + vblank <= UINT16_MAX &&
                      hfront + hsync <= hblank && vfront + vsync <= vblank;
    if (!fits)
        return;
    DisplayMode mode;
    mode.clock_kHz = clock * clockUnit_kHz;
    mode.hdisplay = std::uint16_t(hactive);
    mode.hsyncStart = std::uint16_t(hactive + hfront);
    mode.hsyncEnd = std::uint16_t(hactive + hfront + hsync);
    mode.htotal = std::uint16_t(hactive + hblank);
    mode.vdisplay = std::uint16_t(vactive);
    mode.vsyncStart = std::uint16_t(vactive + vfront);
    mode.vsyncEnd = std::uint16_t(vactive + vfront + vsync);
    mode.vtotal = std::uint16_t(vactive + vblank);
    mode.flags = t[9] & 0x80 ? DRM_MODE_FLAG_PHSYNC : DRM_MODE_FLAG_NHSYNC;
    mode.flags |= t[17] & 0x80 ? DRM_MODE_FLAG_PVSYNC : DRM_MODE_FLAG_NVSYNC;
    mode.type = DRM_MODE_TYPE_DRIVER | (t[3] & 0x80 ? DRM_MODE_TYPE_PREFERRED : 0);
    finishMode(mode);
    list.add(mode);
}

}  // namespace

void addDisplayIdTimings(const EdidBlock& block, ModeList& list) {
    const std::size_t start = sectionHeader + sectionHeaderBytes;
    std::size_t end = start + block[sectionHeader + 1];
    if (end > checkSum)
        end = checkSum;
    for (std::size_t at = start; at + blockHeaderBytes <= end;) {
        const std::size_t length = block[at + 2];
        const std::uint8_t kind = block[at];
        const std::size_t next = at + blockHeaderBytes + length;
        if (next > end || (kind == 0 && length == 0))
            return;
        if (kind == typeOne || kind == typeSeven)
            for (std::size_t t = at + blockHeaderBytes; t + timingBytes <= next; t += timingBytes)
                addTiming(&block[t], kind == typeOne ? 10 : 1, list);
        at = next;
    }
}

}  // namespace board
