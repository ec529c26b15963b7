// The one display device of the system, and how its failures are reported.
#pragma once

#include "control/task/uniquefd.h"

#include <cstdint>

// Only a path whose encoder can drive the first CRTC and no other is used.
constexpr std::uint32_t firstCrtcOnly = 1;

// Opens the card for reading and writing; invalid on failure, errno says why.
UniqueFd openDrmCard();

// One line on standard error: what could not be done, and errno.
void reportDrmFailure(const char* step);
