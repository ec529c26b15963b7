// Mean time that the capture task spends on handing one frame over. One thread only.
#pragma once

#include <sys/time.h>
#include <cstdint>

struct autoAdjustOffsetTime {
    // Measures at most `limit` intervals, then freezes.
    explicit autoAdjustOffsetTime(unsigned int limit);

    void updateOffsetTime_start();
    void updateOffsetTime_end();

    double sumMs = 0.0;
    std::uint32_t count = 0;
    std::uint32_t limit = 0;
    timeval startTime{};
    timeval endTime{};
    bool started = false;
    double averageMs = 0.0;
};
