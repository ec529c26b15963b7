// An ioctl on a descriptor of the board, waits included. 0 or more, or -errno.
#pragma once

#include "board/preload/handles.h"

namespace board::preload {

long deviceIoctl(Handle& handle, int fd, std::uint32_t request, void* argument);

}  // namespace board::preload
