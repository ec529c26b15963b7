// Pictures of the screen as files. For a worker thread: these functions take their time.
#pragma once

#include "board/daemon/display/screenview.h"

#include <cstdint>
#include <string>
#include <vector>

namespace board {

// Both return an error line, empty on success. Colours: BT.601 limited range for NV12.
std::string writePng(const Snapshot& picture, const std::string& path);

struct DumpedFrame {
    Snapshot picture;
    std::uint32_t frame = 0;       // the mark's number
    std::uint32_t time_100us = 0;  // of the flip, board time modulo 2^32
};
// Writes NNN.nv12 or NNN.xr24 and index.json; makes the folder when it is missing.
std::string writeDump(const std::vector<DumpedFrame>& frames, const std::string& folder);

}  // namespace board
