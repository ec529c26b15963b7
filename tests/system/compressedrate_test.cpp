// Motion JPEG and H.264 at full size and rate: nothing is lost, nothing comes in the wrong order,
// and the pictures are the right ones.

#include <gtest/gtest.h>

#include <cstdio>
#include <ostream>

#include "tests/support/application.h"
#include "tests/support/lateness.h"
#include "tests/system/compressedplay.h"

namespace {

using support::Application;
using support::Board;
using support::CameraFigures;
using support::CameraMode;
using support::DisplayFigures;
using support::expectFlawless;
using support::Milliseconds;
using support::ModeScenario;

constexpr double patience = 4;    // times the wanted length
constexpr double recovery_s = 2;  // until the next key frame has come to the screen

struct Load {
    CameraMode mode;
    bool complete;  // every frame must be shown, and the picture is compared
    bool longOnly;
};

void PrintTo(const Load& one, std::ostream* out) {
    *out << one.mode.name;
}

const Load loads[] = {
    {{"Mjpeg1080p30", "MJPG", 1920, 1080, 30, "", 1920, 1080}, true, false},
    {{"Mjpeg1080p60", "MJPG", 1920, 1080, 60, "", 1920, 1080}, false, false},
    {{"H2641080p30", "H264", 1920, 1080, 30, "", 1920, 1080}, true, false},
    {{"H2641080p30B", "H264", 1920, 1080, 30, R"("bFrames": 2)", 1920, 1080}, true, true},
    {{"H2642160p30", "H264", 3840, 2160, 30, R"("bitRate": 8000000)", 1920, 1080}, false, true},
};

struct Measured {
    CameraFigures camera;  // of the measured time only: delivered, lost
    DisplayFigures display;
    support::Verdict flaws;
    double took_s = 0;
};

void measure(Board& board, Application& application, const Load& load, double seconds,
             Measured& measured) {
    board.resetFigures();
    const CameraFigures before = board.camera();
    const double cpuBefore_s = application.process().figures().cpu_s;
    const double boardBefore_s = board.daemon().figures().cpu_s;
    const auto began = support::Clock::now();
    measured.flaws = support::judgeFlaws(
        [&] { return load.complete ? board.camera().lost + board.display().skipped : 0; }, seconds,
        seconds * patience, recovery_s);
    measured.camera = board.camera();
    measured.display = board.display();
    measured.camera.delivered -= before.delivered;
    measured.camera.lost -= before.lost;
    const double took_s = std::chrono::duration<double>(support::Clock::now() - began).count();
    measured.took_s = took_s;
    const double cpu = (application.process().figures().cpu_s - cpuBefore_s) / took_s * 100;
    const double boardCpu = (board.daemon().figures().cpu_s - boardBefore_s) / took_s * 100;
    const DisplayFigures& display = measured.display;
    std::printf(
        "%s for %.1f s: delivered %llu, lost %llu, shown %llu, skipped %llu, out of order %llu, "
        "latency median %.1f ms p95 %.1f ms p99 %.1f ms, application %.0f %% of a core, board "
        "%.0f %%; %s\n",
        load.mode.name, took_s, (unsigned long long)measured.camera.delivered,
        (unsigned long long)measured.camera.lost, (unsigned long long)display.shown,
        (unsigned long long)display.skipped, (unsigned long long)display.outOfOrder,
        display.latencyMedian_ms, display.latencyP95_ms, display.latencyP99_ms, cpu, boardCpu,
        measured.flaws.text().c_str());
}

class CompressedRate : public testing::TestWithParam<Load> {};

TEST_P(CompressedRate, IsKeptAndThePictureIsTheReferences) {
    const Load& load = GetParam();
    if (load.longOnly && !support::longRun()) {
        GTEST_SKIP() << "takes a minute; TEST_LONG=1 runs it";
    }
    const ModeScenario scenario(load.mode);
    Board board(scenario.path());
    Application application(board);
    application.expectPlaying();
    // The first second is thrown away; the camera's own encoder may be at work a little longer.
    const std::uint64_t settled = load.longOnly ? 300 : load.mode.fps * 2;
    ASSERT_TRUE(board.waitForDisplay([&](const auto& now) { return now.shown >= settled; },
                                     Milliseconds(60000)))
        << "only " << board.display().shown << " frames were shown";
    const double seconds = support::longRun() ? 30 : 3;
    Measured measured;
    ASSERT_NO_FATAL_FAILURE(measure(board, application, load, seconds, measured));
    // An encoder that is late leaves out intervals.
    EXPECT_GE(double(measured.camera.delivered + measured.camera.lost),
              load.mode.fps * measured.took_s / 2)
        << "the camera's own rate";
    EXPECT_EQ(measured.display.outOfOrder, 0u);
    EXPECT_GT(measured.display.shown, 0u);
    if (!load.complete) {
        return;
    }
    // The copy of an H.264 stream begins with its next key frame, a second later at the most.
    const std::string payloads = compressed::startPayloads(board, load.mode);
    const std::uint64_t before = board.display().shown;
    ASSERT_TRUE(board.waitForDisplay(
        [&](const auto& now) { return now.shown >= before + load.mode.fps * 2; },
        Milliseconds(20000)));
    compressed::expectLikeTheReference(board, load.mode, payloads, 4, 38);
    if (!measured.flaws.enough(seconds) && measured.flaws.unjudgeable()) {
        GTEST_SKIP() << "not judged: " << measured.flaws.text();
    }
    expectFlawless(measured.flaws, seconds);
}

INSTANTIATE_TEST_SUITE_P(Loads, CompressedRate, testing::ValuesIn(loads),
                         [](const auto& info) { return std::string(info.param.mode.name); });

}  // namespace
