// Sleeps and waits for signals: board time, so shorter on the machine when the board runs faster.
#include "board/preload/clock.h"
#include "board/preload/next.h"

#include <semaphore.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>

using namespace board::preload;

namespace {

timespec machineLength(const timespec& board) {
    return toTimespec(toMachineLength_ns(toNs(board)));
}

timespec machineTime(clockid_t clock, const timespec& board) {
    return toTimespec(toMachineTime_ns(clock, toNs(board)));
}

}  // namespace

WRAPPER(int, nanosleep, (const timespec* length, timespec* left)) {
    NEXT(nanosleep);
    if (!timeIsBoards() || length == nullptr || !isValid(*length))
        return next(length, left);
    const timespec machine = machineLength(*length);
    timespec rest{};
    const int result = next(&machine, &rest);
    if (result != 0 && left != nullptr)
        *left = toTimespec(toBoardLength_ns(toNs(rest)));
    return result;
}

WRAPPER(int, clock_nanosleep, (clockid_t clock, int flags, const timespec* when, timespec* left)) {
    NEXT(clock_nanosleep);
    if (!timeIsBoards() || !clockIsBoards(clock) || when == nullptr || !isValid(*when))
        return next(clock, flags, when, left);
    if ((flags & TIMER_ABSTIME) != 0) {
        const timespec machine = machineTime(clock, *when);
        return next(clock, flags, &machine, left);
    }
    const timespec machine = machineLength(*when);
    timespec rest{};
    const int result = next(clock, flags, &machine, &rest);
    if (result == EINTR && left != nullptr)
        *left = toTimespec(toBoardLength_ns(toNs(rest)));
    return result;
}

WRAPPER(int, usleep, (useconds_t microseconds)) {
    NEXT(usleep);
    if (!timeIsBoards())
        return next(microseconds);
    const std::int64_t machine_ns = toMachineLength_ns(std::int64_t(microseconds) * 1000);
    return next(useconds_t((machine_ns + 999) / 1000));
}

WRAPPER(unsigned, sleep, (unsigned seconds)) {
    if (!timeIsBoards()) {
        NEXT(sleep);
        return next(seconds);
    }
    const int before = errno;
    const timespec machine = machineLength({time_t(seconds), 0});
    timespec rest{};
    NEXT(nanosleep);
    if (next(&machine, &rest) == 0)
        return 0;
    errno = before;  // sleep tells by its result only
    return unsigned((toBoardLength_ns(toNs(rest)) + second_ns - 1) / second_ns);
}

WRAPPER(int, sem_timedwait, (sem_t * semaphore, const timespec* until)) {
    NEXT(sem_timedwait);
    if (!timeIsBoards() || !isValid(*until))
        return next(semaphore, until);
    const timespec machine = machineTime(CLOCK_REALTIME, *until);
    return next(semaphore, &machine);
}

WRAPPER(int, sem_clockwait, (sem_t * semaphore, clockid_t clock, const timespec* until)) {
    NEXT(sem_clockwait);
    if (!timeIsBoards() || !clockIsBoards(clock) || !isValid(*until))
        return next(semaphore, clock, until);
    const timespec machine = machineTime(clock, *until);
    return next(semaphore, clock, &machine);
}

WRAPPER(int, sigtimedwait, (const sigset_t* set, siginfo_t* info, const timespec* timeout)) {
    NEXT(sigtimedwait);
    if (!timeIsBoards() || timeout == nullptr || !isValid(*timeout))
        return next(set, info, timeout);
    const timespec machine = machineLength(*timeout);
    return next(set, info, &machine);
}
