// An input device of a scenario: a remote's receiver, a keyboard.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace board {

struct InputDescription {
    std::string name;    // the scenario's name for it
    std::string device;  // as EVIOCGNAME tells
    std::string phys, uniq;
    std::uint16_t bus = 3, vendor = 0, product = 0, version = 0x110;  // 3: USB
    std::vector<std::uint16_t> keys, leds;                            // codes
    bool scanCodes = true;  // a scan event before each press and release
    // Of a key that stays down; a delay of 0: it does not repeat.
    std::uint32_t repeatDelay_ms = 250, repeatPeriod_ms = 33;
    unsigned firstNumber = 0;  // N of the first /dev/input/eventN
    bool plugged = true;
};

}  // namespace board
