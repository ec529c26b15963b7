// The machine-readable mark in the upper left corner of every camera picture: which frame, and when
// it was taken. Four rows of sixteen square cells, each width/64 pixels, light = 1, most
// significant bit first; survives scaling and colour conversion because each cell is judged at its
// middle.
//
//   24 bits frame number | 32 bits board time in 100 us | 8 bits check sum
//   24 bits place in a loop | 40 bits that follow from it
//
// The second kind stands in pictures that are coded out of the one before them. Where frames are
// lost a decoder may take another one without noticing, and the mark becomes a mixture of several:
// no mixture of them is a mark.
#pragma once

#include <cstdint>
#include <optional>

namespace board {

struct Stamp {
    std::uint32_t frame = 0;       // modulo 2^24
    std::uint32_t time_100us = 0;  // CLOCK_MONOTONIC of the board, modulo 2^32

    bool operator==(const Stamp& other) const {
        return frame == other.frame && time_100us == other.time_100us;
    }
};

constexpr unsigned stampColumns = 16;
constexpr unsigned stampRows = 4;
constexpr std::uint32_t stampFrameMask = (1u << 24) - 1;

// The time of a mark that was drawn before its stream began; its number is then the picture's place
// in a loop, and whoever sends the loop knows when that was.
constexpr std::uint32_t stampInLoop = UINT32_MAX;

// Side of a cell in a picture of this width; the mark is 16 by 4 cells from the upper left corner.
constexpr std::uint32_t stampCell(std::uint32_t width) {
    return width / 64;
}

// Draws into a luma plane whose samples are `pixelStep` bytes apart (1: planar, 2: YUYV) and lines
// `stride` bytes apart. Chroma under the mark: see drawStampYuyv.
void drawStampLuma(std::uint8_t* luma, std::uint32_t pixelStep, std::uint32_t stride,
                   std::uint32_t width, const Stamp& stamp);
// The same on packed YUYV, with neutral chroma under the mark.
void drawStampYuyv(std::uint8_t* picture, std::uint32_t stride, std::uint32_t width,
                   const Stamp& stamp);

// Reads the mark back from a luma plane of any size; nothing when the check sum does not hold.
std::optional<Stamp> readStamp(const std::uint8_t* luma, std::uint32_t pixelStep,
                               std::uint32_t stride, std::uint32_t width, std::uint32_t height);

}  // namespace board
