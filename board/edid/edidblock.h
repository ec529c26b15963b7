// Parts of an EDID, each read from a block of 128 bytes that is known to be there.
#pragma once

#include <array>
#include <cstdint>

#include "board/edid/modelist.h"

namespace board {

constexpr std::size_t edidBlockBytes = 128;
using EdidBlock = std::array<std::uint8_t, edidBlockBytes>;

// Standing in the tag byte of extension blocks.
constexpr std::uint8_t ctaTag = 0x02;
constexpr std::uint8_t displayIdTag = 0x70;

// The 18 bytes of a detailed timing descriptor. Adds nothing for other descriptors, stereo modes
// and figures that make no mode. Tells whether it added a mode.
bool addDetailedTiming(const std::uint8_t* descriptor, bool preferred, ModeList& list);
// The detailed timings of a CTA-861 extension, then, by the second call, its formats.
void addCtaDetailedTimings(const EdidBlock& block, ModeList& list);
void addCtaFormats(const EdidBlock& block, ModeList& list);
// For every CTA format in the list its variant at the other rate (59.94 beside 60 Hz).
void addAlternateRates(ModeList& list);
void addDisplayIdTimings(const EdidBlock& block, ModeList& list);
// Standard, established and coordinated timings of the base block.
void addStandardTimings(const EdidBlock& base, ModeList& list);
void addEstablishedTimings(const EdidBlock& base, ModeList& list);
void addCoordinatedTimings(const EdidBlock& base, ModeList& list);
// What a display of continuous frequency takes within its limits.
void addTimingsInRange(const EdidBlock& base, ModeList& list);

}  // namespace board
