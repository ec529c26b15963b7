// Names of ioctls, as in the kernel's headers, and their numbers.
#pragma once

#include <cstdint>
#include <string>

namespace board {

// Empty when the number is not in the table. See faults.h for the other direction.
std::string ioctlName(std::uint32_t request);

}  // namespace board
