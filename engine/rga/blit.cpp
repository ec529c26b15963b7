#include "engine/rga/blit.h"

#include <algorithm>
#include <cerrno>
#include <new>

#include <libyuv.h>

#include "engine/rga/convert.h"
#include "engine/rga/scratch.h"

namespace rga {
namespace {

bool isDestination(Layout layout) {
    return layout == Layout::planar420 || layout == Layout::semiPlanar420 ||
           layout == Layout::rgb565;
}

bool isSource(Layout layout) {
    return layout != Layout::rgb565;
}

YuvPicture yuvOf(const Surface& source, const Transform& transform, Scratch& scratch) {
    const YuvPicture picture = source.isYuv() ? source.yuv : yuvFromRgb(source, scratch);
    return transform.none() ? picture : turnYuv(picture, transform, scratch);
}

struct Samples {
    std::uint8_t y, u, v;
};

// BT.601, limited range, in 1/256.
Samples samplesOf(int red, int green, int blue) {
    const auto rounded = [](int sum, int base) {
        return static_cast<std::uint8_t>(base + (sum + (sum < 0 ? -128 : 128)) / 256);
    };
    return {rounded(66 * red + 129 * green + 25 * blue, 16),
            rounded(-38 * red - 74 * green + 112 * blue, 128),
            rounded(112 * red - 94 * green - 18 * blue, 128)};
}

void fillWords(const Plane& plane, std::uint8_t low, std::uint8_t high) {
    for (int line = 0; line < plane.height; ++line) {
        std::uint8_t* word = plane.data + static_cast<std::ptrdiff_t>(line) * plane.stride;
        for (int column = 0; column < plane.width; ++column) {
            *word++ = low;
            *word++ = high;
        }
    }
}

void fillPlane(const Plane& plane, std::uint8_t value) {
    if (!plane.empty()) {
        libyuv::SetPlane(plane.data, plane.stride, plane.width, plane.height, value);
    }
}

}  // namespace

std::optional<Transform> makeTransform(int rotation) {
    Transform transform;
    if (rotation == HAL_TRANSFORM_FLIP_H_V) {
        rotation = HAL_TRANSFORM_FLIP_H | HAL_TRANSFORM_FLIP_V;
    }
    if (rotation < 0 || rotation > HAL_TRANSFORM_ROT_270) {
        return std::nullopt;
    }
    transform.flipHorizontal = (rotation & HAL_TRANSFORM_FLIP_H) != 0;
    transform.flipVertical = (rotation & HAL_TRANSFORM_FLIP_V) != 0;
    transform.quarterTurn = (rotation & HAL_TRANSFORM_ROT_90) != 0;
    return transform;
}

int blit(const Surface& source, const Surface& destination, const Transform& transform) {
    if (!isSource(source.layout) || !isDestination(destination.layout)) {
        return ENOTSUP;
    }
    try {
        Scratch& scratch = Scratch::begin();
        if (!destination.isYuv() && !source.isYuv()) {
            rgb565FromRgb(source, transform, destination.rgb, scratch);
            return 0;
        }
        const YuvPicture picture = yuvOf(source, transform, scratch);
        if (!destination.isYuv()) {
            rgb565FromYuv(picture, destination.rgb, scratch);
            return 0;
        }
        scalePlane(picture.y, destination.yuv.y, scratch);
        scaleChroma(picture, destination.yuv, scratch);
        return 0;
    } catch (const std::bad_alloc&) {
        return ENOMEM;
    }
}

int fill(const Surface& destination, unsigned color) {
    if (!isDestination(destination.layout)) {
        return ENOTSUP;
    }
    const int red = static_cast<int>(color & 0xff);
    const int green = static_cast<int>(color >> 8 & 0xff);
    const int blue = static_cast<int>(color >> 16 & 0xff);
    if (!destination.isYuv()) {
        const int word = red >> 3 << 11 | green >> 2 << 5 | blue >> 3;
        fillWords(destination.rgb, static_cast<std::uint8_t>(word & 0xff),
                  static_cast<std::uint8_t>(word >> 8));
        return 0;
    }
    const YuvPicture& picture = destination.yuv;
    const Samples samples = samplesOf(red, green, blue);
    fillPlane(picture.y, samples.y);
    if (picture.paired) {
        fillWords(picture.u, picture.vFirst ? samples.v : samples.u,
                  picture.vFirst ? samples.u : samples.v);
    } else {
        fillPlane(picture.u, samples.u);
        fillPlane(picture.v, samples.v);
    }
    return 0;
}

}  // namespace rga
