#include "board/edid/timings.h"

#include <drm_mode.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <string>

namespace board {
namespace {

struct Row {
    unsigned id;
    std::uint32_t clock_kHz;
    std::uint16_t hdisplay, hsyncStart, hsyncEnd, htotal;
    std::uint16_t vdisplay, vsyncStart, vsyncEnd, vtotal;
    const char* flags;
};

constexpr Row ctaRows[] = {
#include "board/edid/vic.inc"
};
constexpr Row dmtRows[] = {
#include "board/edid/dmt.inc"
};
constexpr Row establishedRows[] = {
#include "board/edid/established.inc"
};
static_assert(std::size(establishedRows) == establishedCount);
constexpr Row hdmiRows[] = {
    {1, 297000, 3840, 4016, 4104, 4400, 2160, 2168, 2178, 2250, "++"},
    {2, 297000, 3840, 4896, 4984, 5280, 2160, 2168, 2178, 2250, "++"},
    {3, 297000, 3840, 5116, 5204, 5500, 2160, 2168, 2178, 2250, "++"},
    {4, 297000, 4096, 5116, 5204, 5500, 2160, 2168, 2178, 2250, "++"},
};

DisplayMode makeMode(const Row& row) {
    DisplayMode mode;
    mode.clock_kHz = row.clock_kHz;
    mode.hdisplay = row.hdisplay;
    mode.hsyncStart = row.hsyncStart;
    mode.hsyncEnd = row.hsyncEnd;
    mode.htotal = row.htotal;
    mode.vdisplay = row.vdisplay;
    mode.vsyncStart = row.vsyncStart;
    mode.vsyncEnd = row.vsyncEnd;
    mode.vtotal = row.vtotal;
    const std::string flags = row.flags;
    mode.flags = flags[0] == '+' ? DRM_MODE_FLAG_PHSYNC : DRM_MODE_FLAG_NHSYNC;
    mode.flags |= flags[1] == '+' ? DRM_MODE_FLAG_PVSYNC : DRM_MODE_FLAG_NVSYNC;
    if (flags.find('i') != std::string::npos)
        mode.flags |= DRM_MODE_FLAG_INTERLACE;
    if (flags.find('d') != std::string::npos)
        mode.flags |= DRM_MODE_FLAG_DBLCLK;
    mode.type = DRM_MODE_TYPE_DRIVER;
    finishMode(mode);
    return mode;
}

template <std::size_t Count>
std::vector<DisplayMode> makeModes(const Row (&rows)[Count]) {
    std::vector<DisplayMode> modes;
    for (const Row& row : rows)
        modes.push_back(makeMode(row));
    return modes;
}

// The mode whose row has this id; `modes` were made from `rows`.
template <std::size_t Count>
const DisplayMode* findId(const Row (&rows)[Count], const std::vector<DisplayMode>& modes,
                          unsigned id) {
    const auto* row = std::find_if(std::begin(rows), std::end(rows),
                                   [id](const Row& candidate) { return candidate.id == id; });
    return row == std::end(rows) ? nullptr : &modes[std::size_t(row - std::begin(rows))];
}

struct Figures {
    double clock_kHz, hfront, hsync, hblank;
    double vfront, vsync, vblank;
};

std::optional<DisplayMode> makeMode(unsigned width, unsigned height, const Figures& figures,
                                    std::uint32_t flags) {
    const double htotal = width + figures.hblank, vtotal = height + figures.vblank;
    if (!(htotal <= UINT16_MAX && vtotal <= UINT16_MAX && figures.hblank > 0 &&
          figures.hfront >= 0 && figures.hsync > 0 && figures.clock_kHz >= 1 &&
          figures.clock_kHz < 10e6))
        return std::nullopt;
    DisplayMode mode;
    mode.clock_kHz = std::uint32_t(figures.clock_kHz);
    mode.hdisplay = std::uint16_t(width);
    mode.hsyncStart = std::uint16_t(width + figures.hfront);
    mode.hsyncEnd = std::uint16_t(mode.hsyncStart + figures.hsync);
    mode.htotal = std::uint16_t(htotal);
    mode.vdisplay = std::uint16_t(height);
    mode.vsyncStart = std::uint16_t(height + figures.vfront);
    mode.vsyncEnd = std::uint16_t(mode.vsyncStart + figures.vsync);
    mode.vtotal = std::uint16_t(vtotal);
    mode.flags = flags;
    mode.type = DRM_MODE_TYPE_DRIVER;
    finishMode(mode);
    return mode;
}

bool isPlausible(unsigned width, unsigned height, unsigned rate) {
    return width > 0 && height > 0 && width <= 16384 && height <= 16384 && rate > 0 && rate <= 400;
}

// Lines of vertical sync tell the shape of the picture.
double cvtSyncLines(unsigned width, unsigned height) {
    const auto hasShape = [=](unsigned x, unsigned y) { return width == height * x / y; };
    if (hasShape(4, 3))
        return 4;
    if (hasShape(16, 9))
        return 5;
    if (hasShape(16, 10))
        return 6;
    return hasShape(5, 4) || hasShape(15, 9) ? 7 : 10;
}

}  // namespace

std::uint32_t refreshRate(const DisplayMode& mode) {
    std::uint64_t pixels = std::uint64_t(mode.clock_kHz) * 1000;
    std::uint64_t frame = std::uint64_t(mode.htotal) * mode.vtotal;
    if (mode.flags & DRM_MODE_FLAG_INTERLACE)
        pixels *= 2;
    if (mode.flags & DRM_MODE_FLAG_DBLSCAN)
        frame *= 2;
    return frame == 0 ? 0 : std::uint32_t((pixels + frame / 2) / frame);
}

void finishMode(DisplayMode& mode) {
    mode.vrefresh_Hz = refreshRate(mode);
    mode.name = std::to_string(mode.hdisplay) + "x" + std::to_string(mode.vdisplay);
    if (mode.flags & DRM_MODE_FLAG_INTERLACE)
        mode.name += "i";
}

bool sameTiming(const DisplayMode& one, const DisplayMode& other) {
    return one.hdisplay == other.hdisplay && one.hsyncStart == other.hsyncStart &&
           one.hsyncEnd == other.hsyncEnd && one.htotal == other.htotal &&
           one.vdisplay == other.vdisplay && one.vsyncStart == other.vsyncStart &&
           one.vsyncEnd == other.vsyncEnd && one.vtotal == other.vtotal && one.flags == other.flags;
}

bool isReducedBlanking(const DisplayMode& mode) {
    return mode.htotal - mode.hdisplay == 160 && mode.hsyncEnd - mode.hdisplay == 80 &&
           mode.hsyncEnd - mode.hsyncStart == 32 && mode.vsyncStart - mode.vdisplay == 3;
}

const std::vector<DisplayMode>& ctaModes() {
    static const std::vector<DisplayMode> modes = makeModes(ctaRows);
    return modes;
}

const DisplayMode* modeForVic(unsigned vic) {
    return findId(ctaRows, ctaModes(), vic);
}

const DisplayMode* modeForHdmiVic(unsigned vic) {
    static const std::vector<DisplayMode> modes = makeModes(hdmiRows);
    return findId(hdmiRows, modes, vic);
}

std::uint32_t alternateClock(const DisplayMode& mode) {
    if (mode.vrefresh_Hz % 6 != 0)
        return mode.clock_kHz;
    // Formats of the NTSC family are listed at 59.94 Hz, the others at 60 Hz.
    const std::uint64_t clock = mode.clock_kHz;
    if (mode.vdisplay == 240 || mode.vdisplay == 480)
        return std::uint32_t((clock * 1001 + 500) / 1000);
    return std::uint32_t((clock * 1000 + 500) / 1001);
}

const std::vector<DisplayMode>& dmtModes() {
    static const std::vector<DisplayMode> modes = makeModes(dmtRows);
    return modes;
}

const DisplayMode* findDmt(unsigned width, unsigned height, unsigned rate, bool reducedBlanking) {
    for (const DisplayMode& mode : dmtModes())
        if (mode.hdisplay == width && mode.vdisplay == height && mode.vrefresh_Hz == rate &&
            isReducedBlanking(mode) == reducedBlanking)
            return &mode;
    return nullptr;
}

const DisplayMode& establishedMode(unsigned bit) {
    static const std::vector<DisplayMode> modes = makeModes(establishedRows);
    return modes.at(bit);
}

std::optional<DisplayMode> cvtMode(unsigned width, unsigned height, unsigned rate) {
    if (!isPlausible(width, height, rate))
        return std::nullopt;
    width -= width % 8;
    const double sync = cvtSyncLines(width, height);
    const double linePeriod_us = (1e6 / rate - 550) / (height + 3);
    const double syncAndBack = std::max(std::floor(550 / linePeriod_us) + 1, sync + 6);
    const double duty = std::max(30 - 300 * linePeriod_us / 1000, 20.0);
    Figures figures{};
    figures.vfront = 3;
    figures.vsync = sync;
    figures.vblank = syncAndBack + 3;
    figures.hblank = std::floor(width * duty / (100 - duty) / 16) * 16;
    const double htotal = width + figures.hblank;
    figures.clock_kHz = std::floor(htotal / linePeriod_us * 1000 / 250) * 250;
    figures.hsync = std::floor(htotal * 8 / 100 / 8) * 8;
    figures.hfront = figures.hblank / 2 - figures.hsync;
    return makeMode(width, height, figures, DRM_MODE_FLAG_NHSYNC | DRM_MODE_FLAG_PVSYNC);
}

std::optional<DisplayMode> gtfMode(unsigned width, unsigned height, unsigned rate) {
    if (!isPlausible(width, height, rate))
        return std::nullopt;
    width = (width + 4) / 8 * 8;
    const double estimate_us = (1e6 / rate - 550) / (height + 1);
    Figures figures{};
    figures.vfront = 1;
    figures.vsync = 3;
    figures.vblank = std::round(550 / estimate_us) + 1;
    const double linePeriod_us = 1e6 / rate / (height + figures.vblank);
    const double duty = 30 - 300 * linePeriod_us / 1000;
    figures.hblank = std::round(width * duty / (100 - duty) / 16) * 16;
    const double htotal = width + figures.hblank;
    figures.clock_kHz = std::floor(htotal / linePeriod_us * 1000 + 0.5);
    figures.hsync = std::round(htotal * 8 / 100 / 8) * 8;
    figures.hfront = figures.hblank / 2 - figures.hsync;
    return makeMode(width, height, figures, DRM_MODE_FLAG_NHSYNC | DRM_MODE_FLAG_PVSYNC);
}

}  // namespace board
