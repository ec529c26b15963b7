// The drift rule: its arithmetic, and what it can hold over time on two clocks that differ.
#include "control/audio/driftrule.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <numeric>

namespace {

constexpr std::size_t frame = 4;
constexpr std::size_t periodFrames = 1024;
constexpr std::size_t period = periodFrames * frame;

TEST(DriftRule, TakesAFrameLessAtSevenPeriodsAndBelow) {
    EXPECT_EQ(drift::bytesToTake(7 * period, period, frame), period - frame);
    EXPECT_EQ(drift::bytesToTake(7 * period + 1, period, frame), period);
    EXPECT_EQ(drift::bytesToTake(period, period, frame), period - frame);
    EXPECT_EQ(drift::bytesToTake(20 * period, period, frame), period);
    EXPECT_EQ(drift::bytesToTake(frame, frame, frame), frame);
}

TEST(DriftRule, RepeatsTheLastFrames) {
    std::vector<unsigned char> data(period + 8);
    std::iota(data.begin(), data.end(), 0);
    const std::vector<unsigned char> before = data;
    drift::completePeriod(data.data(), period - frame, period, frame);
    EXPECT_TRUE(std::equal(data.begin(), data.begin() + period - frame, before.begin()));
    EXPECT_TRUE(std::equal(data.begin() + period - frame, data.begin() + period,
                           before.begin() + period - 2 * frame));
    EXPECT_TRUE(std::equal(data.begin() + period, data.end(), before.begin() + period));
    // More missing: as many of the last real ones, in their order.
    data = before;
    drift::completePeriod(data.data(), period - 3 * frame, period, frame);
    EXPECT_TRUE(std::equal(data.begin() + period - 3 * frame, data.begin() + period,
                           before.begin() + period - 6 * frame));
    // A whole period, and one of which hardly anything is there, stay as they are.
    data = before;
    drift::completePeriod(data.data(), period, period, frame);
    drift::completePeriod(data.data(), frame, period, frame);
    EXPECT_EQ(data, before);
}

struct Report {
    unsigned underruns = 0;
    unsigned long repeated = 0;
    double lowest = 1e9, highest = 0;  // periods in the FIFO before each take, once it plays
    std::vector<double> levels;        // at each third of the time
    double end() const { return levels.back(); }
};

// The writer's loop in simulated time: the camera gives a period whenever its clock says so, the
// device plays out of three periods of buffer by the board's clock.
class Simulation {
  public:
    explicit Simulation(double camera_ppm)
        : cameraPeriod_s_(periodFrames / (48000.0 * (1 + camera_ppm * 1e-6))) {}

    Report run(double seconds) {
        while (fifo() < drift::prefillPeriods * period) {
            now_s_ += 0.002;
        }
        for (int third = 1; third <= 3; ++third) {
            while (now_s_ < seconds * third / 3) {
                step();
            }
            report_.levels.push_back(double(fifo()) / period);
        }
        return report_;
    }

  private:
    std::size_t fifo() const { return std::size_t(now_s_ / cameraPeriod_s_) * period - taken_; }

    void step() {
        const std::size_t remain = fifo();
        if (remain < period) {
            now_s_ += 0.002;
            return;
        }
        report_.lowest = std::min(report_.lowest, double(remain) / period);
        report_.highest = std::max(report_.highest, double(remain) / period);
        const std::size_t taken = drift::bytesToTake(remain, period, frame);
        report_.repeated += (period - taken) / frame;
        taken_ += taken;
        if (write() > 0.004999) {
            now_s_ += 0.030;
        }
    }

    // How long the write of a period blocks. `playedUntil_s_` is when the device runs dry.
    double write() {
        constexpr double period_s = periodFrames / 48000.0;
        if (playedUntil_s_ < now_s_) {
            report_.underruns += playedUntil_s_ > 0 ? 1 : 0;
            playedUntil_s_ = now_s_;
        }
        const double blocked_s = std::max(0.0, playedUntil_s_ - now_s_ - 2 * period_s);
        now_s_ += blocked_s;
        playedUntil_s_ += period_s;
        return blocked_s;
    }

    double cameraPeriod_s_;
    double now_s_ = 0, playedUntil_s_ = 0;
    std::size_t taken_ = 0;
    Report report_;
};

double minutes() {
    const char* wanted = std::getenv("TEST_LONG");
    return wanted != nullptr && *wanted != '\0' && *wanted != '0' ? 30 : 3;
}

Report simulate(double camera_ppm) {
    Report report = Simulation(camera_ppm).run(minutes() * 60);
    std::printf(
        "%6.0f ppm  %2.0f min  under-runs %u  repeated frames %6lu  FIFO periods: lowest "
        "%.2f, at thirds %.2f %.2f %.2f\n",
        camera_ppm, minutes(), report.underruns, report.repeated, report.lowest, report.levels[0],
        report.levels[1], report.levels[2]);
    return report;
}

// Every frame that the camera is behind is made up for by a repeated one.
TEST(Drift, ASlowerCameraIsHeld) {
    for (const double ppm : {0.0, -100.0, -500.0, -900.0}) {
        const Report report = simulate(ppm);
        EXPECT_EQ(report.underruns, 0U);
        EXPECT_GT(report.lowest, 4.5);
        EXPECT_LE(report.end(), 8.5);
        const double behind = -ppm * 1e-6 * 48000 * minutes() * 60;
        // The level itself may have fallen by two periods.
        EXPECT_NEAR(double(report.repeated), behind, 2.2 * periodFrames);
    }
}

// One frame in 1024 is 977 ppm: beyond that the level falls by what is left over.
TEST(Drift, BeyondOneFrameInAPeriodTheLevelFalls) {
    const Report report = simulate(-1000);
    EXPECT_EQ(report.underruns, 0U);
    const double fall = (1000 - 1e6 / 1024) * 1e-6 * 48000 * minutes() * 60 / periodFrames;
    EXPECT_NEAR(report.end(), 7.0 - fall, 1.2);
    // At three times the limit the sound is interrupted.
    EXPECT_GT(simulate(-3000).underruns, 0U);
}

// Nothing is ever left out: what a faster camera is ahead piles up.
TEST(Drift, AFasterCameraMakesTheDelayGrow) {
    for (const double ppm : {100.0, 1000.0}) {
        const Report report = simulate(ppm);
        EXPECT_EQ(report.underruns, 0U);
        const double ahead = ppm * 1e-6 * 48000 * minutes() * 60 / periodFrames;
        EXPECT_NEAR(report.end(), 7.5 + ahead, 1.2);
        EXPECT_LT(report.repeated, 1100U);
    }
}

}  // namespace
