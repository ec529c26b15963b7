// How long the capture task waits for a frame after its first wait. A leaf, so that the display's
// banners can stretch it while they stand.
#pragma once

#include <atomic>

class SelectTimeout {
  public:
    static inline std::atomic<int> selectTimeout_sec{1};   // seconds
    static inline std::atomic<int> selectTimeout_usec{0};  // microseconds, added to the seconds
};
