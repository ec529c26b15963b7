// Which conversion takes a picture of one pixel format to another, and how large the result is.
#pragma once

#include "control/task/msgvideo.h"

#include <cstdint>
#include <functional>

// One row of the conversion table. Formats are V4L2 four-character codes.
struct ColorSpaceIndex {
    std::uint32_t srcFormat = 0;
    std::uint32_t dstFormat = 0;
    // See the conversion functions below.
    std::function<bool(unsigned char** srcPlanes, unsigned int* srcSizes, unsigned int width,
                       unsigned int height, msgVideo* dst)>
        convertFunc;
    std::function<int(int width, int height)> sizeFunc;  // bytes of a destination picture
};

// The conversion of one stream; short-lived, holds no resources.
class ColorSpaceTransform {
  public:
    // width and height are the destination's.
    ColorSpaceTransform(int srcFormat, int dstFormat, int width, int height);

    // Bytes of one destination picture; 0 when there is no conversion for the pair.
    unsigned int getDstSize() const;
    // width and height are the source's. False when there is no conversion.
    bool receiveImage(unsigned char** srcPlanes, unsigned int* srcSizes, unsigned int width,
                      unsigned int height, msgVideo* dst) const;

    // The conversions scale srcPlanes[0] (width x height) into dst->outData[0]: dst->width x
    // dst->height, lines dst->virWidth pixels apart (dst->width when that is smaller), and set
    // dst->size[0] and dst->length[0]. srcSizes is not looked at and may be null. False, nothing
    // touched, without a destination or an engine. What the engine says of the blit is not looked
    // at: a refused one leaves the buffer as it was.
    static bool yuyv422ToRgb16(unsigned char** srcPlanes, unsigned int* srcSizes,
                               unsigned int width, unsigned int height, msgVideo* dst);
    static bool yuv420ToRgb16(unsigned char** srcPlanes, unsigned int* srcSizes, unsigned int width,
                              unsigned int height, msgVideo* dst);
    static bool nv12ToRgb16(unsigned char** srcPlanes, unsigned int* srcSizes, unsigned int width,
                            unsigned int height, msgVideo* dst);
    static bool nv16ToRgb16(unsigned char** srcPlanes, unsigned int* srcSizes, unsigned int width,
                            unsigned int height, msgVideo* dst);
    // Leaves size[0] and length[0] alone.
    static bool yuyv422ToNv12(unsigned char** srcPlanes, unsigned int* srcSizes, unsigned int width,
                              unsigned int height, msgVideo* dst);
    static bool yuv420ToNv12(unsigned char** srcPlanes, unsigned int* srcSizes, unsigned int width,
                             unsigned int height, msgVideo* dst);
    static bool nv12ToNv12(unsigned char** srcPlanes, unsigned int* srcSizes, unsigned int width,
                           unsigned int height, msgVideo* dst);
    static bool nv16ToNv12(unsigned char** srcPlanes, unsigned int* srcSizes, unsigned int width,
                           unsigned int height, msgVideo* dst);
    static bool rgb24ToNv12(unsigned char** srcPlanes, unsigned int* srcSizes, unsigned int width,
                            unsigned int height, msgVideo* dst);

  private:
    std::uint32_t dstSize = 0;
    ColorSpaceIndex index;
};
