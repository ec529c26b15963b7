// Which camera mode is paired with which display mode.
#include "control/capture/analysisfile.h"

#include "control/task/fourcc.h"
#include "tests/unit/capture/fakestages.h"
#include "tests/unit/capture/output.h"
#include "tests/unit/capture/selectionoracle.h"

#include <algorithm>
#include <map>
#include <random>
#include <stdexcept>

namespace {

const std::uint32_t mjpg = fourccOf("MJPG"), yuyv = fourccOf("YUYV"), h264 = fourccOf("H264");

struct Selected {
    bool found = false;
    oracle::Choice choice;
    std::uint32_t displayFormat = 0;
    std::string out;
};

// The kind of the choice, from the line that tells it; camera and display line must agree.
std::string kindOf(const std::string& out) {
    for (const char* kind : {"best by pass", "by pass", "scale"}) {
        const std::string mode = std::string("select fmt (") + kind + ") ";
        const std::string edid = std::string("select edid (") + kind + ") ";
        if (out.find(mode) != std::string::npos && out.find(edid) != std::string::npos) {
            return kind;
        }
    }
    return "";
}

Selected select(const oracle::Modes& camera, const oracle::Modes& display) {
    AnalysisFile analysis("/dev/video0");
    for (const decInfo& mode : camera) {
        for (std::size_t list = 0; list < 3; ++list) {
            if (analysis.fmtNames[list].fourcc == mode.format) {
                analysis.uvcFmtLists[list].emplace_back(mode.width, mode.height, mode.fps,
                                                        analysis.fmtNames[list]);
            }
        }
    }
    analysis.edidModes = display;
    Selected selected;
    selected.out = outputOf([&] { selected.found = analysis.selectBestFmt(); }).out;
    selected.choice = {kindOf(selected.out), analysis.captureInfo, analysis.displayInfo};
    selected.displayFormat = analysis.displayInfo.format;
    return selected;
}

std::string chosen(const oracle::Modes& camera, const oracle::Modes& display) {
    const Selected selected = select(camera, display);
    return selected.found ? oracle::describe(selected.choice) : "nothing";
}

TEST(Selection, AnExactMatchPrefersH264ThenMjpeg) {
    const oracle::Modes display = {{0, 1920, 1080, 60}, {0, 1280, 720, 60}};
    EXPECT_EQ(chosen({{yuyv, 1920, 1080, 60}, {h264, 1920, 1080, 60}}, display),
              "best by pass H264 1920x1080@60 on 1920x1080@60");
    EXPECT_EQ(chosen({{yuyv, 1920, 1080, 60}, {mjpg, 1920, 1080, 60}}, display),
              "best by pass MJPG 1920x1080@60 on 1920x1080@60");
    EXPECT_EQ(chosen({{h264, 3840, 2160, 30}, {yuyv, 1920, 1080, 60}}, display),
              "best by pass YUYV 1920x1080@60 on 1920x1080@60");
    EXPECT_EQ(select({{h264, 1920, 1080, 60}}, display).displayFormat, h264);
}

TEST(Selection, WithoutAnExactMatchTheSameSizeAtTheHighestRefresh) {
    const oracle::Modes display = {{0, 1920, 1080, 50}, {0, 1920, 1080, 60}, {0, 3840, 2160, 30}};
    EXPECT_EQ(
        chosen({{mjpg, 1920, 1080, 30}, {yuyv, 1920, 1080, 30}, {h264, 1920, 1080, 30}}, display),
        "by pass H264 1920x1080@30 on 1920x1080@60");
    EXPECT_EQ(select({{h264, 1920, 1080, 30}}, display).displayFormat, 0U);
}

TEST(Selection, OnlyTheFirstDisplayModeCountsForAnExactMatch) {
    EXPECT_EQ(chosen({{yuyv, 1280, 720, 60}, {h264, 1920, 1080, 30}},
                     {{0, 1920, 1080, 60}, {0, 1280, 720, 60}}),
              "by pass H264 1920x1080@30 on 1920x1080@60");
}

TEST(Selection, ScalesDownToTheLargestDisplayModeThatFits) {
    EXPECT_EQ(chosen({{h264, 3840, 2160, 30}}, {{0, 1280, 720, 60}, {0, 1920, 1080, 60}}),
              "scale H264 3840x2160@30 on 1920x1080@60");
}

TEST(Selection, NeverScalesUp) {
    EXPECT_EQ(chosen({{h264, 640, 480, 30}, {mjpg, 640, 480, 30}, {yuyv, 640, 480, 30}},
                     {{0, 1920, 1080, 60}, {0, 1280, 720, 60}}),
              "nothing");
    EXPECT_EQ(chosen({{yuyv, 2560, 480, 30}}, {{0, 1280, 720, 60}}), "nothing");
}

TEST(Selection, AFasterCameraIsShownAsIfScaled) {
    EXPECT_EQ(chosen({{h264, 1280, 720, 60}}, {{0, 1280, 720, 50}}),
              "scale H264 1280x720@60 on 1280x720@50");
    EXPECT_EQ(chosen({{h264, 1280, 720, 60}, {h264, 1920, 1080, 50}}, {{0, 1280, 720, 50}}),
              "scale H264 1920x1080@50 on 1280x720@50");
    EXPECT_EQ(chosen({{h264, 1280, 720, 60}, {h264, 1280, 720, 30}}, {{0, 1280, 720, 50}}),
              "by pass H264 1280x720@30 on 1280x720@50");
}

TEST(Selection, AScaledH264BeatsAnUnscaledMjpeg) {
    EXPECT_EQ(chosen({{mjpg, 1920, 1080, 30}, {h264, 3840, 2160, 30}}, {{0, 1920, 1080, 60}}),
              "scale H264 3840x2160@30 on 1920x1080@60");
    EXPECT_EQ(chosen({{mjpg, 1920, 1080, 30}, {h264, 640, 480, 30}}, {{0, 1920, 1080, 60}}),
              "by pass MJPG 1920x1080@30 on 1920x1080@60");
}

TEST(Selection, BandwidthsWrapAt32Bits) {
    // 16384 x 8192 x 32 wraps to 0: the small mode comes first.
    EXPECT_EQ(chosen({{h264, 16384, 8192, 32}, {h264, 1280, 720, 30}}, {{0, 1280, 720, 60}}),
              "by pass H264 1280x720@30 on 1280x720@60");
    EXPECT_EQ(chosen({{h264, 16384, 8192, 32}, {h264, 1920, 1080, 30}}, {{0, 1280, 720, 60}}),
              "scale H264 1920x1080@30 on 1280x720@60");
}

TEST(Selection, PrintsEveryStep) {
    EXPECT_EQ(select({{mjpg, 640, 480, 30}, {yuyv, 640, 480, 30}, {yuyv, 1280, 720, 30}},
                     {{0, 1280, 720, 60}})
                  .out,
              "----total all format----\n   Mjpeg   640x480@30\n   Yuyv    640x480@30\n"
              "   Yuyv    1280x720@30\n"
              "----src TotalBandwidth----\n----sort TotalBandwidth----\n"
              "----src TotalBandwidth----\n   Mjpeg   640x480@30\n"
              "----sort TotalBandwidth----\n   Mjpeg   640x480@30\n"
              "----src TotalBandwidth----\n   Yuyv    640x480@30\n   Yuyv    1280x720@30\n"
              "----sort TotalBandwidth----\n   Yuyv    1280x720@30\n   Yuyv    640x480@30\n"
              "###!!!---***  select fmt (by pass) ***---!!!### :   Yuyv    1280x720@30\n"
              "###!!!---***  select edid (by pass) ***---!!!### :1280x720@60\n");
    EXPECT_EQ(select({{h264, 640, 480, 30}}, {{0, 640, 480, 30}}).out,
              "----total all format----\n   H264    640x480@30\n"
              "###!!!---***  select fmt (best by pass) ***---!!!### :   H264    640x480@30\n"
              "###!!!---***  select edid (best by pass) ***---!!!### :640x480@30\n");
}

TEST(Selection, SortsByFrameRate) {
    AnalysisFile analysis("/dev/video0");
    std::vector<uvcFmt> modes = {{640, 480, 25, analysis.fmtNames[0]},
                                 {320, 240, 60, analysis.fmtNames[0]}};
    const Output output = outputOf([&] { analysis.sortFps(modes); });
    EXPECT_EQ(output.out,
              "----src Fps----\n   Mjpeg   640x480@25\n   Mjpeg   320x240@60\n"
              "----sort Fps----\n   Mjpeg   320x240@60\n   Mjpeg   640x480@25\n");
}

TEST(Selection, NeedsADisplayMode) {
    AnalysisFile analysis("/dev/video0");
    outputOf([&] { EXPECT_THROW(analysis.selectBestFmt(), std::out_of_range); });
}

// Small numbers, so that ties, exact matches and misfits are frequent.
TEST(Selection, AgreesWithASecondImplementation) {
    std::mt19937 random(20261121);
    const auto pick = [&](std::initializer_list<std::uint32_t> values) {
        return values.begin()[random() % values.size()];
    };
    std::map<std::string, int> kinds;
    for (int round = 0; round < 3000; ++round) {
        oracle::Modes camera, display;
        for (auto count = 1 + random() % 6; count > 0; --count) {
            camera.push_back({pick({mjpg, yuyv, h264}), pick({640, 1280, 1920}),
                              pick({480, 720, 1080}), pick({20, 30, 60})});
        }
        for (auto count = 1 + random() % 5; count > 0; --count) {
            display.push_back(
                {0, pick({640, 1280, 1920, 3840}), pick({480, 720, 1080}), pick({30, 50, 60})});
        }
        const Selected selected = select(camera, display);
        const auto right = oracle::rightChoices(camera, display);
        ASSERT_EQ(selected.found, !right.empty()) << "round " << round;
        if (selected.found) {
            ASSERT_NE(std::find(right.begin(), right.end(), selected.choice), right.end())
                << "round " << round << ": " << oracle::describe(selected.choice) << ", not "
                << oracle::describe(right.front());
        }
        ++kinds[selected.choice.kind];
    }
    EXPECT_EQ(kinds.size(), 4U);  // all three kinds and no choice at all
    for (const auto& [kind, count] : kinds) {
        EXPECT_GT(count, 100) << kind;
    }
}

}  // namespace
