#include "board/preload/clock.h"

#include "board/preload/raw.h"

namespace board::preload {

std::int64_t machineNow_ns(clockid_t clock) {
    timespec now{};
    raw(SYS_clock_gettime, clock, &now);
    return now.tv_sec * second_ns + now.tv_nsec;
}

bool clockIsBoards(clockid_t clock) {
    switch (clock) {
        case CLOCK_REALTIME:
        case CLOCK_REALTIME_COARSE:
        case CLOCK_MONOTONIC:
        case CLOCK_MONOTONIC_RAW:
        case CLOCK_MONOTONIC_COARSE:
        case CLOCK_BOOTTIME:
            return true;
        default:
            return false;
    }
}

std::int64_t boardNow_ns(clockid_t clock) {
    const wire::SharedPage& page = *boardPage();
    const auto ahead = std::int64_t(page.speed) - 1;
    const std::int64_t now = machineNow_ns(clock);
    if (clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE)
        return now + (now - page.realtimeOrigin_ns) * ahead + page.realtimeStep_ns.load();
    // The monotonic clocks differ from each other by amounts that are not scaled.
    const std::int64_t passed =
        machineNow_ns(clock == CLOCK_MONOTONIC_COARSE ? clock : CLOCK_MONOTONIC) -
        page.monotonicOrigin_ns;
    return (clock == CLOCK_MONOTONIC ? page.monotonicOrigin_ns + passed : now) + passed * ahead;
}

std::int64_t toMachineLength_ns(std::int64_t board_ns) {
    const std::int64_t speed = boardPage()->speed;
    return board_ns <= 0 ? board_ns : (board_ns - 1) / speed + 1;
}

std::int64_t toBoardLength_ns(std::int64_t machine_ns) {
    return machine_ns * std::int64_t(boardPage()->speed);
}

std::int64_t toMachineTime_ns(clockid_t clock, std::int64_t board_ns) {
    return machineNow_ns(clock) + toMachineLength_ns(board_ns - boardNow_ns(clock));
}

}  // namespace board::preload
