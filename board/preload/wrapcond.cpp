// Waits on condition variables: scaled time-outs, and waits that the board holds on order.
#include "board/preload/clock.h"
#include "board/preload/next.h"
#include "board/preload/park.h"

#include <pthread.h>

#include <cerrno>

using namespace board::preload;

namespace {

constexpr char parkName[] = "pthread_cond_wait";

// The clock that pthread_condattr_setclock chose. libc offers no way to ask a condition variable;
// this bit is part of its binary interface (static initialisers depend on the layout).
clockid_t clockOf(const pthread_cond_t* condition) {
    constexpr unsigned monotonicBit = 2;
    return (condition->__data.__wrefs & monotonicBit) != 0 ? CLOCK_MONOTONIC : CLOCK_REALTIME;
}

std::int64_t monotonicDeadline(clockid_t clock, const timespec& until) {
    const std::int64_t now_ns =
        timeIsBoards() && clockIsBoards(clock) ? boardNow_ns(clock) : machineNow_ns(clock);
    const std::int64_t left_ns = toNs(until) - now_ns;
    return machineNow_ns(CLOCK_MONOTONIC) + (left_ns > 0 ? toMachineLength_ns(left_ns) : 0);
}

// A held wait lets the mutex go, as the real one does, and hears no signal.
// What it returns, or -1 when it was not held.
int heldWait(pthread_mutex_t* mutex, std::int64_t deadline_ns) {
    board::wire::ParkEntry* entry = parkOf(parkName);
    if (entry == nullptr)
        return -1;
    // The functions behind ours: a sanitizer between us and libc sees what a wait does to the
    // mutex; one before us has modelled it already.
    static decltype(nextOf(&::pthread_mutex_unlock)) unlock("pthread_mutex_unlock");
    static decltype(nextOf(&::pthread_mutex_lock)) lock("pthread_mutex_lock");
    if (const int refused = unlock(mutex); refused != 0)
        return refused;
    const Parked how = hold(*entry, deadline_ns, nullptr, true);
    lock(mutex);
    return how == Parked::ranOut ? ETIMEDOUT : 0;
}

}  // namespace

WRAPPER(int, pthread_cond_wait, (pthread_cond_t * condition, pthread_mutex_t* mutex)) {
    if (anyParks())
        if (const int result = heldWait(mutex, noDeadline); result >= 0)
            return result;
    NEXT(pthread_cond_wait);
    return next(condition, mutex);
}

WRAPPER(int, pthread_cond_timedwait,
        (pthread_cond_t * condition, pthread_mutex_t* mutex, const timespec* until)) {
    NEXT(pthread_cond_timedwait);
    if (!anyParks() && !timeIsBoards())
        return next(condition, mutex, until);
    if (!isValid(*until))
        return EINVAL;
    const clockid_t clock = clockOf(condition);
    if (anyParks())
        if (const int result = heldWait(mutex, monotonicDeadline(clock, *until)); result >= 0)
            return result;
    const timespec machine =
        timeIsBoards() ? toTimespec(toMachineTime_ns(clock, toNs(*until))) : *until;
    return next(condition, mutex, &machine);
}

WRAPPER(int, pthread_cond_clockwait,
        (pthread_cond_t * condition, pthread_mutex_t* mutex, clockid_t clock,
         const timespec* until)) {
    NEXT(pthread_cond_clockwait);
    if (!anyParks() && !timeIsBoards())
        return next(condition, mutex, clock, until);
    if (!isValid(*until) || (clock != CLOCK_MONOTONIC && clock != CLOCK_REALTIME))
        return EINVAL;
    if (anyParks())
        if (const int result = heldWait(mutex, monotonicDeadline(clock, *until)); result >= 0)
            return result;
    const timespec machine =
        timeIsBoards() ? toTimespec(toMachineTime_ns(clock, toNs(*until))) : *until;
    return next(condition, mutex, clock, &machine);
}
