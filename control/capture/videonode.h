// Opening the camera's node.
#pragma once

#include "control/task/uniquefd.h"

#include <string>

// Opens a V4L2 node for reading and writing, non-blocking. On failure prints one line on standard
// error (what, where, why) and holds nothing.
UniqueFd openVideoNode(const std::string& path);
