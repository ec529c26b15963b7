// What a flaw counts for where the machine kept time and where it did not.

#include "tests/support/lateness.h"

#include <gtest/gtest.h>
#include <linux/capability.h>
#include <pthread.h>
#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <chrono>
#include <list>
#include <memory>
#include <thread>

namespace {

using support::FlawJudge;
using support::LatenessProbe;
using support::tolerableLateness_ms;
using support::unusableAway;
using support::Verdict;

constexpr double seconds = 10, patience_s = 60, recovery_s = 1.5, step_s = 0.5;

// A machine that was always in time, or never.
struct Machine {
    double calm_s, away;
};
constexpr Machine calm{1000, 0};
constexpr Machine late{0, unusableAway / 2};  // now and then, yet most of the time there
constexpr Machine away{0, unusableAway};

// Looks until the judge has come to its verdict; every `every_s` comes a flaw, 0: never.
Verdict judged(const Machine& machine, double every_s) {
    FlawJudge judge(seconds, patience_s, recovery_s);
    for (double now_s = step_s; !judge.over(); now_s += step_s) {
        const std::uint64_t flaws = every_s > 0 ? std::uint64_t(now_s / every_s) : 0;
        judge.look(now_s, flaws, machine.calm_s, machine.away);
        if (now_s > 2 * patience_s) {
            ADD_FAILURE() << "never over";
            break;
        }
    }
    return judge.verdict();
}

using Clock = std::chrono::steady_clock;
constexpr std::chrono::milliseconds burst(60);

double since_ms(Clock::time_point began) {
    return std::chrono::duration<double, std::milli>(Clock::now() - began).count();
}

// Keeps one processor for a burst as a host does; false where that is not allowed.
bool takeAProcessorAway() {
    bool allowed = false;
    std::thread([&allowed] {
        // Bound to it: the scheduler would move it on to make room for the probe.
        cpu_set_t own;
        CPU_ZERO(&own);
        CPU_SET(sched_getcpu(), &own);
        pthread_setaffinity_np(pthread_self(), sizeof own, &own);
        sched_param highest{};
        highest.sched_priority = sched_get_priority_max(SCHED_FIFO);
        allowed = pthread_setschedparam(pthread_self(), SCHED_FIFO, &highest) == 0;
        const Clock::time_point began = Clock::now();
        while (allowed && Clock::now() < began + burst) {
        }
    }).join();
    return allowed;
}

constexpr double most_ms = 48;  // of a burst, at the least

// Again where the probe was not at work yet; false where nobody may run before others.
bool makeLate(const LatenessProbe& probe, Clock::time_point began) {
    bool allowed = true;
    while (allowed && probe.worst_ms() < most_ms && since_ms(began) < 5000) {
        allowed = takeAProcessorAway();
    }
    return allowed;
}

// The right to run before others is taken from this thread and those that it starts.
void giveUpPriority() {
    __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct data[2] = {};
    ASSERT_EQ(::syscall(SYS_capget, &header, data), 0);
    data[0].effective &= ~(1u << CAP_SYS_NICE);
    ASSERT_EQ(::syscall(SYS_capset, &header, data), 0);
}

TEST(LatenessProbe, ABurstIsTimeAway) {
    const Clock::time_point began = Clock::now();
    const LatenessProbe probe;
    if (!makeLate(probe, began)) {
        GTEST_SKIP() << "this user may not run before others";
    }
    EXPECT_GE(probe.worst_ms(), most_ms);
    const double away_ms = probe.away() * since_ms(began) * std::thread::hardware_concurrency();
    EXPECT_GE(away_ms, most_ms);
    EXPECT_LE(probe.away(), 1);
    EXPECT_LT(probe.calm_s(), since_ms(began) / 1000 - double(burst.count()) / 1000);
}

TEST(LatenessProbe, WithoutLatenessNothingIsAwayHoweverBusyTheMachine) {
    const LatenessProbe probe;
    const Clock::time_point began = Clock::now();
    std::list<std::thread> busy;
    for (unsigned i = 0; i < 3 * std::thread::hardware_concurrency(); ++i) {
        busy.emplace_back([began] {
            while (Clock::now() < began + 5 * burst) {
            }
        });
    }
    for (std::thread& thread : busy) {
        thread.join();
    }
    // What a host may take meanwhile is in both figures.
    const double away = probe.away();
    EXPECT_EQ(away > 0, probe.worst_ms() > tolerableLateness_ms) << probe.worst_ms();
}

TEST(LatenessProbe, WhereOthersMayRunFirstTheHostsCountStands) {
    std::unique_ptr<LatenessProbe> probe;
    std::thread([&probe] {
        ASSERT_NO_FATAL_FAILURE(giveUpPriority());
        probe = std::make_unique<LatenessProbe>();
    }).join();
    ASSERT_NE(probe, nullptr);
    const Clock::time_point began = Clock::now();
    makeLate(*probe, began);
    const double before_ms = probe->stolen_ms();
    const double away = probe->away();
    const double after_ms = probe->stolen_ms();
    const double all_ms = since_ms(began) * std::thread::hardware_concurrency();
    EXPECT_GE(away, before_ms / all_ms * 0.9);
    EXPECT_LE(away, after_ms / all_ms * 1.1);
}

TEST(FlawJudge, TheWholeLengthWithoutAFlawIsEnoughOnAnyMachine) {
    for (const Machine& machine : {calm, late, away}) {
        const Verdict verdict = judged(machine, 0);
        EXPECT_TRUE(verdict.enough(seconds));
        EXPECT_EQ(verdict.flaws, 0u);
        EXPECT_EQ(verdict.judged_s, machine.calm_s > 0 ? seconds : 0);
    }
}

TEST(FlawJudge, AFlawOnAMachineInTimeEndsItAtOnce) {
    const Verdict verdict = judged(calm, 3);
    EXPECT_EQ(verdict.judgedFlaws, 1u);
    EXPECT_EQ(verdict.judged_s, 3);
    EXPECT_FALSE(verdict.unjudgeable());
}

TEST(FlawJudge, AFlawIsJudgedOnlyWhereTheMachineHadTimeToRecover) {
    FlawJudge judge(seconds, patience_s, recovery_s);
    judge.look(2, 1, recovery_s + 1.9, 0);
    EXPECT_EQ(judge.verdict().judgedFlaws, 0u) << "late within the look or its recovery";
    judge.look(4, 3, recovery_s + 2, 0);
    EXPECT_EQ(judge.verdict().judgedFlaws, 2u);
    EXPECT_EQ(judge.verdict().flaws, 3u);
    EXPECT_TRUE(judge.over());
}

TEST(FlawJudge, AMachineThatIsLateNowAndThenMustPassInTheEnd) {
    const Verdict verdict = judged(late, 3);
    EXPECT_EQ(verdict.flaws, std::uint64_t(patience_s / 3));
    EXPECT_FALSE(verdict.enough(seconds));
    EXPECT_FALSE(verdict.unjudgeable()) << "which fails the test";
}

TEST(FlawJudge, AMachineThatIsAwayIsGivenUpAfterTwiceTheLength) {
    const Verdict verdict = judged(away, 3);
    EXPECT_EQ(verdict.flaws, std::uint64_t(2 * seconds / 3));
    EXPECT_FALSE(verdict.enough(seconds));
    EXPECT_TRUE(verdict.unjudgeable());
}

TEST(FlawJudge, AFlawInACalmMomentCountsOnAMachineThatIsAway) {
    FlawJudge judge(seconds, patience_s, recovery_s);
    judge.look(2, 1, 0, 0.5);
    judge.look(4, 2, recovery_s + 2, 0.4);
    EXPECT_EQ(judge.verdict().judgedFlaws, 1u);
    EXPECT_FALSE(judge.verdict().unjudgeable());
}

}  // namespace
