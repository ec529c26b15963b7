// The supervisor: what it does and says when devices come and go.

#include <gtest/gtest.h>

#include <cerrno>
#include <sstream>

#include "tests/support/application.h"
#include "tests/support/client.h"
#include "tests/support/lateness.h"
#include "tests/support/logfilter.h"
#include "tests/support/scenarios.h"

namespace {

using support::Application;
using support::benchScenario;
using support::Board;
using support::Milliseconds;

constexpr char toOpen[] = "statue: STATUE_POLL_NODEVICE ==> STATUE_POOL_OPENDEVICE";
constexpr char openToFailed[] = "statue: STATUE_POOL_OPENDEVICE ==> STATUE_POOL_OPENFAID";
constexpr char failedToNone[] = "statue: STATUE_POOL_OPENFAID ==> STATUE_POLL_NODEVICE";
constexpr char playToError[] = "statue: STATUE_POOL_PLAY ==> STATUE_POOL_PLAYERR";
constexpr char displayGoneToNone[] = "statue: STATUE_POOL_PLAYERR ==> STATUE_POLL_NODEVICE";

std::vector<std::string> expectedLines(const std::string& name) {
    std::istringstream text(
        support::readFile(support::sourcePath("tests/system/expected/" + name)));
    std::vector<std::string> lines;
    for (std::string line; std::getline(text, line);) {
        lines.push_back(line);
    }
    return lines;
}

std::string joined(const std::vector<std::string>& lines) {
    std::string text;
    for (const std::string& line : lines) {
        text += line + "\n";
    }
    return text;
}

bool showsMore(Board& board, std::uint64_t frames) {
    const std::uint64_t before = board.display().shown;
    return board.waitForDisplay(
        [&](const auto& figures) { return figures.shown >= before + frames; }, Milliseconds(10000));
}

// No line about a new state for this long: asked of what happened, not slept through.
bool staysSilent(Application& application, std::size_t from, Milliseconds howLong) {
    return !application.out().waitForMatch("^statue: ", howLong, from).has_value();
}

TEST(Supervisor, LogOfOneLifeIsExactlyAsExpected) {
    Board board(benchScenario("small-unplugged"));
    Application application(board);
    board.plug("camera");
    std::size_t next = application.expectPlaying();
    EXPECT_TRUE(showsMore(board, 5));
    board.unplug("camera");
    next = application.expectLine(failedToNone, Milliseconds(5000), next);
    board.plug("camera");
    next = application.expectPlaying(next);
    EXPECT_TRUE(showsMore(board, 5));
    board.unplug("display");
    next = application.expectLine(displayGoneToNone, Milliseconds(5000), next);
    board.plug("display");
    next = application.expectPlaying(next);
    EXPECT_TRUE(showsMore(board, 5));
    application.end();
    EXPECT_EQ(joined(support::steadyLines(application.out().all())),
              joined(expectedLines("cycle.out")));
    EXPECT_EQ(joined(support::steadyLines(application.err().all())),
              joined(expectedLines("cycle.err")));
}

TEST(Supervisor, CameraWithoutDisplayIsNotOpened) {
    Board board(benchScenario("small-dark"));
    Application application(board);
    EXPECT_FALSE(board.waitForCamera([](const auto& figures) { return figures.openHandles > 0; },
                                     Milliseconds(1500)));
    EXPECT_EQ(application.out().count(toOpen), 0u);
    board.plug("display");
    application.expectPlaying();
    EXPECT_GT(board.camera().openHandles, 0u) << "the board does not count open descriptors";
}

TEST(Supervisor, FailedStartIsNotTriedAgainUntilTheCameraGoes) {
    Board board(benchScenario("small"));
    board.fail("VIDIOC_STREAMON", 1, EIO);
    Application application(board);
    std::size_t next = application.expectLine(openToFailed, Milliseconds(10000));
    EXPECT_TRUE(staysSilent(application, next, Milliseconds(1500)));
    board.unplug("camera");
    next = application.expectLine(failedToNone, Milliseconds(5000), next);
    board.plug("camera");
    application.expectPlaying(next);
}

TEST(Supervisor, SilentCameraThatComesBackIsNotTakenUpAgain) {
    Board board(benchScenario("small"));
    Application application(board);
    std::size_t next = application.expectPlaying();
    ASSERT_TRUE(showsMore(board, 5));  // before the first frame a silence may last ten seconds
    board.stallCamera(true);
    next = application.expectLine("statue: STATUE_POOL_PLAYERR ==> STATUE_POOL_OPENFAID",
                                  Milliseconds(20000), next);
    board.stallCamera(false);
    EXPECT_TRUE(staysSilent(application, next, Milliseconds(1500)));
}

class SupervisorStart : public testing::TestWithParam<const char*> {};

// The camera or the display offers nothing that fits: the start fails, the process goes on.
TEST_P(SupervisorStart, FailsWithoutAPairing) {
    Board board(benchScenario(GetParam()));
    Application application(board);
    std::size_t next = application.expectLine(openToFailed, Milliseconds(10000));
    board.unplug("camera");
    application.expectLine(failedToNone, Milliseconds(5000), next);
}

INSTANTIATE_TEST_SUITE_P(Pairs, SupervisorStart,
                         testing::Values("fast-display", "camera-too-small", "camera-too-slow"),
                         [](const auto& info) {
                             std::string name;
                             for (const char letter : std::string(info.param)) {
                                 if (letter != '-') {
                                     name += letter;
                                 }
                             }
                             return name;
                         });

TEST(Supervisor, EncoderForTwoCrtcsIsNoDisplay) {
    Board board(benchScenario("two-crtcs"));
    Application application(board);
    EXPECT_FALSE(application.out().waitForExactly(toOpen, Milliseconds(1500)).has_value());
}

TEST(Supervisor, NodeNumberFiveIsFound) {
    Board board(benchScenario("small-number5"));
    Application application(board);
    application.expectPlaying();
    EXPECT_EQ(board.camera().node, "/dev/video5");
    EXPECT_TRUE(board.camera().streaming);
}

TEST(Supervisor, NodeNumberThirtyIsNoCamera) {
    Board board(benchScenario("small-number30"));
    Application application(board);
    EXPECT_FALSE(application.out().waitForExactly(toOpen, Milliseconds(1500)).has_value());
    EXPECT_EQ(board.camera().node, "/dev/video30");
    EXPECT_EQ(board.camera().openHandles, 0u);
}

// Somebody else holds the camera's old descriptor, so that its number stays taken.
TEST(Supervisor, NewNodeNumberAfterReplugIsFound) {
    Board board(benchScenario("small"));
    const auto holder =
        startClient(board, {"sh", "-c", "exec 3<>/dev/video0; echo held; read x"}, true);
    ASSERT_TRUE(holder->out().waitForExactly("held", Milliseconds(5000)).has_value());
    board.unplug("camera");
    board.plug("camera");
    EXPECT_EQ(board.camera().node, "/dev/video1");
    Application application(board);
    application.expectPlaying();
    EXPECT_TRUE(board.camera().streaming);
}

TEST(Supervisor, ReplugFasterThanTeardownPlaysAgain) {
    Board board(benchScenario("small"));
    Application application(board);
    std::size_t next = application.expectPlaying();
    EXPECT_TRUE(showsMore(board, 5));
    board.unplug("camera");
    board.plug("camera");
    next = application.expectLine(playToError, Milliseconds(5000), next);
    next = application.expectLine(failedToNone, Milliseconds(5000), next);
    application.expectPlaying(next);
    EXPECT_TRUE(showsMore(board, 5));
}

TEST(Supervisor, ClockStepsChangeNothing) {
    Board board(benchScenario("small"));
    Application application(board);
    const std::size_t next = application.expectPlaying();
    EXPECT_TRUE(showsMore(board, 5));
    const support::LatenessProbe probe;
    std::uint64_t mostLost = 0;
    for (const std::int64_t step : {std::int64_t(3600), std::int64_t(-7200)}) {
        board.resetFigures();
        const support::CameraFigures before = board.camera();
        // The step falls into a wait for a frame: several periods after the last one.
        board.stallCamera(true);
        EXPECT_FALSE(board.waitForCamera(
            [&](const auto& figures) { return figures.delivered > before.delivered + 5; },
            Milliseconds(150)));
        board.stepClock(step);
        board.stallCamera(false);
        EXPECT_TRUE(showsMore(board, 45));
        mostLost = std::max(mostLost, board.camera().lost - before.lost);
        EXPECT_EQ(board.display().outOfOrder, 0u) << "after a step of " << step << " s";
    }
    EXPECT_TRUE(staysSilent(application, next, Milliseconds(200)));
    EXPECT_TRUE(application.err().all().empty()) << application.err().text();
    // On a busy machine the camera may find no buffer now and then.
    constexpr std::uint64_t bearable = 10;
    if (mostLost > bearable && probe.away() >= support::unusableAway) {
        GTEST_SKIP() << support::notJudged(probe.away());
    }
    EXPECT_LE(mostLost, bearable);
}

TEST(Supervisor, ManyReplugsLeaveNothingBehind) {
    const unsigned cycles = support::longRun() ? 300 : 20;
    Board board(benchScenario("small"), 4);
    Application application(board);
    std::size_t next = application.expectPlaying();
    support::ProcessFigures early;
    for (unsigned cycle = 0; cycle < cycles; ++cycle) {
        ASSERT_TRUE(showsMore(board, 1)) << "cycle " << cycle;
        const support::ProcessFigures now = application.process().figures();
        ASSERT_EQ(board.camera().node, "/dev/video0") << "cycle " << cycle;
        if (cycle == 3) {  // the allocator's pools have found their size
            early = now;
            ASSERT_GE(early.deviceMappings, 40u) << "3 of the camera, 37 of the display";
        }
        if (cycle > 3) {
            ASSERT_EQ(now.descriptors, early.descriptors) << "cycle " << cycle;
            ASSERT_EQ(now.threads, early.threads) << "cycle " << cycle;
            ASSERT_EQ(now.deviceMappings, early.deviceMappings) << "cycle " << cycle;
            // The allocator may split its pools; a sanitizer maps as it pleases.
            if (!support::sanitizedBuild()) {
                ASSERT_LE(now.mappings, early.mappings + 8) << "cycle " << cycle;
            }
        }
        const char* device = cycle % 2 == 0 ? "camera" : "display";
        board.unplug(device);
        next = application.expectLine(cycle % 2 == 0 ? failedToNone : displayGoneToNone,
                                      Milliseconds(10000), next);
        board.plug(device);
        next = application.expectPlaying(next);
        ASSERT_FALSE(HasFailure()) << "cycle " << cycle;
    }
}

}  // namespace
