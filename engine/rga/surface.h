// A checked picture: where its planes' rectangles lie in memory.
#pragma once

#include <rga/drmrga.h>
#include <cstdint>

namespace rga {

enum class Layout {
    planar420,      // Y and two chroma planes
    semiPlanar420,  // Y and one plane of chroma pairs
    semiPlanar422,
    rgb565,
    bgr888,  // bytes B, G, R
    rgb888   // bytes R, G, B
};

// `width` counts samples, chroma pairs or pixels, `stride` bytes.
struct Plane {
    std::uint8_t* data = nullptr;
    int stride = 0;
    int width = 0;
    int height = 0;
    bool empty() const { return width <= 0 || height <= 0; }
};

// Picture of separate or paired chroma. Paired: `u` holds the pairs and `v` is unused.
struct YuvPicture {
    Plane y, u, v;
    bool paired = false;
    bool vFirst = false;  // pairs are V, U; planes are named by what they hold
};

struct Surface {
    Layout layout = Layout::planar420;
    int width = 0, height = 0;
    YuvPicture yuv;  // YUV layouts
    Plane rgb;       // RGB layouts
    bool isYuv() const { return layout <= Layout::semiPlanar422; }
};

constexpr int maximumSide = 8192;
constexpr int maximumStride = 2 * maximumSide;  // pixels; keeps every byte offset within an int

// Fills `surface` from what a caller passed. 0, or EINVAL when it is not a picture that lies within
// its own strides. Nothing of the picture's memory is touched.
int makeSurface(const rga_info& info, Surface& surface);

}  // namespace rga
