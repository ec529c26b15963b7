// One chunk of PCM sound on its way downstream. The receiver of a heap message deletes it.
#pragma once

#include <cstdint>

struct msgAudio {
    msgAudio() = default;
    ~msgAudio();
    msgAudio(const msgAudio&) = delete;
    msgAudio& operator=(const msgAudio&) = delete;

    unsigned char* data[3] = {};   // interleaved PCM in data[0], owned: made with array new
    std::uint32_t size[3] = {};    // capacities; producers leave them 0
    std::uint32_t length[3] = {};  // valid bytes
    double pts = 0.0;
    double spareTime = 0.0;
    std::uint32_t channels = 0;
    std::uint32_t rate = 0;  // Hz, as granted by the capture device
    std::uint32_t spareParam = 0;
    std::int32_t format = 0;  // ALSA sample format number
    bool spareFlag = false;
};
