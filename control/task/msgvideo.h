// One video frame on its way downstream. The receiver of a heap message deletes it.
#pragma once

#include <cstdint>

struct msgVideo {
    msgVideo() = default;
    ~msgVideo();
    msgVideo(const msgVideo&) = delete;
    msgVideo& operator=(const msgVideo&) = delete;

    unsigned char* data[3] = {};     // payload planes, owned: made with array new
    unsigned char* outData[3] = {};  // destination planes of someone else, never freed here
    std::uint32_t size[3] = {};      // capacity of each plane in bytes
    std::uint32_t length[3] = {};    // valid bytes of each plane
    double pts = 0.0;                // ms since the capture session began
    double spareTime = 0.0;
    std::uint32_t width = 0, height = 0;        // picture, in pixels
    std::uint32_t virWidth = 0, virHeight = 0;  // buffer (stride and lines), in pixels
    std::uint32_t format = 0;                   // V4L2 four-character code
    bool spareFlag = false;
};
