// Full pictures at full rate: nothing is lost on the way, nothing comes in the wrong order.

#include <gtest/gtest.h>

#include <cstdio>

#include "tests/support/application.h"
#include "tests/support/scenarios.h"

namespace {

using support::Application;
using support::benchScenario;
using support::Board;
using support::CameraFigures;
using support::DisplayFigures;
using support::Milliseconds;

struct Load {
    const char* scenario;
    unsigned fps;
};

class Throughput : public testing::TestWithParam<Load> {};

TEST_P(Throughput, EveryFrameIsShownOnceInOrder) {
    const unsigned seconds = support::longRun() ? 60 : 10;
    const unsigned fps = GetParam().fps;
    Board board(benchScenario(GetParam().scenario));
    Application application(board);
    application.expectPlaying();
    // The first second is thrown away by the application, the second one settles.
    ASSERT_TRUE(board.waitForDisplay([&](const auto& now) { return now.shown >= fps; },
                                     Milliseconds(20000)))
        << "only " << board.display().shown << " frames were shown";
    board.resetFigures();
    const CameraFigures cameraBefore = board.camera();
    const support::ProcessFigures processBefore = application.process().figures();
    const auto began = support::Clock::now();
    ASSERT_TRUE(board.waitForCamera(
        [&](const CameraFigures& now) {
            return now.delivered >= cameraBefore.delivered + std::uint64_t(fps) * seconds;
        },
        Milliseconds(seconds * 2000)));
    const CameraFigures camera = board.camera();
    const DisplayFigures display = board.display();
    const double took_s = std::chrono::duration<double>(support::Clock::now() - began).count();
    const std::uint64_t delivered = camera.delivered - cameraBefore.delivered;
    const double cpu = (application.process().figures().cpu_s - processBefore.cpu_s) / took_s * 100;
    std::printf(
        "%u fps for %.1f s: delivered %llu, lost %llu, shown %llu, repeated %llu, skipped "
        "%llu, latency median %.1f ms p95 %.1f ms p99 %.1f ms, %.0f %% of a core\n",
        fps, took_s, (unsigned long long)delivered,
        (unsigned long long)(camera.lost - cameraBefore.lost), (unsigned long long)display.shown,
        (unsigned long long)display.repeated, (unsigned long long)display.skipped,
        display.latencyMedian_ms, display.latencyP95_ms, display.latencyP99_ms, cpu);
    EXPECT_EQ(camera.lost, cameraBefore.lost) << "frames for which no buffer was queued";
    EXPECT_EQ(display.skipped, 0u);
    EXPECT_EQ(display.outOfOrder, 0u);
    // What is under way between camera and screen at either end of the measurement.
    EXPECT_NEAR(double(display.shown), double(delivered), fps / 4.0);
    EXPECT_EQ(application.out().count("clean queue buff"), 0u);
}

INSTANTIATE_TEST_SUITE_P(FullPicture, Throughput,
                         testing::Values(Load{"full-30", 30}, Load{"full-60", 60}),
                         [](const auto& info) { return std::to_string(info.param.fps) + "fps"; });

}  // namespace
