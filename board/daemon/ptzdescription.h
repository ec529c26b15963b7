// What a pan-tilt-zoom camera has beside its controls.
#pragma once

#include <cstdint>
#include <vector>

namespace board {

// How fast the camera moves: units of the absolute control a second, for each unit of its speed
// control. An absolute position is approached at the highest speed.
struct PtzDescription {
    bool moves = false;  // false: new positions are reached at once (a digital zoom)
    std::uint32_t panPerSecond = 3600, tiltPerSecond = 3600, zoomPerSecond = 1;
    std::uint32_t viewPercent = 60;  // of the recording's width and height, at the widest zoom
};

enum class UnitRole { plain, power, tracking };

// A control of an extension unit: so many bytes under a selector, that can be read and written.
struct UnitControl {
    std::uint8_t selector = 0;
    std::uint16_t bytes = 0;
    UnitRole role = UnitRole::plain;
    // Role power: what puts the camera to sleep and wakes it; shorter than `bytes`: zeros follow.
    std::vector<std::uint8_t> sleep, wake;
};

struct ExtensionUnitDescription {
    std::uint8_t id = 0;
    std::vector<UnitControl> controls;
};

}  // namespace board
