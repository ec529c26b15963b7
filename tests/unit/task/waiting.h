// Waiting for an event with a deadline, never for a fixed time.
#pragma once

#include <chrono>
#include <thread>

using Clock = std::chrono::steady_clock;

inline double millisecondsSince(Clock::time_point start) {
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

// Whether the condition came true within the deadline.
template <typename Condition>
bool comesTrue(const Condition& condition,
               std::chrono::milliseconds deadline = std::chrono::seconds(10)) {
    const auto start = Clock::now();
    while (!condition()) {
        if (Clock::now() - start > deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}
