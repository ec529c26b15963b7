#include "board/daemon/display/screenview.h"

#include <drm_fourcc.h>

#include <cstring>

namespace board {

namespace {

// A line of interleaved chroma: an odd last pixel has a pair of its own.
constexpr std::uint32_t chromaBytes(std::uint32_t width) {
    return (width + 1) / 2 * 2;
}

std::uint8_t* copyRows(std::uint8_t* destination, const std::uint8_t* source, std::size_t pitch,
                       std::size_t lineBytes, std::uint32_t lines) {
    for (std::uint32_t line = 0; line < lines; ++line)
        std::memcpy(destination + line * lineBytes, source + line * pitch, lineBytes);
    return destination + lines * lineBytes;
}

}  // namespace

std::optional<Stamp> readStamp(const ScreenView& view) {
    if (view.black())
        return std::nullopt;
    if (view.format == DRM_FORMAT_NV12)
        return readStamp(view.planes[0], 1, view.pitches[0], view.width, view.height);
    // Green carries most of a pixel's lightness; bytes lie as blue, green, red, unused.
    return readStamp(view.planes[0] + 1, 4, view.pitches[0], view.width, view.height);
}

ScreenView Snapshot::view() const {
    ScreenView result;
    result.format = format;
    result.width = width;
    result.height = height;
    if (black())
        return result;
    result.planes[0] = bytes.get();
    result.pitches[0] = format == DRM_FORMAT_NV12 ? width : width * 4;
    if (format == DRM_FORMAT_NV12) {
        result.planes[1] = bytes.get() + std::size_t(width) * height;
        result.pitches[1] = chromaBytes(width);
    }
    return result;
}

void copyScreen(const ScreenView& view, Snapshot& snapshot) {
    snapshot.format = view.format;
    snapshot.width = view.width;
    snapshot.height = view.height;
    snapshot.size = 0;
    if (view.black())
        return;
    const std::size_t pixels = std::size_t(view.width) * view.height;
    const bool nv12 = view.format == DRM_FORMAT_NV12;
    const std::uint32_t chromaLines = (view.height + 1) / 2;
    const std::size_t size =
        nv12 ? pixels + std::size_t(chromaBytes(view.width)) * chromaLines : pixels * 4;
    if (snapshot.capacity < size) {
        // Not make_unique: it would clear megabytes that are overwritten next.
        snapshot.bytes.reset(new std::uint8_t[size]);
        snapshot.capacity = size;
    }
    snapshot.size = size;
    const std::size_t lineBytes = nv12 ? view.width : std::size_t(view.width) * 4;
    std::uint8_t* next =
        copyRows(snapshot.bytes.get(), view.planes[0], view.pitches[0], lineBytes, view.height);
    if (nv12)
        copyRows(next, view.planes[1], view.pitches[1], chromaBytes(view.width), chromaLines);
}

}  // namespace board
