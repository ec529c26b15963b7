// A real recording as a loop of camera pictures of one size and format, decoded and scaled once.
#pragma once

#include "board/media/stamp.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace board {

// Picture k of the loop stands for every frame n with n % count == k. Without the stamp, which is
// drawn into each frame when it is delivered.
struct PictureLoop {
    std::uint32_t fourcc =
        0;  // V4L2_PIX_FMT_YUYV; other raw formats a camera may list: NV12, YU12, GREY
    std::uint32_t width = 0, height = 0;
    std::uint32_t stride = 0;  // bytes per line of the first plane
    std::size_t pictureBytes = 0;
    std::vector<std::vector<std::uint8_t>> pictures;
};

// Decodes `count` pictures from the start of the file (looping a shorter one), scales them
// (bicubic, whole picture, aspect not kept) and converts them. Colours: BT.601 limited range, as
// webcams send. Deterministic: the same arguments give the same bytes. Throws std::runtime_error
// with one line. A name that starts with "field:" is a drawn source instead of a file: "field:red",
// "field:green", "field:blue", "field:grey", "field:bars" (eight vertical colour bars at 75 %).
PictureLoop loadPictures(const std::string& recording, std::uint32_t fourcc, std::uint32_t width,
                         std::uint32_t height, unsigned count);

// Whether loadPictures can make this raw format.
bool canLoadPictures(std::uint32_t fourcc);

// The default recording: a file from a package (see packages.txt), or field:bars with a line on
// standard error when it is not installed.
std::string defaultRecording();

// How many pictures a loop of this size holds, so that a loop stays below 200 MB (at most 48).
unsigned loopLength(std::uint32_t width, std::uint32_t height);

// The loop's picture `place` with this stamp.
void composeStamped(const PictureLoop& loop, std::size_t place, const Stamp& stamp,
                    std::uint8_t* destination);

// Frame `number` as the camera delivers it: the loop's picture with the stamp drawn in.
void composeFrame(const PictureLoop& loop, std::uint32_t number, std::uint32_t time_100us,
                  std::uint8_t* destination);

}  // namespace board
