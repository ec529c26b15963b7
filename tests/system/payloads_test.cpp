// Damaged payloads reach the shipped program: good pictures before and after are shown, and the
// pipeline stays.

#include <gtest/gtest.h>
#include <algorithm>
#include <string>

#include "tests/support/application.h"
#include "tests/support/cameramode.h"

namespace {

using support::Application;
using support::Board;
using support::CameraMode;
using support::Milliseconds;
using support::ModeScenario;

// Buffers that are longer than both decoders' packet buffers.
constexpr std::uint32_t longImage = 2500000;

const CameraMode mjpeg = {"Mjpeg", "MJPG", 320, 240, 30, "", 320, 240, longImage, "field:bars"};
constexpr std::uint64_t keyFrameDistance = 15;
// The loop is longer than what a program leaves out that gets hardly any of a busy machine: 22 at
// once under ThreadSanitizer went on up to 1649 pictures later.
const CameraMode h264 = {
    "H264",      "H264", 320,
    240,         30,     R"("keyFrameDistance": 15, "bitRate": 1000000, "loopFrames": 4000)",
    320,         240,    longImage,
    "field:bars"};

struct Fault {
    const char* kind;
    bool shown;    // the damage does not touch the picture
    bool missing;  // nothing can be shown
    bool jpegOnly;
};

const Fault faults[] = {
    {"truncate", false, false, false},  {"flip-bits", false, false, false},
    {"no-huffman", true, false, true},  {"bytes-before", false, false, false},
    {"bytes-after", true, false, true}, {"wrong-size", false, false, true},
    {"empty", false, true, false},      {"oversized", true, false, false},
    {"error-flag", true, false, false},
};

bool showsMore(Board& board, std::uint64_t frames) {
    const std::uint64_t before = board.display().shown;
    return board.waitForDisplay(
        [&](const auto& figures) { return figures.shown >= before + frames; }, Milliseconds(20000));
}

void expectStillPlaying(Application& application, std::size_t from) {
    EXPECT_TRUE(application.process().running());
    const auto change = application.out().waitForMatch("^statue: ", Milliseconds(0), from);
    EXPECT_FALSE(change.has_value()) << application.out().text() << application.err().text();
}

// A slot of the ring is free when its flip is queued. A decoder that is a whole ring ahead may so
// write over the picture that is on its way to the screen, which then comes too early: once for
// each such picture the screen goes back. What was asked for goes on always.
void expectInOrder(Board& board) {
    const support::DisplayFigures display = board.display();
    EXPECT_LE(display.outOfOrder, display.overwritten);
    // The ring is 1200 ms of pictures: where they stay younger than half of that, it was never
    // full.
    if (display.latencyP99_ms <= 600) {
        EXPECT_EQ(display.overwritten, 0u);
    }
    if (display.overwritten != 0) {
        std::printf("%llu pictures drawn over on their way, %llu times back, 1 %% over %.0f ms\n",
                    (unsigned long long)display.overwritten, (unsigned long long)display.outOfOrder,
                    display.latencyP99_ms);
    }
}

// Pictures between camera and screen at most: a queue of 100, a ring of 36, what the decoder holds.
constexpr unsigned underWay = 150;

class Payloads : public testing::TestWithParam<CameraMode> {};

// How many pictures three such payloads keep from the screen, beside those for which the camera had
// no buffer.
std::uint64_t costOf(Board& board, const Fault& fault, const char* camera) {
    board.resetFigures();
    // Numbers that are left out count from the first picture on.
    EXPECT_TRUE(showsMore(board, 1));
    const std::uint64_t lostBefore = board.camera().lost;
    board.order(std::string(R"({"order":"payload-fault","kind":")") + fault.kind +
                R"(","count":3})");
    EXPECT_TRUE(showsMore(board, 30));
    if (fault.missing) {
        // A display that had fallen behind shows what stood in its ring first.
        EXPECT_TRUE(board.waitForDisplay([](const auto& now) { return now.skipped >= 3; },
                                         Milliseconds(10000)))
            << "there was no damage";
    }
    expectInOrder(board);
    const std::uint64_t missing = board.display().skipped;
    const std::uint64_t lost = board.camera().lost - lostBefore;
    std::printf("%s %s: %llu pictures missing, %llu lost by the camera\n", camera, fault.kind,
                (unsigned long long)missing, (unsigned long long)lost);
    return missing - std::min(missing, lost);
}

TEST_P(Payloads, EachFaultAloneCostsNoMoreThanItsPictures) {
    const ModeScenario scenario(GetParam());
    Board board(scenario.path());
    Application application(board);
    const std::size_t next = application.expectPlaying();
    ASSERT_TRUE(showsMore(board, 10));
    const bool isJpeg = std::string(GetParam().fourcc) == "MJPG";
    std::string tooDear;
    for (const Fault& fault : faults) {
        if (fault.jpegOnly && !isJpeg) {
            continue;
        }
        SCOPED_TRACE(fault.kind);
        const std::uint64_t bearable = fault.shown ? 0 : isJpeg ? 3 : 3 + keyFrameDistance;
        std::uint64_t cost = costOf(board, fault, GetParam().name);
        if (!support::sanitizedBuild()) {
            // A busy display leaves out pictures when two come at once.
            for (unsigned more = 0; cost > bearable && more < 9; ++more) {
                cost = costOf(board, fault, GetParam().name);
            }
            tooDear += cost > bearable ? std::string(fault.kind) + " " : "";
        }
        expectStillPlaying(application, next);
        ASSERT_FALSE(HasFailure());
    }
    EXPECT_EQ(tooDear, "");
}

// 20000 frames in the long checks.
TEST_P(Payloads, AtRandomThePipelineStays) {
    const ModeScenario scenario(GetParam());
    Board board(scenario.path(), support::longRun() ? 4 : 2);
    Application application(board);
    const std::size_t next = application.expectPlaying();
    ASSERT_TRUE(showsMore(board, 10));
    const std::uint64_t frames = support::longRun() ? 20000 : 400;
    const support::CameraFigures before = board.camera();
    board.order(R"({"order":"payload-mix","permille":300,"seed":7})");
    EXPECT_TRUE(board.waitForCamera(
        [&](const auto& now) { return now.delivered >= before.delivered + frames; },
        Milliseconds(10000 + frames * 20)));
    expectStillPlaying(application, next);
    board.order(R"({"order":"payload-mix","permille":0})");
    EXPECT_TRUE(showsMore(board, underWay));
    expectStillPlaying(application, next);
    expectInOrder(board);
    board.resetFigures();
    EXPECT_TRUE(showsMore(board, 30));
    expectInOrder(board);
}

// The ring as it is meant: what is on its way to the screen is free again, and a decoder that is 36
// pictures ahead draws over it. The screen goes back by what was drawn over, not by more.
TEST_P(Payloads, AFullRingIsDrawnOverWhatIsUnderWay) {
    const ModeScenario scenario(GetParam());
    Board board(scenario.path());
    Application application(board);
    const std::size_t next = application.expectPlaying();
    ASSERT_TRUE(showsMore(board, 10));
    board.resetFigures();
    ASSERT_TRUE(showsMore(board, 1));
    board.holdFlips(true);
    application.expectLine("clean queue buff", Milliseconds(10000), next);
    board.holdFlips(false);
    EXPECT_TRUE(showsMore(board, 60));
    EXPECT_GE(board.display().overwritten, 1u);
    expectInOrder(board);
}

constexpr char failedToNone[] = "statue: STATUE_POOL_OPENFAID ==> STATUE_POLL_NODEVICE";
constexpr char deleted[] = "delete capture media succeed";
constexpr Milliseconds bound(2000);

// Unplugged in one phase after the other; each time everything ends soon and the next plug plays.
TEST_P(Payloads, UnpluggedInEveryPhaseEndsSoon) {
    const ModeScenario scenario(GetParam());
    Board board(scenario.path(), 2);
    Application application(board);
    std::size_t next = 0;
    const auto unplug = [&](const char* phase) {
        SCOPED_TRACE(phase);
        const auto began = support::Clock::now();
        board.unplug("camera");
        next = application.expectLine(deleted, bound, next);
        EXPECT_TRUE(application.waitForPipelineGone(Milliseconds(500)));
        std::printf(
            "%s, %s: torn down after %lld ms\n", GetParam().name, phase,
            (long long)std::chrono::duration_cast<Milliseconds>(support::Clock::now() - began)
                .count());
        next = application.expectLine(failedToNone, Milliseconds(5000), next);
        board.holdFlips(false);
        board.plug("camera");
    };
    const auto opened =
        application.out().waitForMatch("mpp decoder open succeed", Milliseconds(10000), next);
    ASSERT_TRUE(opened.has_value()) << application.out().text();
    next = *opened;
    unplug("during set-up");
    next = application.expectPlaying(next);
    const std::uint64_t delivered = board.camera().delivered;
    ASSERT_TRUE(board.waitForCamera([&](const auto& now) { return now.delivered > delivered; },
                                    Milliseconds(10000)));
    unplug("at the first frame");
    next = application.expectPlaying(next);
    ASSERT_TRUE(showsMore(board, 10));
    unplug("while it plays");
    next = application.expectPlaying(next);
    ASSERT_TRUE(showsMore(board, 5));
    board.holdFlips(true);
    next = application.expectLine("clean queue buff", Milliseconds(10000), next);
    unplug("with full queues");
    application.expectPlaying(next);
    EXPECT_TRUE(showsMore(board, 5));
}

INSTANTIATE_TEST_SUITE_P(Formats, Payloads, testing::Values(mjpeg, h264),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
