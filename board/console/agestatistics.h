// How old the pictures on screen are, second by second.
#pragma once

#include "board/protocol/views.h"

#include <chrono>
#include <deque>
#include <mutex>
#include <string>
#include <vector>

namespace board::console {

struct AgeSecond {
    double median_ms = 0, p95_ms = 0;  // 0 without marked pictures
    unsigned shown = 0;                // marked pictures that came on screen for the first time
    unsigned repeated = 0, skipped = 0;

    std::string json(std::uint64_t lost) const;
};

// Thread-safe.
class AgeStatistics {
  public:
    using Clock = std::chrono::steady_clock;

    void take(const wire::ViewFlip& flip, Clock::time_point now);
    // Of the second before `now`.
    AgeSecond lastSecond(Clock::time_point now);

  private:
    struct Flip {
        Clock::time_point seen;
        wire::ViewFlip flip;
    };

    std::mutex lock_;
    std::deque<Flip> flips_;
};

}  // namespace board::console
