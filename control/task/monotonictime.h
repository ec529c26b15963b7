// The one clock behind all time values: never steps, whatever happens to the wall clock.
#pragma once

#include <sys/time.h>
#include <chrono>

inline timeval monotonicNow() {
    using namespace std::chrono;
    const auto now = duration_cast<microseconds>(steady_clock::now().time_since_epoch()).count();
    timeval value{};
    value.tv_sec = static_cast<time_t>(now / 1000000);
    value.tv_usec = static_cast<suseconds_t>(now % 1000000);
    return value;
}

// Milliseconds from one point of time to another, with microsecond resolution.
inline double elapsedMs(const timeval& from, const timeval& to) {
    return static_cast<double>(to.tv_sec - from.tv_sec) * 1000.0 +
           static_cast<double>(to.tv_usec - from.tv_usec) / 1000.0;
}
