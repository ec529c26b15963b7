// What a sound card is: names and, for each direction, what it can be set to.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace board {

// One thing that a stream can be set to: any of these formats at any of these rates, on any number
// of channels in the range. A USB card has one for each alternate setting.
struct SoundSetting {
    std::uint64_t formats = 0;  // bit N: SNDRV_PCM_FORMAT number N
    std::uint32_t channelsMin = 1, channelsMax = 1;
    std::vector<std::uint32_t> rates_Hz;  // empty: everything from rateMin to rateMax
    std::uint32_t rateMin_Hz = 0, rateMax_Hz = 0;
};

// The limits of a USB card, where nothing else is said.
struct SoundLimits {
    std::vector<SoundSetting> settings;  // empty: no stream in this direction
    std::uint32_t periodBytesMin = 64, periodBytesMax = 512 * 1024;
    std::uint32_t periodsMin = 2, periodsMax = 1024;
    std::uint32_t bufferBytesMax = 1024 * 1024;
    std::uint32_t periodTimeMin_us = 0;
    std::uint32_t periodFrames = 0;  // the only period that is granted; 0: any
    bool pause = true;               // the stream can be paused
    bool resume = false;             // a suspended stream can go on where it was
};

struct SoundDescription {
    std::string name;      // the scenario's name for it
    std::string id;        // 15 characters at most, as in "hw:ID"
    std::string driver;    // 15
    std::string card;      // 31
    std::string longName;  // 79
    std::string stream0;   // text of /proc/asound/cardN/stream0; empty: there is no such file
    SoundLimits playback, capture;
};

}  // namespace board
