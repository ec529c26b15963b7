#include "board/console/i420picture.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>

namespace board::console {

namespace {

constexpr std::uint32_t block = 16;

std::uint32_t wholeBlocks(std::uint32_t size) {
    return (size + block - 1) / block * block;
}

void padPlane(std::vector<std::uint8_t>& plane, std::uint32_t width, std::uint32_t height,
              std::uint32_t stride, std::uint32_t lines) {
    for (std::uint32_t line = 0; line < height; ++line) {
        std::uint8_t* pixels = plane.data() + std::size_t(line) * stride;
        std::memset(pixels + width, pixels[width - 1], stride - width);
    }
    const std::uint8_t* last = plane.data() + std::size_t(height - 1) * stride;
    for (std::uint32_t line = height; line < lines; ++line)
        std::memcpy(plane.data() + std::size_t(line) * stride, last, stride);
}

std::array<std::uint8_t, 256> rangeTable(int low, int high, int middle) {
    std::array<std::uint8_t, 256> table{};
    for (int value = 0; value < 256; ++value) {
        // Luma is counted from its lowest value, chroma from the middle.
        const double from = middle == 0 ? low : 128;
        const double full = (value - from) * 255.0 / (high - low) + middle + 0.5;
        table[std::size_t(value)] = std::uint8_t(std::clamp(full, 0.0, 255.0));
    }
    return table;
}

}  // namespace

void I420Picture::resize(std::uint32_t newWidth, std::uint32_t newHeight) {
    width = newWidth;
    height = newHeight;
    stride = wholeBlocks(width);
    const std::size_t size = std::size_t(stride) * wholeBlocks(height);
    y.resize(size);
    u.resize(size / 4);
    v.resize(size / 4);
}

void I420Picture::pad() {
    const std::uint32_t lines = wholeBlocks(height);
    padPlane(y, width, height, stride, lines);
    padPlane(u, (width + 1) / 2, (height + 1) / 2, stride / 2, lines / 2);
    padPlane(v, (width + 1) / 2, (height + 1) / 2, stride / 2, lines / 2);
}

void I420Picture::expandRange() {
    static const auto luma = rangeTable(16, 235, 0);
    static const auto chroma = rangeTable(16, 240, 128);
    for (std::uint8_t& value : y)
        value = luma[value];
    for (std::uint8_t& value : u)
        value = chroma[value];
    for (std::uint8_t& value : v)
        value = chroma[value];
}

PictureSize fitInto(PictureSize source, PictureSize most) {
    if (source.width == 0 || source.height == 0)
        return {};
    const double scale =
        std::min({1.0, double(most.width) / source.width, double(most.height) / source.height});
    const auto even = [scale](std::uint32_t size) {
        return std::max(2u, std::uint32_t(std::lround(size * scale)) & ~1u);
    };
    return {even(source.width), even(source.height)};
}

}  // namespace board::console
