// Clocks.
#include "board/preload/clock.h"
#include "board/preload/next.h"

using namespace board::preload;

WRAPPER(int, clock_gettime, (clockid_t clock, timespec* out)) {
    NEXT(clock_gettime);
    if (!timeIsBoards() || !clockIsBoards(clock))
        return next(clock, out);
    *out = toTimespec(boardNow_ns(clock));
    return 0;
}

WRAPPER(int, gettimeofday, (timeval * out, void* zone)) {
    NEXT(gettimeofday);
    const int result = next(out, zone);
    if (result != 0 || out == nullptr || !timeIsBoards())
        return result;
    const timespec now = toTimespec(boardNow_ns(CLOCK_REALTIME));
    *out = {now.tv_sec, now.tv_nsec / 1000};
    return 0;
}

WRAPPER(time_t, time, (time_t * out)) {
    NEXT(time);
    if (!timeIsBoards())
        return next(out);
    const time_t now = boardNow_ns(CLOCK_REALTIME) / second_ns;
    if (out != nullptr)
        *out = now;
    return now;
}
