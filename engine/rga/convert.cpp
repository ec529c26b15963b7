#include "engine/rga/convert.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

#include <libyuv.h>

namespace rga {
namespace {

constexpr std::uint8_t neutralChroma = 128;

bool sameSize(const Plane& a, const Plane& b) {
    return a.width == b.width && a.height == b.height;
}

Plane takePlane(Scratch& scratch, int width, int height, int sampleBytes = 1) {
    Plane plane;
    plane.width = width;
    plane.height = height;
    plane.stride = width * sampleBytes;
    plane.data = scratch.take(static_cast<std::size_t>(plane.stride) * height);
    return plane;
}

int half(int size) {
    return (size + 1) / 2;
}

YuvPicture take420(Scratch& scratch, int width, int height) {
    YuvPicture picture;
    picture.y = takePlane(scratch, width, height);
    picture.u = takePlane(scratch, half(width), half(height));
    picture.v = takePlane(scratch, half(width), half(height));
    return picture;
}

using ScaleStep = void (*)(const Plane& source, const Plane& destination);

// libyuv averages well where it halves, and drops samples (or joins uneven groups of them) at other
// ratios above two: large reductions go through the nearest power of two.
void scaleInSteps(const Plane& source, const Plane& destination, int sampleBytes, ScaleStep step,
                  Scratch& scratch) {
    int width = source.width;
    int height = source.height;
    while (width >= 2 * destination.width && height >= 2 * destination.height) {
        width /= 2;
        height /= 2;
    }
    const bool direct = width == source.width || sameSize({nullptr, 0, width, height}, destination);
    if (direct) {
        step(source, destination);
        return;
    }
    const Plane reduced = takePlane(scratch, width, height, sampleBytes);
    step(source, reduced);
    step(reduced, destination);
}

void scalePairs(const Plane& source, const Plane& destination, Scratch& scratch) {
    const auto step = [](const Plane& from, const Plane& to) {
        libyuv::UVScale(from.data, from.stride, from.width, from.height, to.data, to.stride,
                        to.width, to.height, libyuv::kFilterBox);
    };
    scaleInSteps(source, destination, 2, step, scratch);
}

void scaleArgb(const Plane& source, const Plane& destination, Scratch& scratch) {
    const auto step = [](const Plane& from, const Plane& to) {
        libyuv::ARGBScale(from.data, from.stride, from.width, from.height, to.data, to.stride,
                          to.width, to.height, libyuv::kFilterBox);
    };
    scaleInSteps(source, destination, 4, step, scratch);
}

// Pairs of `source` into two planes of the same size; `first` gets what stands first.
void splitPairs(const Plane& source, const Plane& first, const Plane& second) {
    libyuv::SplitUVPlane(source.data, source.stride, first.data, first.stride, second.data,
                         second.stride, first.width, first.height);
}

// U and V planes into the destination's pairs, of the same size.
void mergePairs(const Plane& u, const Plane& v, const Plane& pairs, bool vFirst) {
    const Plane& first = vFirst ? v : u;
    const Plane& second = vFirst ? u : v;
    libyuv::MergeUVPlane(first.data, first.stride, second.data, second.stride, pairs.data,
                         pairs.stride, pairs.width, pairs.height);
}

void setNeutral(const YuvPicture& picture) {
    const int bytes = picture.paired ? 2 * picture.u.width : picture.u.width;
    libyuv::SetPlane(picture.u.data, picture.u.stride, bytes, picture.u.height, neutralChroma);
    if (!picture.paired) {
        libyuv::SetPlane(picture.v.data, picture.v.stride, bytes, picture.v.height, neutralChroma);
    }
}

// An odd picture whose stride leaves no room for the last chroma column has one less than another
// of the same size: without scaling the common part is copied as it is.
void cropToDestination(YuvPicture& source, const YuvPicture& destination) {
    const bool halvesLines = source.u.height <= half(source.y.height);  // 4:2:2 is scaled
    if (!sameSize(source.y, destination.y) || !halvesLines) {
        return;
    }
    const auto crop = [&destination](Plane& plane) {
        plane.width = std::min(plane.width, destination.u.width);
        plane.height = std::min(plane.height, destination.u.height);
    };
    crop(source.u);
    crop(source.v);
}

void pairsToPairs(const YuvPicture& source, const YuvPicture& destination, Scratch& scratch) {
    if (source.vFirst == destination.vFirst) {
        scalePairs(source.u, destination.u, scratch);
        return;
    }
    Plane scaled = source.u;
    if (!sameSize(source.u, destination.u)) {
        scaled = takePlane(scratch, destination.u.width, destination.u.height, 2);
        scalePairs(source.u, scaled, scratch);
    }
    libyuv::SwapUVPlane(scaled.data, scaled.stride, destination.u.data, destination.u.stride,
                        destination.u.width, destination.u.height);
}

void pairsToPlanes(const YuvPicture& source, const YuvPicture& destination, Scratch& scratch) {
    if (sameSize(source.u, destination.u)) {
        splitPairs(source.u, source.vFirst ? destination.v : destination.u,
                   source.vFirst ? destination.u : destination.v);
        return;
    }
    const Plane u = takePlane(scratch, source.u.width, source.u.height);
    const Plane v = takePlane(scratch, source.u.width, source.u.height);
    splitPairs(source.u, source.vFirst ? v : u, source.vFirst ? u : v);
    scalePlane(u, destination.u, scratch);
    scalePlane(v, destination.v, scratch);
}

void planesToPairs(const YuvPicture& source, const YuvPicture& destination, Scratch& scratch) {
    if (sameSize(source.u, destination.u)) {
        mergePairs(source.u, source.v, destination.u, destination.vFirst);
        return;
    }
    const Plane u = takePlane(scratch, destination.u.width, destination.u.height);
    const Plane v = takePlane(scratch, destination.u.width, destination.u.height);
    scalePlane(source.u, u, scratch);
    scalePlane(source.v, v, scratch);
    mergePairs(u, v, destination.u, destination.vFirst);
}

Plane turnPlane(const Plane& source, const Transform& transform, Scratch& scratch) {
    // libyuv turns upside down what has a negative height.
    const int height = transform.flipVertical ? -source.height : source.height;
    Plane flipped = source;
    if (transform.flipHorizontal) {
        flipped = takePlane(scratch, source.width, source.height);
        libyuv::MirrorPlane(source.data, source.stride, flipped.data, flipped.stride, source.width,
                            height);
    } else if (transform.flipVertical) {
        flipped = takePlane(scratch, source.width, source.height);
        libyuv::CopyPlane(source.data, source.stride, flipped.data, flipped.stride, source.width,
                          height);
    }
    if (!transform.quarterTurn) {
        return flipped;
    }
    const Plane turned = takePlane(scratch, source.height, source.width);
    libyuv::RotatePlane(flipped.data, flipped.stride, turned.data, turned.stride, flipped.width,
                        flipped.height, libyuv::kRotate90);
    return turned;
}

}  // namespace

void scalePlane(const Plane& source, const Plane& destination, Scratch& scratch) {
    const auto step = [](const Plane& from, const Plane& to) {
        libyuv::ScalePlane(from.data, from.stride, from.width, from.height, to.data, to.stride,
                           to.width, to.height, libyuv::kFilterBox);
    };
    scaleInSteps(source, destination, 1, step, scratch);
}

void scaleChroma(const YuvPicture& source, const YuvPicture& destination, Scratch& scratch) {
    if (destination.u.empty()) {
        return;
    }
    if (source.u.empty()) {
        setNeutral(destination);
        return;
    }
    YuvPicture part = source;
    cropToDestination(part, destination);
    if (part.paired) {
        destination.paired ? pairsToPairs(part, destination, scratch)
                           : pairsToPlanes(part, destination, scratch);
    } else if (destination.paired) {
        planesToPairs(part, destination, scratch);
    } else {
        scalePlane(part.u, destination.u, scratch);
        scalePlane(part.v, destination.v, scratch);
    }
}

YuvPicture turnYuv(const YuvPicture& source, const Transform& transform, Scratch& scratch) {
    YuvPicture planes = source;
    if (source.paired && !source.u.empty()) {
        planes.paired = false;
        planes.vFirst = false;
        planes.u = takePlane(scratch, source.u.width, source.u.height);
        planes.v = takePlane(scratch, source.u.width, source.u.height);
        splitPairs(source.u, source.vFirst ? planes.v : planes.u,
                   source.vFirst ? planes.u : planes.v);
    }
    planes.y = turnPlane(planes.y, transform, scratch);
    if (!planes.u.empty()) {
        planes.u = turnPlane(planes.u, transform, scratch);
        planes.v = turnPlane(planes.v, transform, scratch);
    }
    return planes;
}

YuvPicture yuvFromRgb(const Surface& source, Scratch& scratch) {
    YuvPicture picture = take420(scratch, source.width, source.height);
    // libyuv names by the word: its RGB24 is B, G, R in memory, RAW is R, G, B.
    const auto convert = source.layout == Layout::bgr888 ? libyuv::RGB24ToI420 : libyuv::RAWToI420;
    convert(source.rgb.data, source.rgb.stride, picture.y.data, picture.y.stride, picture.u.data,
            picture.u.stride, picture.v.data, picture.v.stride, source.width, source.height);
    return picture;
}

void rgb565FromYuv(const YuvPicture& source, const Plane& destination, Scratch& scratch) {
    YuvPicture scaled = source;
    const int chromaWidth = half(destination.width);
    const int chromaHeight = half(destination.height);
    if (!sameSize(source.y, destination)) {
        scaled.y = takePlane(scratch, destination.width, destination.height);
        scalePlane(source.y, scaled.y, scratch);
    }
    if (source.paired || source.u.width != chromaWidth || source.u.height != chromaHeight) {
        scaled.paired = false;
        scaled.vFirst = false;
        scaled.u = takePlane(scratch, chromaWidth, chromaHeight);
        scaled.v = takePlane(scratch, chromaWidth, chromaHeight);
        scaleChroma(source, scaled, scratch);
    }
    libyuv::I420ToRGB565(scaled.y.data, scaled.y.stride, scaled.u.data, scaled.u.stride,
                         scaled.v.data, scaled.v.stride, destination.data, destination.stride,
                         destination.width, destination.height);
}

void rgb565FromRgb(const Surface& source, const Transform& transform, const Plane& destination,
                   Scratch& scratch) {
    Plane argb = takePlane(scratch, source.width, source.height, 4);
    const auto convert = source.layout == Layout::bgr888 ? libyuv::RGB24ToARGB : libyuv::RAWToARGB;
    convert(source.rgb.data, source.rgb.stride, argb.data, argb.stride, source.width,
            transform.flipVertical ? -source.height : source.height);
    if (transform.flipHorizontal) {
        const Plane flipped = takePlane(scratch, source.width, source.height, 4);
        libyuv::ARGBMirror(argb.data, argb.stride, flipped.data, flipped.stride, argb.width,
                           argb.height);
        argb = flipped;
    }
    if (transform.quarterTurn) {
        const Plane turned = takePlane(scratch, source.height, source.width, 4);
        libyuv::ARGBRotate(argb.data, argb.stride, turned.data, turned.stride, argb.width,
                           argb.height, libyuv::kRotate90);
        argb = turned;
    }
    if (!sameSize(argb, destination)) {
        const Plane scaled = takePlane(scratch, destination.width, destination.height, 4);
        scaleArgb(argb, scaled, scratch);
        argb = scaled;
    }
    libyuv::ARGBToRGB565(argb.data, argb.stride, destination.data, destination.stride,
                         destination.width, destination.height);
}

}  // namespace rga
