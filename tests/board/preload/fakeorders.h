// Ioctls by which a client program makes the fake board do something. Orders with a delay take it
// (milliseconds) as their argument and happen that much later.
#pragma once

#include <sys/ioctl.h>

#include <cstdint>

namespace fake {

struct Sum {
    std::int32_t one, other, sum;
};
struct Unmaps {
    std::uint64_t offset, length;
    std::uint32_t count;
};
struct Park {
    char call[40];
    char thread[16];
    std::uint32_t liftAfter_ms;  // 0: stays
};

constexpr unsigned long add = _IOWR('F', 1, Sum);
constexpr unsigned long stream = _IO('F', 2);  // argument 1 or 0
constexpr unsigned long done = _IO('F', 3);    // delay: one buffer is done
constexpr unsigned long unplug = _IO('F', 4);  // delay: this device is gone
constexpr unsigned long event = _IO('F', 5);   // delay: one event waits
constexpr unsigned long fail = _IO('F', 6);    // fails with the errno in the argument
constexpr unsigned long requests = _IOR('F', 7, std::uint32_t);     // served so far, on all handles
constexpr unsigned long connections = _IOR('F', 8, std::uint32_t);  // open now
constexpr unsigned long fileFlags = _IOR('F', 9, std::uint32_t);    // as this request carried them
constexpr unsigned long unmaps = _IOR('F', 10, Unmaps);             // the last one, and how many
constexpr unsigned long park = _IOW('F', 11, Park);                 // entry 0 of the page
constexpr unsigned long held = _IOR('F', 12, std::uint32_t);        // calls that entry 0 held
constexpr unsigned long vanish = _IO('F', 13);  // delay: the board ends all connections
constexpr unsigned long nothing = _IO('F', 14);
constexpr unsigned long stopLater = _IO('F', 15);  // delay: streaming ends
constexpr unsigned long step = _IO('F', 16);       // the wall clock goes ahead by this many seconds

}  // namespace fake
