// Keys by name, and the usage that a USB keyboard reports for each (what MSC_SCAN carries).
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace board {

// "W", "KEY_W" or a number that <linux/input-event-codes.h> gives a key.
std::optional<std::uint16_t> keyNamed(const std::string& name);
std::string keyName(std::uint16_t key);     // "KEY_W"; the number for one without a name
std::vector<std::uint16_t> keyboardKeys();  // every key of a USB keyboard
std::int32_t scanValue(std::uint16_t key);  // 0x7001a for KEY_W; 0 for a key that has no usage

}  // namespace board
