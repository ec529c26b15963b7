// The part of its recording that a camera shows: cut out and scaled to the whole picture.
#pragma once

#include <cstdint>
#include <vector>

namespace board {

struct PictureView {  // in fractions of the recording
    double size = 1;  // of width and height
    double left = 0, top = 0;
    bool whole() const { return size >= 1; }
};

// On packed YUYV, in place; `scratch` keeps its memory from one picture to the next. Pairs of
// pixels stay together, and the nearest line stands for one between lines.
void showView(const PictureView& view, std::uint8_t* picture, std::uint32_t width,
              std::uint32_t height, std::vector<std::uint8_t>& scratch);

}  // namespace board
