// The ioctls of a sound stream that are more than one round trip: those that wait, those that move
// more frames than a message holds, those whose result lies in their argument. 0 or more, or
// -errno.
#pragma once

#include "board/preload/handles.h"

namespace board::preload {

// Bytes of a frame; 0 while nothing is set up.
std::uint32_t frameBytes(const Handle& handle);

long pcmIoctl(Handle& handle, int fd, std::uint32_t request, void* argument);

}  // namespace board::preload
