// Corners of a capture session that can be seen from outside.

#include <gtest/gtest.h>

#include "tests/support/application.h"
#include "tests/support/picture.h"
#include "tests/support/scenarios.h"

namespace {

using support::Application;
using support::benchScenario;
using support::Board;
using support::Milliseconds;

TEST(Edges, FramesOfTheFirstSecondAreNotShown) {
    Board board(benchScenario("small"));
    Application application(board);
    application.expectPlaying();
    const std::vector<support::ShownFrame> frames = takeShownFrames(board, 2);
    ASSERT_GE(frames.size(), 1u);
    // Numbers count from 0 at every start of the stream. On a busy machine the camera may find no
    // buffer for a frame, whose number is left out then.
    EXPECT_GE(frames.front().frame, 30u);
    EXPECT_LE(frames.front().frame, 30u + board.camera().lost);
}

TEST(Edges, SilentSecondEndsTheSession) {
    Board board(benchScenario("small"));
    Application application(board);
    const std::size_t next = application.expectPlaying();
    ASSERT_TRUE(board.waitForDisplay([](const auto& figures) { return figures.shown >= 5; },
                                     Milliseconds(10000)));
    board.stallCamera(true);
    const auto began = support::Clock::now();
    ASSERT_TRUE(application.err().waitForExactly("select timeout", Milliseconds(5000)).has_value());
    const double waited_s = std::chrono::duration<double>(support::Clock::now() - began).count();
    EXPECT_GE(waited_s, 0.85);  // one frame may have been ready still
    EXPECT_LE(waited_s, 2.0 * support::timeFactor());
    application.expectLine("statue: STATUE_POOL_PLAY ==> STATUE_POOL_PLAYERR", Milliseconds(5000),
                           next);
}

TEST(Edges, ShortFrameIsDroppedWithOneLine) {
    Board board(benchScenario("small"));
    Application application(board);
    const std::size_t next = application.expectPlaying();
    ASSERT_TRUE(board.waitForDisplay([](const auto& figures) { return figures.shown >= 5; },
                                     Milliseconds(10000)));
    const std::size_t linesBefore = application.err().size() + application.out().size();
    // Frames are missing between two that are counted: one must be there before.
    board.resetFigures();
    ASSERT_TRUE(board.waitForDisplay([](const auto& figures) { return figures.shown >= 1; },
                                     Milliseconds(10000)));
    board.setPayload(1000, 3);
    // A display that had fallen behind first shows what stood in its ring before the short frames.
    ASSERT_TRUE(board.waitForDisplay(
        [](const auto& figures) { return figures.shown >= 30 && figures.skipped >= 3; },
        Milliseconds(10000)));
    // On a busy machine the camera itself may find no buffer. When such a frame's gap reaches the
    // display is not known, so all that it lost since its start are allowed for.
    const std::uint64_t skipped = board.display().skipped;
    EXPECT_LE(skipped, 3u + board.camera().lost);
    EXPECT_EQ(board.display().outOfOrder, 0u);
    std::size_t said = 0;
    for (const auto* log : {&application.out(), &application.err()}) {
        for (const std::string& line : log->all()) {
            said += line.rfind("rawvideo frame dropped: 1000 bytes", 0) == 0 ? 1 : 0;
        }
    }
    EXPECT_EQ(said, 3u) << application.out().text() << application.err().text();
    EXPECT_GT(application.err().size() + application.out().size(), linesBefore);
    EXPECT_FALSE(application.out().waitForMatch("^statue: ", Milliseconds(0), next).has_value());
}

// While the display task sees no events, it takes flips that have completed for lost and queues
// others. Their events come in the end, all of them.
TEST(Edges, FlipsThatWereGivenUpKeepNoPictureFromTheScreen) {
    Board board(benchScenario("small"), 2);
    Application application(board);
    const std::size_t next = application.expectPlaying();
    ASSERT_TRUE(board.waitForDisplay([](const auto& figures) { return figures.shown >= 5; },
                                     Milliseconds(10000)));
    board.park("poll", "ShowControl");
    ASSERT_TRUE(board.waitForPark(Milliseconds(10000)));
    const std::uint64_t before = board.display().flips;
    ASSERT_TRUE(board.waitForDisplay(
        [&](const auto& figures) { return figures.flips >= before + 2; }, Milliseconds(20000)));
    board.unpark();
    board.resetFigures();
    EXPECT_TRUE(board.waitForDisplay([](const auto& figures) { return figures.shown >= 60; },
                                     Milliseconds(20000)));
    const support::DisplayFigures display = board.display();
    EXPECT_LE(display.flips, display.shown + display.shown / 4) << "black between the pictures";
    EXPECT_FALSE(application.out().waitForMatch("^statue: ", Milliseconds(0), next).has_value());
}

}  // namespace
