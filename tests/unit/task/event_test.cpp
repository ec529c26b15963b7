#include "control/task/ceventimpl.h"
#include "control/task/myevent.h"

#include "tests/unit/task/waiting.h"

#include <gtest/gtest.h>
#include <sys/time.h>
#include <ctime>
#include <future>

// The wall clock as this program sees it: it can be made to jump ahead at every look.
static std::atomic<long> wallClockStep_s{0};
static std::atomic<long> wallClockOffset_s{0};

extern "C" {
int __real_clock_gettime(clockid_t clock, timespec* now);
int __wrap_clock_gettime(clockid_t clock, timespec* now);
int __real_gettimeofday(timeval* now, void* zone);
int __wrap_gettimeofday(timeval* now, void* zone);
int __wrap_clock_gettime(clockid_t clock, timespec* now) {
    const int result = __real_clock_gettime(clock, now);
    if (clock == CLOCK_REALTIME) {
        now->tv_sec += wallClockOffset_s += wallClockStep_s;
    }
    return result;
}
int __wrap_gettimeofday(timeval* now, void* zone) {
    const int result = __real_gettimeofday(now, zone);
    now->tv_sec += wallClockOffset_s += wallClockStep_s;
    return result;
}
}

TEST(MyEvent, RefusesEverythingBeforeItIsMade) {
    MyEvent event(true, true);
    EXPECT_FALSE(event.EnsureInitialized());
    EXPECT_FALSE(event.Set());
    EXPECT_FALSE(event.Reset());
    EXPECT_FALSE(event.Wait(-1));
    EXPECT_TRUE(event.CreateEvent());
    EXPECT_TRUE(event.EnsureInitialized());
    EXPECT_TRUE(event.CreateEvent());
    EXPECT_TRUE(event.Wait(0));
}

TEST(MyEvent, ManualResetStaysSetUntilReset) {
    MyEvent event(true, false);
    event.CreateEvent();
    EXPECT_FALSE(event.Wait(0));
    EXPECT_TRUE(event.Set());
    EXPECT_TRUE(event.Wait(0));
    EXPECT_TRUE(event.Wait(-1));
    EXPECT_TRUE(event.Reset());
    EXPECT_FALSE(event.Wait(0));
}

TEST(MyEvent, AutoResetSatisfiesOneWait) {
    MyEvent event(false, false);
    event.CreateEvent();
    EXPECT_TRUE(event.Set());
    EXPECT_TRUE(event.Wait(0));
    EXPECT_FALSE(event.Wait(0));
    EXPECT_FALSE(event.Wait(20));
}

TEST(MyEvent, WaitsAsLongAsAsked) {
    MyEvent event(true, false);
    event.CreateEvent();
    const auto start = Clock::now();
    EXPECT_FALSE(event.Wait(1100));
    const double waited = millisecondsSince(start);
    EXPECT_GE(waited, 1095.0);
    EXPECT_LT(waited, 5000.0);
}

TEST(MyEvent, OtherNegativeTimesAreInThePast) {
    MyEvent event(true, false);
    event.CreateEvent();
    const auto start = Clock::now();
    EXPECT_FALSE(event.Wait(-2));
    EXPECT_FALSE(event.Wait(-5000));
    EXPECT_LT(millisecondsSince(start), 1000.0);
}

TEST(MyEvent, SetWakesEveryWaiter) {
    MyEvent event(true, false);
    event.CreateEvent();
    auto wait = [&event] { return event.Wait(20000); };
    auto first = std::async(std::launch::async, wait);
    auto second = std::async(std::launch::async, wait);
    EXPECT_EQ(first.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
    const auto start = Clock::now();
    event.Set();
    EXPECT_TRUE(first.get());
    EXPECT_TRUE(second.get());
    EXPECT_LT(millisecondsSince(start), 10000.0);
}

TEST(MyEvent, StepsOfTheWallClockDoNotStretchAWait) {
    MyEvent event(true, false);
    event.CreateEvent();
    wallClockStep_s = 3600;
    auto waiter = std::async(std::launch::async, [&event] { return event.Wait(50); });
    const bool ended = waiter.wait_for(std::chrono::seconds(5)) == std::future_status::ready;
    event.Set();  // ends a wait that is an hour too long
    wallClockStep_s = 0;
    EXPECT_TRUE(ended);
    EXPECT_FALSE(waiter.get());
}

TEST(MyEvent, StepsOfTheWallClockDoNotCutAWaitShort) {
    MyEvent event(true, false);
    event.CreateEvent();
    wallClockStep_s = -3600;
    const auto start = Clock::now();
    EXPECT_FALSE(event.Wait(100));
    wallClockStep_s = 0;
    EXPECT_GE(millisecondsSince(start), 95.0);
}

TEST(CEventImpl, BeginsUnsetAndStaysSet) {
    CEventImpl event;
    EXPECT_FALSE(event.wait_for_single_object(0));
    EXPECT_TRUE(event.set_event());
    EXPECT_TRUE(event.wait_for_single_object(0));
    EXPECT_TRUE(event.wait_for_single_object(0));
    EXPECT_TRUE(event.reset_event());
    EXPECT_FALSE(event.wait_for_single_object(0));
}
