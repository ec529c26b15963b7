// Board time: the machine's, faster by the run's factor, with the wall clock stepped on order.
#pragma once

#include "board/preload/run.h"

#include <sys/time.h>
#include <time.h>

#include <cstdint>

namespace board::preload {

constexpr std::int64_t second_ns = 1000000000;

// False: every clock and sleep is the machine's own.
inline bool timeIsBoards() {
    const wire::SharedPage* page = boardPage();
    return page != nullptr &&
           (page->speed != 1 || page->realtimeStep_ns.load(std::memory_order_relaxed) != 0);
}

std::int64_t machineNow_ns(clockid_t clock);

// Whether the board has its own idea of this clock (not: CPU time clocks).
bool clockIsBoards(clockid_t clock);
std::int64_t boardNow_ns(clockid_t clock);

// Lengths of time. Rounded so that nothing ends early.
std::int64_t toMachineLength_ns(std::int64_t board_ns);
std::int64_t toBoardLength_ns(std::int64_t machine_ns);
// The machine's reading of `clock` at which the board's will be `board_ns`.
std::int64_t toMachineTime_ns(clockid_t clock, std::int64_t board_ns);

constexpr bool isValid(const timespec& time) {
    return time.tv_sec >= 0 && time.tv_nsec >= 0 && time.tv_nsec < second_ns;
}
// Saturates: a time-out of "for ever" written as a huge number stays huge.
constexpr std::int64_t toNs(const timespec& time) {
    constexpr std::int64_t most = INT64_MAX / 4;
    return time.tv_sec >= most / second_ns ? most : time.tv_sec * second_ns + time.tv_nsec;
}
constexpr timespec toTimespec(std::int64_t ns) {
    const std::int64_t at = ns < 0 ? 0 : ns;
    return {at / second_ns, at % second_ns};
}

}  // namespace board::preload
