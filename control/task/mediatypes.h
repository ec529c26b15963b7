// The small values that the whole pipeline passes around.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <string>

// Name of one pixel format.
struct fmtStr {
    fmtStr() = default;
    fmtStr(std::uint32_t fourcc, std::string name) : fourcc(fourcc), name(std::move(name)) {}

    std::uint32_t fourcc = 0;  // V4L2 four-character code
    std::string name;          // padded, for printouts
};

// One capture mode of the camera, or a display mode dressed as one.
struct uvcFmt {
    // A mode with this code is not one of the camera's.
    static constexpr std::uint32_t notACameraMode = 0xFFFFFFFFU;

    uvcFmt() = default;
    uvcFmt(std::uint32_t width, std::uint32_t height, std::uint32_t fps, fmtStr fmt)
        : width(width), height(height), fps(fps), fmt(std::move(fmt)) {}

    // Descending orders for sorting. The bandwidth wraps at 32 bits.
    static bool cmp_fps(const uvcFmt& a, const uvcFmt& b);
    static bool cmp_totalBandwidth(const uvcFmt& a, const uvcFmt& b);

    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::uint32_t fps = 0;  // whole frames a second
    fmtStr fmt;
};

// One line, with its end; nothing for a mode that is not the camera's.
std::ostream& operator<<(std::ostream& out, const uvcFmt& mode);

// One audio format.
struct audioInfo {
    std::string device;       // ALSA device name, empty in parsed list entries
    std::int32_t format = 0;  // ALSA sample format number, -1 for none
    std::uint32_t rate = 0;   // Hz
    std::uint16_t channels = 0;
};

// One video mode as decoders and display see it.
struct decInfo {
    std::uint32_t format = 0;  // V4L2 four-character code; not filled in display modes
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::uint32_t fps = 0;  // of a display mode: its vertical refresh in Hz
};
