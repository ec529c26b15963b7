// Full pictures at full rate: nothing is lost on the way, nothing comes in the wrong order.

#include <gtest/gtest.h>

#include <cstdio>
#include <ostream>

#include "tests/support/application.h"
#include "tests/support/lateness.h"
#include "tests/support/scenarios.h"

namespace {

using support::Application;
using support::benchScenario;
using support::Board;
using support::CameraFigures;
using support::DisplayFigures;
using support::expectFlawless;
using support::Milliseconds;

struct Load {
    const char* scenario;
    unsigned fps;
};

void PrintTo(const Load& one, std::ostream* out) {
    *out << one.scenario;
}

constexpr double patience = 6;  // times the wanted length
// Until a backlog of all buffers is gone at the highest rate and its gap has come to the screen.
constexpr double recovery_s = 1.5;

struct Measured {
    CameraFigures camera;  // of the measured time only: delivered, lost
    DisplayFigures display;
    std::size_t overflows = 0;
    support::Verdict flaws;
    double took_s = 0;
};

class Throughput : public testing::TestWithParam<Load> {};

void measure(const Load& load, double seconds, Measured& measured) {
    Board board(benchScenario(load.scenario));
    Application application(board);
    application.expectPlaying();
    // The first second is thrown away by the application, the second one settles.
    ASSERT_TRUE(board.waitForDisplay([&](const auto& now) { return now.shown >= load.fps; },
                                     Milliseconds(20000)))
        << "only " << board.display().shown << " frames were shown";
    board.resetFigures();
    const CameraFigures before = board.camera();
    const support::ProcessFigures processBefore = application.process().figures();
    const auto began = support::Clock::now();
    measured.flaws =
        support::judgeFlaws([&] { return board.camera().lost + board.display().skipped; }, seconds,
                            seconds * patience, recovery_s);
    measured.camera = board.camera();
    measured.display = board.display();
    measured.overflows = application.out().count("clean queue buff");
    measured.camera.delivered -= before.delivered;
    measured.camera.lost -= before.lost;
    const double took_s = std::chrono::duration<double>(support::Clock::now() - began).count();
    measured.took_s = took_s;
    const double cpu = (application.process().figures().cpu_s - processBefore.cpu_s) / took_s * 100;
    const DisplayFigures& display = measured.display;
    std::printf(
        "%u fps for %.1f s: delivered %llu, lost %llu, shown %llu, repeated %llu, skipped "
        "%llu, latency median %.1f ms p95 %.1f ms p99 %.1f ms, %.0f %% of a core; %s\n",
        load.fps, took_s, (unsigned long long)measured.camera.delivered,
        (unsigned long long)measured.camera.lost, (unsigned long long)display.shown,
        (unsigned long long)display.repeated, (unsigned long long)display.skipped,
        display.latencyMedian_ms, display.latencyP95_ms, display.latencyP99_ms, cpu,
        measured.flaws.text().c_str());
}

// A frame that is missing counts at once where the machine kept time. Where it did not, the
// measurement goes on: the whole length must pass in one piece. On a machine whose processors are
// away much of the time it cannot, whatever the application does.
TEST_P(Throughput, EveryFrameIsShownOnceInOrder) {
    const double seconds = support::longRun() ? 60 : 10;
    Measured measured;
    ASSERT_NO_FATAL_FAILURE(measure(GetParam(), seconds, measured));
    EXPECT_NEAR(double(measured.camera.delivered + measured.camera.lost),
                GetParam().fps * measured.took_s, GetParam().fps / 2.0)
        << "the camera's own rate";
    // Back only where the ring was full and a picture was drawn over on its way to the screen.
    EXPECT_LE(measured.display.outOfOrder, measured.display.overwritten);
    if (measured.flaws.unjudgeable()) {
        if (!measured.flaws.enough(seconds)) {
            GTEST_SKIP() << "not judged: " << measured.flaws.text();
        }
        return;  // what has to wait for its turn may be as much as the ring holds
    }
    expectFlawless(measured.flaws, seconds);
    EXPECT_EQ(measured.display.overwritten, 0u);
    EXPECT_EQ(measured.overflows, 0u);
    // What is under way between camera and screen at either end of the measurement.
    EXPECT_NEAR(double(measured.display.shown), double(measured.camera.delivered),
                GetParam().fps / 4.0);
}

INSTANTIATE_TEST_SUITE_P(FullPicture, Throughput,
                         testing::Values(Load{"full-30", 30}, Load{"full-60", 60}),
                         [](const auto& info) { return std::to_string(info.param.fps) + "fps"; });

}  // namespace
