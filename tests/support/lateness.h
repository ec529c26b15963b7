// Whether the machine itself kept time while something was measured on it.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <list>
#include <string>
#include <thread>

namespace support {

// A machine whose processors are taken away for longer than this cannot be measured on: it
// swallows more of a frame's time than the application has to spare.
constexpr double tolerableLateness_ms = 5;

// The share of the time from which on a machine without its processors is none to judge speed on.
// Bursts of 80 ms (seen) come more than once a second then; a quiet virtual machine has 0 to 1 %.
constexpr double unusableAway = 0.05;

// A thread for every processor that sleeps 2 ms at a time, before everything else that wants to
// run there, and notes how late it wakes. It is late where a host gives the processor to others,
// not where this machine's own programs are busy.
class LatenessProbe {
  public:
    LatenessProbe();
    ~LatenessProbe();
    LatenessProbe(const LatenessProbe&) = delete;
    LatenessProbe& operator=(const LatenessProbe&) = delete;

    double worst_ms() const;
    // For how long every processor has been in time, at most since the probe began.
    double calm_s() const;
    // Which share of the time since the probe began the processors were away, 0 to 1, on the
    // average of them; no more than tolerable lateness does not count. Where this machine's own
    // programs may run before the probe it is what the host says it took.
    double away() const;
    // What a host says it took since the probe began, all processors together; 0 without a host.
    double stolen_ms() const;

  private:
    struct Processor {
        std::atomic<std::int64_t> lastWake_ns{0}, lastLate_ns{0}, away_ns{0};
        std::atomic<double> worst_ms{0};
        std::thread thread;
    };
    void run(Processor& processor) const;

    std::int64_t began_ns_;
    double stolenBefore_ms_;
    std::atomic<bool> stop_{false}, first_{true};
    std::list<Processor> processors_;
};

// What a test says that is skipped because the machine was away for too long.
std::string notJudged(double away);

struct Verdict {
    std::uint64_t flaws = 0;        // all of them
    std::uint64_t judgedFlaws = 0;  // those for which the machine is no excuse
    double judged_s = 0;            // time in which a flaw would have been judged
    double flawless_s = 0;          // since the last flaw, or since the beginning
    double lateness_ms = 0;         // of the machine, at the worst
    double away = 0;                // LatenessProbe::away()
    double stolen_ms = 0;           // LatenessProbe::stolen_ms()

    bool enough(double seconds) const { return flawless_s >= seconds; }
    // The machine was none to judge on, and nothing was found in what could be judged.
    bool unjudgeable() const { return judgedFlaws == 0 && away >= unusableAway; }
    std::string text() const;
};

// Follows a rising count of flaws until `seconds` without a flaw have passed in one piece, or one
// came with the machine in time for `recovery_s` and more, or `patience_s` is over: sooner, after
// twice `seconds`, on a machine that is none to judge on.
class FlawJudge {
  public:
    FlawJudge(double seconds, double patience_s, double recovery_s)
        : seconds_(seconds), patience_s_(patience_s), recovery_s_(recovery_s) {}

    // At `now_s` since the beginning; `calm_s` and `away` are the machine's.
    void look(double now_s, std::uint64_t flaws, double calm_s, double away);
    bool over() const;
    const Verdict& verdict() const { return verdict_; }

  private:
    double seconds_, patience_s_, recovery_s_;
    double last_s_ = 0, flawed_s_ = 0;
    Verdict verdict_;
};

// A FlawJudge's verdict on what `count` gives, asked ten times a second.
Verdict judgeFlaws(const std::function<std::uint64_t()>& count, double seconds, double patience_s,
                   double recovery_s);

// Fails unless all that was judged was flawless and `seconds` in one piece were.
void expectFlawless(const Verdict& verdict, double seconds);

}  // namespace support
