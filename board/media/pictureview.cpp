#include "board/media/pictureview.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace board {

namespace {

// Which source place each place shows.
std::vector<std::uint32_t> places(std::uint32_t count, double first, double size) {
    std::vector<std::uint32_t> from(count);
    for (std::uint32_t i = 0; i < count; ++i) {
        const double place = (first + size * (i + 0.5) / count) * count;
        from[i] = std::uint32_t(std::clamp(place, 0.0, count - 1.0));
    }
    return from;
}

}  // namespace

void showView(const PictureView& view, std::uint8_t* picture, std::uint32_t width,
              std::uint32_t height, std::vector<std::uint8_t>& scratch) {
    const std::uint32_t pairs = width / 2;
    if (view.whole() || pairs == 0 || height == 0)
        return;
    const std::size_t stride = std::size_t(width) * 2;
    scratch.assign(picture, picture + stride * height);
    const std::vector<std::uint32_t> columns = places(pairs, view.left, view.size);
    const std::vector<std::uint32_t> lines = places(height, view.top, view.size);
    for (std::uint32_t y = 0; y < height; ++y) {
        std::uint8_t* to = picture + y * stride;
        if (y > 0 && lines[y] == lines[y - 1]) {
            std::memcpy(to, to - stride, stride);
            continue;
        }
        const std::uint8_t* from = scratch.data() + lines[y] * stride;
        for (std::uint32_t x = 0; x < pairs; ++x)
            std::memcpy(to + std::size_t(x) * 4, from + std::size_t(columns[x]) * 4, 4);
    }
}

}  // namespace board
