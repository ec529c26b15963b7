// Waiting on several descriptors of which some are the board's.
#pragma once

#include <poll.h>
#include <time.h>

#include <cstdint>

namespace board::preload {

// As ppoll(2); the time-out is machine time, null waits for ever. The count, or -errno.
// `room` holds 2 * count entries.
long waitForAny(pollfd* wanted, unsigned count, pollfd* room, const timespec* timeout,
                const void* signalMask);

}  // namespace board::preload
