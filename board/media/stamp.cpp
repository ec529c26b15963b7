#include "board/media/stamp.h"

#include <array>
#include <cmath>
#include <cstdlib>

namespace board {

namespace {

// The ends of limited-range luma: as far apart as a camera's picture may go.
constexpr std::uint8_t dark = 16;
constexpr std::uint8_t light = 235;
constexpr int middle = (dark + light) / 2;
// What scaling, ringing and compression may leave of the contrast before a cell is unreadable.
constexpr int clearance = 24;

using Cells = std::array<std::uint8_t, 8>;  // 64 bits, row by row

// CRC-8, polynomial x^8+x^2+x+1. The start value keeps evenly dark and evenly light areas invalid.
std::uint8_t checkSum(const Cells& cells) {
    std::uint8_t sum = 0x5a;
    for (std::size_t i = 0; i + 1 < cells.size(); ++i) {
        sum ^= cells[i];
        for (int bit = 0; bit < 8; ++bit)
            sum = std::uint8_t(sum & 0x80 ? (sum << 1) ^ 0x07 : sum << 1);
    }
    return sum;
}

// Not a check sum as above: the differences of its values say nothing about the values, so what
// leads from one mark to the next does not lead from a third to a fourth.
std::uint64_t confirmation(std::uint32_t place) {
    std::uint64_t mixed = (place + 1) * 0x9e3779b97f4a7c15u;
    mixed = (mixed ^ mixed >> 32) * 0xd6e8feb86659fd93u;
    return mixed ^ mixed >> 32;
}

Cells encode(const Stamp& stamp) {
    Cells cells{};
    for (unsigned i = 0; i < 3; ++i)
        cells[i] = std::uint8_t(stamp.frame >> (16 - 8 * i));
    if (stamp.time_100us == stampInLoop) {
        const std::uint64_t confirmed = confirmation(stamp.frame & stampFrameMask);
        for (unsigned i = 3; i < 8; ++i)
            cells[i] = std::uint8_t(confirmed >> (56 - 8 * i));
        return cells;
    }
    for (unsigned i = 0; i < 4; ++i)
        cells[3 + i] = std::uint8_t(stamp.time_100us >> (24 - 8 * i));
    cells[7] = checkSum(cells);
    return cells;
}

bool isLight(const Cells& cells, unsigned row, unsigned column) {
    return (cells[row * 2 + column / 8] >> (7 - column % 8)) & 1;
}

struct Plane {
    const std::uint8_t* samples;
    std::uint32_t step, stride, width, height;

    int at(double x, double y) const {
        return samples[std::size_t(y) * stride + std::size_t(x) * step];
    }
};

// 1 light, 0 dark, -1 when the cell's inner points do not agree.
int judge(const Plane& plane, double centreX, double centreY, double cellWidth, double cellHeight) {
    const double dx = cellWidth * 0.2, dy = cellHeight * 0.2;
    const double points[][2] = {{0, 0}, {-dx, -dy}, {dx, -dy}, {-dx, dy}, {dx, dy}};
    int verdict = -1;
    for (const auto& point : points) {
        const int offset = plane.at(centreX + point[0], centreY + point[1]) - middle;
        if (std::abs(offset) < clearance)
            return -1;
        const int here = offset > 0 ? 1 : 0;
        if (verdict >= 0 && verdict != here)
            return -1;
        verdict = here;
    }
    return verdict;
}

std::optional<Stamp> readAt(const Plane& plane, double cellWidth, double cellHeight) {
    if (cellWidth < 1 || cellHeight < 1 || cellWidth * stampColumns > plane.width ||
        cellHeight * stampRows > plane.height)
        return std::nullopt;
    Cells cells{};
    for (unsigned row = 0; row < stampRows; ++row) {
        for (unsigned column = 0; column < stampColumns; ++column) {
            const int bit = judge(plane, (column + 0.5) * cellWidth, (row + 0.5) * cellHeight,
                                  cellWidth, cellHeight);
            if (bit < 0)
                return std::nullopt;
            cells[row * 2 + column / 8] |= std::uint8_t(bit << (7 - column % 8));
        }
    }
    Stamp stamp;
    for (int i = 0; i < 3; ++i)
        stamp.frame = stamp.frame << 8 | cells[std::size_t(i)];
    const Stamp inLoop{stamp.frame, stampInLoop};
    if (cells == encode(inLoop))
        return inLoop;
    for (int i = 3; i < 7; ++i)
        stamp.time_100us = stamp.time_100us << 8 | cells[std::size_t(i)];
    if (cells[7] != checkSum(cells) || stamp.time_100us == stampInLoop)
        return std::nullopt;
    return stamp;
}

}  // namespace

void drawStampLuma(std::uint8_t* luma, std::uint32_t pixelStep, std::uint32_t stride,
                   std::uint32_t width, const Stamp& stamp) {
    const Cells cells = encode(stamp);
    const std::uint32_t cell = stampCell(width);
    for (std::uint32_t y = 0; y < stampRows * cell; ++y) {
        std::uint8_t* sample = luma + std::size_t(y) * stride;
        for (unsigned column = 0; column < stampColumns; ++column) {
            const std::uint8_t value = isLight(cells, y / cell, column) ? light : dark;
            for (std::uint32_t x = 0; x < cell; ++x, sample += pixelStep)
                *sample = value;
        }
    }
}

void drawStampYuyv(std::uint8_t* picture, std::uint32_t stride, std::uint32_t width,
                   const Stamp& stamp) {
    drawStampLuma(picture, 2, stride, width, stamp);
    const std::uint32_t cell = stampCell(width);
    for (std::uint32_t y = 0; y < stampRows * cell; ++y) {
        std::uint8_t* line = picture + std::size_t(y) * stride;
        for (std::uint32_t x = 0; x < stampColumns * cell; ++x)
            line[x * 2 + 1] = 128;
    }
}

std::optional<Stamp> readStamp(const std::uint8_t* luma, std::uint32_t pixelStep,
                               std::uint32_t stride, std::uint32_t width, std::uint32_t height) {
    if (width == 0 || height == 0)
        return std::nullopt;
    const Plane plane{luma, pixelStep, stride, width, height};
    const double own = stampCell(width);
    if (const auto stamp = readAt(plane, own, own))
        return stamp;

    // The picture may have been scaled from another size. A camera's cell is a whole number of its
    // pixels, so it may be narrower than a 64th of the width; and the cells are square only in a
    // picture of the camera's own shape.
    const double shape = double(width) / height;
    const double shapes[] = {shape,   16.0 / 9, 4.0 / 3,  16.0 / 10, 3.0 / 2,
                             5.0 / 4, 11.0 / 9, 21.0 / 9, 1.0};
    for (int percent = 100; percent >= 72; percent -= 2) {
        const double cellWidth = width / 64.0 * percent / 100;
        for (const double cameraShape : shapes) {
            if (const auto stamp = readAt(plane, cellWidth, cellWidth * cameraShape / shape))
                return stamp;
        }
    }
    return std::nullopt;
}

}  // namespace board
