#include "engine/rga/surface.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <iterator>

namespace rga {
namespace {

struct Format {
    int code;
    Layout layout;
    bool vFirst;
};

constexpr Format formats[] = {
    {RK_FORMAT_YCrCb_420_P, Layout::planar420, true},
    {RK_FORMAT_YCbCr_420_P, Layout::planar420, false},
    {RK_FORMAT_YCrCb_420_SP, Layout::semiPlanar420, true},
    {RK_FORMAT_YCbCr_420_SP, Layout::semiPlanar420, false},
    {RK_FORMAT_YCrCb_422_SP, Layout::semiPlanar422, true},
    {RK_FORMAT_YCbCr_422_SP, Layout::semiPlanar422, false},
    {RK_FORMAT_RGB_565, Layout::rgb565, false},
    {RK_FORMAT_BGR_888, Layout::bgr888, false},
    {RK_FORMAT_RGB_888, Layout::rgb888, false},
};

const Format* findFormat(int code) {
    const auto* found = std::find_if(std::begin(formats), std::end(formats),
                                     [code](const Format& format) { return format.code == code; });
    return found == std::end(formats) ? nullptr : found;
}

bool lies(int offset, int length, int stride) {
    return offset >= 0 && length > 0 && length <= maximumSide && stride <= maximumStride &&
           offset <= stride - length;
}

bool lies(const rga_rect& rect) {
    return lies(rect.xoffset, rect.width, rect.wstride) &&
           lies(rect.yoffset, rect.height, rect.hstride);
}

// The part of a chroma plane under a rectangle. The plane has half the stride's samples, rounded
// down: of an odd stride the last column (or line) has no chroma of its own in memory.
Plane chromaPlane(std::uint8_t* plane, const rga_rect& rect, bool paired, bool halfHeight) {
    const int columns = rect.wstride / 2;
    const int lines = halfHeight ? rect.hstride / 2 : rect.hstride;
    const int x = rect.xoffset / 2;
    const int y = halfHeight ? rect.yoffset / 2 : rect.yoffset;
    const int height = halfHeight ? (rect.height + 1) / 2 : rect.height;
    Plane part;
    part.width = std::min((rect.width + 1) / 2, columns - x);
    part.height = std::min(height, lines - y);
    part.stride = paired ? rect.wstride : columns;
    part.data = plane + static_cast<std::ptrdiff_t>(y) * part.stride + (paired ? 2 * x : x);
    return part;
}

void makeYuv(std::uint8_t* memory, const rga_rect& rect, const Format& format, YuvPicture& yuv) {
    const std::ptrdiff_t lumaBytes = static_cast<std::ptrdiff_t>(rect.wstride) * rect.hstride;
    yuv.vFirst = format.vFirst;
    yuv.paired = format.layout != Layout::planar420;
    yuv.y.data = memory + static_cast<std::ptrdiff_t>(rect.yoffset) * rect.wstride + rect.xoffset;
    yuv.y.stride = rect.wstride;
    yuv.y.width = rect.width;
    yuv.y.height = rect.height;
    if (yuv.paired) {
        yuv.u = chromaPlane(memory + lumaBytes, rect, true, format.layout == Layout::semiPlanar420);
        return;
    }
    Plane first = chromaPlane(memory + lumaBytes, rect, false, true);
    Plane second = chromaPlane(memory + lumaBytes + lumaBytes / 4, rect, false, true);
    yuv.u = format.vFirst ? second : first;
    yuv.v = format.vFirst ? first : second;
}

}  // namespace

int makeSurface(const rga_info& info, Surface& surface) {
    const rga_rect& rect = info.rect;
    const Format* format = findFormat(rect.format != 0 ? rect.format : info.format);
    if (info.virAddr == nullptr || format == nullptr || !lies(rect)) {
        return EINVAL;
    }
    auto* memory = static_cast<std::uint8_t*>(info.virAddr);
    surface.layout = format->layout;
    surface.width = rect.width;
    surface.height = rect.height;
    if (surface.isYuv()) {
        makeYuv(memory, rect, *format, surface.yuv);
        return 0;
    }
    const int pixelBytes = format->layout == Layout::rgb565 ? 2 : 3;
    surface.rgb.stride = rect.wstride * pixelBytes;
    surface.rgb.data = memory + static_cast<std::ptrdiff_t>(rect.yoffset) * surface.rgb.stride +
                       static_cast<std::ptrdiff_t>(rect.xoffset) * pixelBytes;
    surface.rgb.width = rect.width;
    surface.rgb.height = rect.height;
    return 0;
}

}  // namespace rga
