// Round trips with the daemon. All results are 0 or more, or -errno.
#pragma once

#include "board/preload/handles.h"

#include <cstdint>

namespace board::preload {

// Opens the board's node `node` for the program. The result is its descriptor, already attached.
long openNode(const wire::NodeEntry& node, int flags);

// One ioctl, without waiting. `argument` is the caller's pointer (or value) as it came.
long callIoctl(Handle& handle, int fd, std::uint32_t request, void* argument);

// A descriptor of the memory at `offset`, to be mapped at 0 and closed by the caller.
long callMap(Handle& handle, std::uint64_t offset, std::uint64_t length, std::uint32_t protection);
void callUnmap(Handle& handle, std::uint64_t offset, std::uint64_t length);

// Whether `bytes` bytes at `address` can be read without a fault.
bool readable(const void* address, std::uint64_t bytes);

}  // namespace board::preload
