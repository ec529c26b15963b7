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
using support::Milliseconds;
using support::ModeScenario;

// A machine that wakes its own threads later than this cannot be measured on.
constexpr double tolerableLateness_ms = 5;
constexpr int attempts = 4;

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
    double lateness_ms = 0;

    bool flawless() const {
        return camera.lost == 0 && display.skipped == 0 && display.outOfOrder == 0;
    }
};

void measure(Board& board, Application& application, const CameraMode& mode, Measured& measured) {
    const unsigned seconds = support::longRun() ? 30 : 3;
    const support::LatenessProbe probe;
    board.resetFigures();
    const CameraFigures before = board.camera();
    const double cpuBefore_s = application.process().figures().cpu_s;
    const double boardBefore_s = board.daemon().figures().cpu_s;
    const auto began = support::Clock::now();
    ASSERT_TRUE(board.waitForCamera(
        [&](const CameraFigures& now) {
            return now.delivered + now.lost >=
                   before.delivered + before.lost + std::uint64_t(mode.fps) * seconds;
        },
        Milliseconds(seconds * 4000)));
    measured.camera = board.camera();
    measured.display = board.display();
    measured.lateness_ms = probe.worst_ms();
    measured.camera.delivered -= before.delivered;
    measured.camera.lost -= before.lost;
    const double took_s = std::chrono::duration<double>(support::Clock::now() - began).count();
    const double cpu = (application.process().figures().cpu_s - cpuBefore_s) / took_s * 100;
    const double boardCpu = (board.daemon().figures().cpu_s - boardBefore_s) / took_s * 100;
    const DisplayFigures& display = measured.display;
    std::printf(
        "%s for %.1f s: delivered %llu, lost %llu, shown %llu, skipped %llu, out of order %llu, "
        "latency median %.1f ms p95 %.1f ms p99 %.1f ms, application %.0f %% of a core, board "
        "%.0f %%, machine late by %.1f ms at most\n",
        mode.name, took_s, (unsigned long long)measured.camera.delivered,
        (unsigned long long)measured.camera.lost, (unsigned long long)display.shown,
        (unsigned long long)display.skipped, (unsigned long long)display.outOfOrder,
        display.latencyMedian_ms, display.latencyP95_ms, display.latencyP99_ms, cpu, boardCpu,
        measured.lateness_ms);
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
    Measured measured;
    for (int attempt = 0; attempt < attempts; ++attempt) {
        ASSERT_NO_FATAL_FAILURE(measure(board, application, load.mode, measured));
        if (!load.complete || measured.flawless() || measured.lateness_ms <= tolerableLateness_ms) {
            break;
        }
    }
    EXPECT_EQ(measured.display.outOfOrder, 0u);
    EXPECT_GT(measured.display.shown, 0u);
    if (!load.complete) {
        return;
    }
    EXPECT_EQ(measured.camera.lost, 0u) << "frames for which no buffer was queued";
    EXPECT_EQ(measured.display.skipped, 0u);
    // The copy of an H.264 stream begins with its next key frame, a second later at the most.
    const std::string payloads = compressed::startPayloads(board, load.mode);
    const std::uint64_t before = board.display().shown;
    ASSERT_TRUE(board.waitForDisplay(
        [&](const auto& now) { return now.shown >= before + load.mode.fps * 2; },
        Milliseconds(20000)));
    compressed::expectLikeTheReference(board, load.mode, payloads, 4, 38);
}

INSTANTIATE_TEST_SUITE_P(Loads, CompressedRate, testing::ValuesIn(loads),
                         [](const auto& info) { return std::string(info.param.mode.name); });

}  // namespace
