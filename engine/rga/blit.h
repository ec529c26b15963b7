// One blit between two checked pictures.
#pragma once

#include <optional>

#include "engine/rga/surface.h"

namespace rga {

// Flips come first, then the quarter turn clockwise.
struct Transform {
    bool flipHorizontal = false;
    bool flipVertical = false;
    bool quarterTurn = false;
    bool none() const { return !flipHorizontal && !flipVertical && !quarterTurn; }
};

// From a HAL_TRANSFORM_... value; nothing when it is none of them or their combinations.
std::optional<Transform> makeTransform(int rotation);

// 0, ENOTSUP when there is no conversion into the destination's layout, ENOMEM.
int blit(const Surface& source, const Surface& destination, const Transform& transform);

// `color`: red in the low byte, then green, blue. 0 or ENOTSUP.
int fill(const Surface& destination, unsigned color);

}  // namespace rga
