// Motion JPEG and H.264 on the screen: what FFmpeg makes of the very payloads.

#include <gtest/gtest.h>

#include "tests/support/application.h"
#include "tests/system/compressedplay.h"

namespace {

using support::Application;
using support::Board;
using support::CameraMode;
using support::Milliseconds;
using support::ModeScenario;

const CameraMode modes[] = {
    {"Mjpeg720p", "MJPG", 1280, 720, 30, R"("subsampling": "4:2:0")", 1280, 720},
    {"Mjpeg480p420", "MJPG", 640, 480, 30, R"("subsampling": "4:2:0")", 640, 480},
    {"Mjpeg480p422", "MJPG", 640, 480, 30, R"("subsampling": "4:2:2")", 640, 480},
    {"H264480p", "H264", 640, 480, 30, R"("parameterSetsEvery": 3, "bitRate": 2000000)", 640, 480},
    {"H264480pB", "H264", 640, 480, 30, R"("bFrames": 2, "bitRate": 2000000)", 640, 480},
};

std::string nameOf(const testing::TestParamInfo<CameraMode>& info) {
    return info.param.name;
}

class Compressed : public testing::TestWithParam<CameraMode> {};

TEST_P(Compressed, PictureIsTheReferences) {
    const ModeScenario scenario(GetParam());
    Board board(scenario.path(), 2);
    const std::string payloads = compressed::startPayloads(board, GetParam());
    Application application(board);
    application.expectPlaying();
    ASSERT_TRUE(
        board.waitForDisplay([](const auto& now) { return now.shown >= 10; }, Milliseconds(20000)));
    compressed::expectLikeTheReference(board, GetParam(), payloads, 6, 38);
    EXPECT_EQ(board.display().outOfOrder, 0u);
}

INSTANTIATE_TEST_SUITE_P(Modes, Compressed, testing::ValuesIn(modes), nameOf);

TEST(H264Stream, AnotherPictureSizeGoesOnPlaying) {
    const CameraMode mode = {"",  "H264", 640, 360,         30, R"("bitRate": 2000000)",
                             640, 360,    0,   "field:bars"};
    const ModeScenario scenario(mode);
    Board board(scenario.path(), 2);
    Application application(board);
    const std::size_t next = application.expectPlaying();
    const auto expectShown = [&board](unsigned frames) {
        const std::uint64_t before = board.display().shown;
        EXPECT_TRUE(board.waitForDisplay(
            [&](const auto& now) { return now.shown >= before + frames; }, Milliseconds(20000)));
    };
    expectShown(10);
    for (const char* size : {R"("width":320,"height":180)", R"("width":960,"height":540)"}) {
        board.order(R"({"order":"encoded-size",)" + std::string(size) + "}");
        // The change waits for a good place in the stream, two seconds of it at most.
        expectShown(120);
    }
    EXPECT_EQ(board.display().outOfOrder, 0u);
    EXPECT_FALSE(application.out().waitForMatch("^statue: ", Milliseconds(0), next).has_value());
    std::size_t changes = 0;
    for (const auto* log : {&application.out(), &application.err()}) {
        for (const std::string& line : log->all()) {
            changes += line.find("get info changed found") != std::string::npos ? 1 : 0;
        }
    }
    EXPECT_EQ(changes, 3u);
}

}  // namespace
