// A media file's payloads as a camera would send them, when it has the right codec and size.
#pragma once

#include "board/media/packetloop.h"

#include <cstdint>
#include <string>
#include <vector>

namespace board {

// From the file's first key frame on, at most 64 MB; H.264 with start codes and its parameter sets
// in band. Empty when the file has no such stream (or is none).
std::vector<MediaPacket> readPackets(const std::string& path, std::uint32_t fourcc,
                                     std::uint32_t width, std::uint32_t height);

}  // namespace board
