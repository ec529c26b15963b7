// The kernel's texts about sound cards, and stand-ins for microphone and output that note in the
// stages' journal what happens to them.
#pragma once

#include <string>

namespace sound {

// No card has a text.
void reset();
// From now on /proc/asound/cardN/stream0 holds this text.
void setText(int card, const std::string& text);
// Where the text of such a path lies; empty for other paths.
std::string placeOf(const char* path);

}  // namespace sound
