// Calls that the board holds on order (see ParkEntry).
#pragma once

#include "board/preload/run.h"

#include <cstdint>

namespace board::preload {

enum class Parked {
    no,           // not held: go on
    ranOut,       // held until the deadline
    lifted,       // held, then let go: the call goes on with what is left of its time
    interrupted,  // a signal handler ran
};

constexpr std::int64_t noDeadline = -1;

inline bool anyParks() {
    const wire::SharedPage* page = boardPage();
    return page != nullptr && page->parkCount.load(std::memory_order_relaxed) != 0;
}

// The active park that names this call and the calling thread; null: none.
wire::ParkEntry* parkOf(const char* call);

// Holds the calling thread. `deadline_ns`: machine's CLOCK_MONOTONIC. `signalMask`: kernel signal
// mask for the wait, or null. With `endure`, signals do not end it.
Parked hold(wire::ParkEntry& entry, std::int64_t deadline_ns, const void* signalMask = nullptr,
            bool endure = false);

// Both in one.
Parked park(const char* call, std::int64_t deadline_ns, const void* signalMask = nullptr);
// The same for an ioctl, which has no time-out.
Parked parkIoctl(std::uint32_t request);

}  // namespace board::preload
