// The kernel's listing of a USB sound card (/proc/asound/cardN/stream0) as a card's description.
#pragma once

#include "board/daemon/soundlimits.h"

#include <string>

namespace board {

// Fills names and limits from the text; a line that says nothing is passed over. What the listing
// does not name (an alternate setting without rates) the card does not offer.
void describeFromListing(const std::string& text, SoundDescription& card);

// Number of a sample format by its name ("S16_LE"); -1 when unknown.
int soundFormat(const std::string& name);
std::string soundFormatName(int format);  // empty when unknown
// Bits that a sample takes in memory; 0 for a format without a fixed width.
unsigned soundFormatBits(int format);

}  // namespace board
