// The application's log as something that two runs can be compared by.
//
// Some lines come by chance: how often a queue was empty when somebody looked, how many frames were
// counted in half a minute. They are written down here, once, with the reason each; everything else
// must be equal byte for byte.
#pragma once

#include <string>
#include <vector>

namespace support {

// Whether a line's presence or number depends on the machine's mood.
bool comesByChance(const std::string& line);

// A line with what differs from run to run replaced: addresses and counts that depend on timing.
// Bytes that are no printable ASCII are written as \xNN, so that an expected file is plain text.
std::string steadyForm(const std::string& line);

// The log without lines that come by chance, in steady form; those whose place is chance (the
// remote's receiver being found) stand at the end.
std::vector<std::string> steadyLines(const std::vector<std::string>& log);

}  // namespace support
