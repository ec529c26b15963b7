// The camera's picture arrives on the display, and it is the right one.

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <ostream>

#include "board/media/recording.h"
#include "board/media/stamp.h"
#include "tests/support/application.h"
#include "tests/support/picture.h"
#include "tests/support/scenarios.h"
#include "tests/support/screenshot.h"

namespace {

using support::Application;
using support::benchScenario;
using support::Board;
using support::Milliseconds;
using support::ShownFrame;

// Plays, and compares what is scanned out with what the recording should look like.
void expectLikeTheRecording(const std::string& scenarioPath, double least_dB) {
    Board board(scenarioPath);
    Application application(board);
    application.expectPlaying();
    const std::vector<ShownFrame> frames = takeShownFrames(board, 4);
    ASSERT_GE(frames.size(), 2u) << "too few pictures with a mark were shown";
    const support::CameraFigures camera = board.camera();
    const support::ExpectedPictures expected(board::defaultRecording(), camera.width,
                                             camera.height);
    for (std::size_t i = 0; i < frames.size(); ++i) {
        if (i > 0) {
            EXPECT_GT(frames[i].frame, frames[i - 1].frame);
        }
        const support::Likeness likeness = compare(frames[i].picture, expected.of(frames[i]));
        EXPECT_GE(likeness.luma_dB, least_dB) << "frame " << frames[i].frame;
        EXPECT_GE(likeness.u_dB, least_dB) << "frame " << frames[i].frame;
        EXPECT_GE(likeness.v_dB, least_dB) << "frame " << frames[i].frame;
        std::printf("frame %u: Y %.1f dB, U %.1f dB, V %.1f dB\n", frames[i].frame,
                    likeness.luma_dB, likeness.u_dB, likeness.v_dB);
    }
}

TEST(FirstLight, FrameNumbersGrowOnTheDisplay) {
    Board board("default");
    Application application(board);
    application.expectPlaying();
    EXPECT_TRUE(board.waitForDisplay([](const auto& figures) { return figures.shown >= 30; },
                                     Milliseconds(10000)));
    const support::DisplayFigures before = board.display();
    EXPECT_EQ(before.mode, "1920x1080@60");
    EXPECT_TRUE(board.waitForDisplay(
        [&before](const auto& figures) { return figures.lastFrame > before.lastFrame + 30; },
        Milliseconds(10000)));
    EXPECT_EQ(board.display().outOfOrder, 0u);
}

TEST(FirstLight, ScreenshotHoldsTheCamerasPicture) {
    Board board(benchScenario("small"));
    Application application(board);
    application.expectPlaying();
    ASSERT_TRUE(board.waitForDisplay([](const auto& figures) { return figures.shown >= 3; },
                                     Milliseconds(10000)));
    const support::Rgb picture = support::takeScreenshot(board);
    ASSERT_EQ(picture.width, 640u);
    ASSERT_EQ(picture.height, 360u);
    // Green follows the luma closely enough for the mark's black and white cells.
    const auto stamp = board::readStamp(picture.bytes.data() + 1, 3, picture.width * 3,
                                        picture.width, picture.height);
    ASSERT_TRUE(stamp.has_value()) << "no mark in the screenshot";
    EXPECT_LE(stamp->frame, board.display().lastFrame);
    EXPECT_GE(stamp->frame, 30u) << "frames of the first second are never shown";
}

TEST(FirstLight, UnscaledPictureEqualsTheRecording) {
    expectLikeTheRecording(benchScenario("recorded"), 40);
}

TEST(FirstLight, UnscaledPictureWhereLinesArePadded) {
    expectLikeTheRecording(benchScenario("wide-1366"), 40);
}

class FirstLightScaled : public testing::TestWithParam<const char*> {};

TEST_P(FirstLightScaled, PictureLooksLikeTheRecordingScaledByAnotherScaler) {
    expectLikeTheRecording(benchScenario(GetParam()), 30);
}

INSTANTIATE_TEST_SUITE_P(Widths, FirstLightScaled,
                         testing::Values("scaled-1366", "scaled-1440", "scaled-1680"),
                         [](const auto& info) {
                             std::string name = info.param;
                             name.erase(name.find('-'), 1);
                             return name;
                         });

struct Field {
    const char* name;
    double y, u, v;  // limited range, ITU-R BT.601
};

void PrintTo(const Field& one, std::ostream* out) {
    *out << one.name;
}

class FirstLightColour : public testing::TestWithParam<Field> {};

TEST_P(FirstLightColour, ReachesTheDisplay) {
    Board board(benchScenario("small"));
    board.setRecording(std::string("field:") + GetParam().name);
    Application application(board);
    application.expectPlaying();
    const std::vector<ShownFrame> frames = takeShownFrames(board, 2);
    ASSERT_GE(frames.size(), 1u);
    const support::Colour colour = middleColour(frames.back().picture);
    EXPECT_NEAR(colour.y, GetParam().y, 3);
    EXPECT_NEAR(colour.u, GetParam().u, 3);
    EXPECT_NEAR(colour.v, GetParam().v, 3);
}

INSTANTIATE_TEST_SUITE_P(Fields, FirstLightColour,
                         testing::Values(Field{"red", 81.5, 90.2, 240},
                                         Field{"green", 144.6, 53.8, 34.2},
                                         Field{"blue", 41.0, 240, 109.8}),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
