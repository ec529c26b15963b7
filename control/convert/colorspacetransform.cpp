#include "control/convert/colorspacetransform.h"

#include "control/convert/rkrga.h"
#include "control/task/fourcc.h"

#include <libyuv.h>
#include <algorithm>
#include <memory>
#include <new>

namespace {

// The engine's format codes. YUV pictures go in and come out under the chroma-swapped code of
// their layout, which cancels out; 24-bit RGB goes in under the code of BGR order.
constexpr int engineRgb565 = 0x400;
constexpr int engineBgr888 = 0x700;
constexpr int engineSemiPlanar422 = 0xC00;
constexpr int engineSemiPlanar420 = 0xE00;
constexpr int enginePlanar420 = 0xF00;

int sizeRgb16(int width, int height) {
    return static_cast<int>(static_cast<std::uint32_t>(width) * static_cast<std::uint32_t>(height) *
                            2U);
}

int sizeNv12(int width, int height) {
    return static_cast<int>(static_cast<std::uint32_t>(width) * static_cast<std::uint32_t>(height) *
                            3U) /
           2;
}

// The hardware decoders' output frames have strides of this multiple.
constexpr unsigned int alignUp16(unsigned int value) {
    return (value + 15U) & ~15U;
}

bool canConvert(const msgVideo* dst) {
    return dst->outData[0] != nullptr && RkRga::getRgaDev() != nullptr;
}

struct Source {
    unsigned char* picture;
    unsigned int width, height, widthStride, heightStride;
    int format;
};

void blit(const Source& src, msgVideo* dst, int dstFormat) {
    // The lines of a scan-out buffer may be further apart than the picture is wide.
    const unsigned int dstStride = std::max(dst->virWidth, dst->width);
    RkRga::getRgaDev()->rgaColorSpaceSwitch(
        src.picture, static_cast<int>(src.width), static_cast<int>(src.height),
        static_cast<int>(src.widthStride), static_cast<int>(src.heightStride), src.format,
        dst->outData[0], static_cast<int>(dst->width), static_cast<int>(dst->height),
        static_cast<int>(dstStride), static_cast<int>(dst->height), dstFormat);
}

void setByteCounts(msgVideo* dst, int (*sizeFunc)(int, int)) {
    const int bytes = sizeFunc(static_cast<int>(dst->width), static_cast<int>(dst->height));
    dst->size[0] = static_cast<std::uint32_t>(bytes);
    dst->length[0] = static_cast<std::uint32_t>(bytes);
}

int (*sizeFuncOf(int dstFormat))(int, int) {
    return dstFormat == engineRgb565 ? sizeRgb16 : sizeNv12;
}

// Frames of a hardware decoder: strides are rounded up.
bool convertDecoded(unsigned char** srcPlanes, unsigned int width, unsigned int height,
                    int srcFormat, msgVideo* dst, int dstFormat) {
    if (!canConvert(dst)) {
        return false;
    }
    blit({srcPlanes[0], width, height, alignUp16(width), alignUp16(height), srcFormat}, dst,
         dstFormat);
    setByteCounts(dst, sizeFuncOf(dstFormat));
    return true;
}

// The engine is fed planar 4:2:0 for packed YUYV, which takes one pass in software.
bool convertYuyv(unsigned char** srcPlanes, unsigned int width, unsigned int height, msgVideo* dst,
                 int dstFormat) {
    if (!canConvert(dst)) {
        return false;
    }
    const std::size_t pixels = static_cast<std::size_t>(width) * height;
    const std::unique_ptr<unsigned char[]> planar(new (std::nothrow) unsigned char[pixels * 3]);
    if (!planar) {
        return false;
    }
    const int rowLength = static_cast<int>(width);
    libyuv::YUY2ToI420(srcPlanes[0], rowLength * 2, planar.get(), rowLength, planar.get() + pixels,
                       rowLength / 2, planar.get() + pixels * 5 / 4, rowLength / 2, rowLength,
                       static_cast<int>(height));
    blit({planar.get(), width, height, width, height, enginePlanar420}, dst, dstFormat);
    return true;
}

const ColorSpaceIndex colorSpaceTable[9] = {
    {fourccOf("YUYV"), fourccOf("RGBP"), ColorSpaceTransform::yuyv422ToRgb16, sizeRgb16},
    {fourccOf("YU12"), fourccOf("RGBP"), ColorSpaceTransform::yuv420ToRgb16, sizeRgb16},
    {fourccOf("NV12"), fourccOf("RGBP"), ColorSpaceTransform::nv12ToRgb16, sizeRgb16},
    {fourccOf("NV16"), fourccOf("RGBP"), ColorSpaceTransform::nv16ToRgb16, sizeRgb16},
    {fourccOf("YUYV"), fourccOf("NV12"), ColorSpaceTransform::yuyv422ToNv12, sizeNv12},
    {fourccOf("YU12"), fourccOf("NV12"), ColorSpaceTransform::yuv420ToNv12, sizeNv12},
    {fourccOf("NV12"), fourccOf("NV12"), ColorSpaceTransform::nv12ToNv12, sizeNv12},
    {fourccOf("NV16"), fourccOf("NV12"), ColorSpaceTransform::nv16ToNv12, sizeNv12},
    {fourccOf("RGB3"), fourccOf("NV12"), ColorSpaceTransform::rgb24ToNv12, sizeNv12},
};

}  // namespace

ColorSpaceTransform::ColorSpaceTransform(int srcFormat, int dstFormat, int width, int height) {
    for (const ColorSpaceIndex& row : colorSpaceTable) {
        if (row.srcFormat == static_cast<std::uint32_t>(srcFormat) &&
            row.dstFormat == static_cast<std::uint32_t>(dstFormat)) {
            index = row;
            dstSize = static_cast<std::uint32_t>(index.sizeFunc(width, height));
            return;
        }
    }
}

unsigned int ColorSpaceTransform::getDstSize() const {
    return dstSize;
}

bool ColorSpaceTransform::receiveImage(unsigned char** srcPlanes, unsigned int* srcSizes,
                                       unsigned int width, unsigned int height,
                                       msgVideo* dst) const {
    if (!index.convertFunc) {
        return false;
    }
    return index.convertFunc(srcPlanes, srcSizes, width, height, dst);
}

bool ColorSpaceTransform::yuyv422ToRgb16(unsigned char** srcPlanes, unsigned int* /*srcSizes*/,
                                         unsigned int width, unsigned int height, msgVideo* dst) {
    if (!convertYuyv(srcPlanes, width, height, dst, engineRgb565)) {
        return false;
    }
    setByteCounts(dst, sizeRgb16);
    return true;
}

bool ColorSpaceTransform::yuyv422ToNv12(unsigned char** srcPlanes, unsigned int* /*srcSizes*/,
                                        unsigned int width, unsigned int height, msgVideo* dst) {
    return convertYuyv(srcPlanes, width, height, dst, engineSemiPlanar420);
}

bool ColorSpaceTransform::yuv420ToRgb16(unsigned char** srcPlanes, unsigned int* /*srcSizes*/,
                                        unsigned int width, unsigned int height, msgVideo* dst) {
    return convertDecoded(srcPlanes, width, height, enginePlanar420, dst, engineRgb565);
}

bool ColorSpaceTransform::yuv420ToNv12(unsigned char** srcPlanes, unsigned int* /*srcSizes*/,
                                       unsigned int width, unsigned int height, msgVideo* dst) {
    return convertDecoded(srcPlanes, width, height, enginePlanar420, dst, engineSemiPlanar420);
}

bool ColorSpaceTransform::nv12ToRgb16(unsigned char** srcPlanes, unsigned int* /*srcSizes*/,
                                      unsigned int width, unsigned int height, msgVideo* dst) {
    return convertDecoded(srcPlanes, width, height, engineSemiPlanar420, dst, engineRgb565);
}

bool ColorSpaceTransform::nv12ToNv12(unsigned char** srcPlanes, unsigned int* /*srcSizes*/,
                                     unsigned int width, unsigned int height, msgVideo* dst) {
    return convertDecoded(srcPlanes, width, height, engineSemiPlanar420, dst, engineSemiPlanar420);
}

bool ColorSpaceTransform::nv16ToRgb16(unsigned char** srcPlanes, unsigned int* /*srcSizes*/,
                                      unsigned int width, unsigned int height, msgVideo* dst) {
    return convertDecoded(srcPlanes, width, height, engineSemiPlanar422, dst, engineRgb565);
}

bool ColorSpaceTransform::nv16ToNv12(unsigned char** srcPlanes, unsigned int* /*srcSizes*/,
                                     unsigned int width, unsigned int height, msgVideo* dst) {
    return convertDecoded(srcPlanes, width, height, engineSemiPlanar422, dst, engineSemiPlanar420);
}

bool ColorSpaceTransform::rgb24ToNv12(unsigned char** srcPlanes, unsigned int* /*srcSizes*/,
                                      unsigned int width, unsigned int height, msgVideo* dst) {
    if (!canConvert(dst)) {
        return false;
    }
    blit({srcPlanes[0], width, height, width, height, engineBgr888}, dst, engineSemiPlanar420);
    setByteCounts(dst, sizeNv12);
    return true;
}
