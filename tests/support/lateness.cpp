#include "tests/support/lateness.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <string>

namespace support {

namespace {

constexpr std::int64_t ms_ns = 1000000;
constexpr std::int64_t period_ns = 2 * ms_ns;
constexpr auto look = std::chrono::milliseconds(100);

std::int64_t now_ns() {
    return std::chrono::steady_clock::now().time_since_epoch() / std::chrono::nanoseconds(1);
}

// What a host kept from this machine since it started.
double stolenTime_ms() {
    std::ifstream stat("/proc/stat");
    std::string cpu;
    stat >> cpu;
    double ticks = 0;
    for (int field = 0; field < 8; ++field)  // user nice system idle iowait irq softirq steal
        stat >> ticks;
    return stat ? ticks * 1000 / double(sysconf(_SC_CLK_TCK)) : 0;
}

}  // namespace

LatenessProbe::LatenessProbe() : began_ns_(now_ns()), stolenBefore_ms_(stolenTime_ms()) {
    cpu_set_t allowed;
    CPU_ZERO(&allowed);
    sched_getaffinity(0, sizeof allowed, &allowed);
    for (int cpu = 0; cpu < CPU_SETSIZE; ++cpu) {
        if (!CPU_ISSET(cpu, &allowed))
            continue;
        Processor& processor = processors_.emplace_back();
        processor.lastWake_ns = began_ns_;
        processor.lastLate_ns = began_ns_;
        processor.thread = std::thread([this, &processor, cpu] {
            cpu_set_t own;
            CPU_ZERO(&own);
            CPU_SET(cpu, &own);
            pthread_setaffinity_np(pthread_self(), sizeof own, &own);
            sched_param highest{};
            highest.sched_priority = sched_get_priority_max(SCHED_FIFO);
            if (pthread_setschedparam(pthread_self(), SCHED_FIFO, &highest) != 0)
                first_ = false;
            run(processor);
        });
    }
}

LatenessProbe::~LatenessProbe() {
    stop_ = true;
    for (Processor& processor : processors_)
        processor.thread.join();
}

void LatenessProbe::run(Processor& processor) const {
    while (!stop_) {
        const std::int64_t due_ns = now_ns() + period_ns;
        std::this_thread::sleep_for(std::chrono::nanoseconds(period_ns));
        const std::int64_t woke_ns = now_ns();
        const double late_ms = double(woke_ns - due_ns) / double(ms_ns);
        if (late_ms > tolerableLateness_ms) {
            processor.lastLate_ns = woke_ns;
            processor.away_ns += woke_ns - due_ns;
        }
        if (late_ms > processor.worst_ms)
            processor.worst_ms = late_ms;
        processor.lastWake_ns = woke_ns;
    }
}

double LatenessProbe::worst_ms() const {
    double worst = 0;
    for (const Processor& processor : processors_)
        worst = std::max<double>(worst, processor.worst_ms);
    return worst;
}

double LatenessProbe::calm_s() const {
    const std::int64_t now = now_ns();
    std::int64_t since = began_ns_;
    for (const Processor& processor : processors_) {
        const std::int64_t asleep = now - processor.lastWake_ns;
        if (double(asleep - period_ns) > tolerableLateness_ms * double(ms_ns))
            return 0;
        since = std::max<std::int64_t>(since, processor.lastLate_ns);
    }
    return double(now - since) / 1e9;
}

double LatenessProbe::stolen_ms() const {
    return stolenTime_ms() - stolenBefore_ms_;
}

double LatenessProbe::away() const {
    double away_ns = first_ ? 0 : stolen_ms() * double(ms_ns);
    for (const Processor& processor : processors_)
        away_ns += first_ ? double(processor.away_ns) : 0;
    return away_ns / double(now_ns() - began_ns_) / double(processors_.size());
}

std::string notJudged(double away) {
    char line[80];
    std::snprintf(line, sizeof line, "not judged: the machine was away for %.0f %% of the time",
                  away * 100);
    return line;
}

std::string Verdict::text() const {
    char line[160];
    std::snprintf(line, sizeof line,
                  "%.1f s flawless, %.1f s judged, machine late by %.1f ms at most and away for "
                  "%.0f %% of the time, robbed of %.0f ms",
                  flawless_s, judged_s, lateness_ms, away * 100, stolen_ms);
    return line;
}

void FlawJudge::look(double now_s, std::uint64_t flaws, double calm_s, double away) {
    const double passed_s = now_s - last_s_;
    // The machine was in time for all of the last look's time and before that.
    const bool judged = calm_s >= recovery_s_ + passed_s;
    if (judged)
        verdict_.judged_s += passed_s;
    if (flaws != verdict_.flaws) {
        verdict_.judgedFlaws += judged ? flaws - verdict_.flaws : 0;
        verdict_.flaws = flaws;
        flawed_s_ = now_s;
    }
    last_s_ = now_s;
    verdict_.flawless_s = now_s - flawed_s_;
    verdict_.away = away;
}

bool FlawJudge::over() const {
    return verdict_.enough(seconds_) || verdict_.judgedFlaws != 0 || last_s_ >= patience_s_ ||
           (last_s_ >= 2 * seconds_ && verdict_.unjudgeable());
}

Verdict judgeFlaws(const std::function<std::uint64_t()>& count, double seconds, double patience_s,
                   double recovery_s) {
    const LatenessProbe probe;
    const std::int64_t began_ns = now_ns();
    const std::uint64_t before = count();
    FlawJudge judge(seconds, patience_s, recovery_s);
    while (!judge.over()) {
        std::this_thread::sleep_for(look);
        const std::uint64_t flaws = count() - before;
        judge.look(double(now_ns() - began_ns) / 1e9, flaws, probe.calm_s(), probe.away());
    }
    Verdict verdict = judge.verdict();
    verdict.lateness_ms = probe.worst_ms();
    verdict.stolen_ms = probe.stolen_ms();
    return verdict;
}

void expectFlawless(const Verdict& verdict, double seconds) {
    EXPECT_EQ(verdict.judgedFlaws, 0u)
        << "frames that found no buffer or did not come to the screen";
    EXPECT_TRUE(verdict.judgedFlaws != 0 || verdict.enough(seconds))
        << "never so long without a flaw";
}

}  // namespace support
