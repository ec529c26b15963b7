#include "board/media/recording.h"

#include "board/media/stamp.h"

#include <gtest/gtest.h>
#include <linux/videodev2.h>
#include <unistd.h>

#include <cmath>
#include <cstring>
#include <fstream>
#include <set>
#include <stdexcept>

namespace {

using board::composeFrame;
using board::loadPictures;
using board::PictureLoop;

double meanDifference(const std::vector<std::uint8_t>& a, const std::vector<std::uint8_t>& b) {
    double sum = 0;
    for (std::size_t i = 0; i < a.size(); ++i)
        sum += std::abs(int(a[i]) - int(b[i]));
    return sum / double(a.size());
}

std::string errorOf(const std::string& recording, std::uint32_t fourcc, std::uint32_t width,
                    std::uint32_t height) {
    try {
        loadPictures(recording, fourcc, width, height, 1);
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "";
}

TEST(Recording, DefaultIsTheInstalledFile) {
    const std::string path = board::defaultRecording();
    EXPECT_EQ(path.front(), '/') << "package opencv-doc is not installed";
    EXPECT_EQ(access(path.c_str(), R_OK), 0);
}

TEST(Recording, PicturesMoveAndHaveContent) {
    const PictureLoop loop =
        loadPictures(board::defaultRecording(), V4L2_PIX_FMT_YUYV, 640, 360, 8);
    ASSERT_EQ(loop.pictures.size(), 8u);
    EXPECT_EQ(loop.stride, 1280u);
    EXPECT_EQ(loop.pictureBytes, 640u * 360 * 2);
    for (std::size_t i = 0; i < loop.pictures.size(); ++i) {
        ASSERT_EQ(loop.pictures[i].size(), loop.pictureBytes);
        const std::set<std::uint8_t> values(loop.pictures[i].begin(), loop.pictures[i].end());
        EXPECT_GT(values.size(), 64u);
        if (i > 0) {
            EXPECT_GT(meanDifference(loop.pictures[i], loop.pictures[i - 1]), 0.1);
        }
    }
}

TEST(Recording, SameArgumentsGiveTheSameBytes) {
    const auto once = loadPictures(board::defaultRecording(), V4L2_PIX_FMT_NV12, 322, 242, 3);
    const auto again = loadPictures(board::defaultRecording(), V4L2_PIX_FMT_NV12, 322, 242, 3);
    ASSERT_EQ(once.pictures.size(), again.pictures.size());
    for (std::size_t i = 0; i < once.pictures.size(); ++i)
        EXPECT_EQ(once.pictures[i], again.pictures[i]);
}

TEST(Recording, PicturesAreTheSameInEveryFormat) {
    const std::uint32_t width = 320, height = 240;
    const auto grey = loadPictures(board::defaultRecording(), V4L2_PIX_FMT_GREY, width, height, 1);
    const auto nv12 = loadPictures(board::defaultRecording(), V4L2_PIX_FMT_NV12, width, height, 1);
    const auto planar =
        loadPictures(board::defaultRecording(), V4L2_PIX_FMT_YUV420, width, height, 1);
    const auto yuyv = loadPictures(board::defaultRecording(), V4L2_PIX_FMT_YUYV, width, height, 1);
    EXPECT_EQ(nv12.pictureBytes, std::size_t(width * height * 3 / 2));
    for (std::size_t i = 0; i < width * height; ++i) {
        ASSERT_NEAR(yuyv.pictures[0][i * 2], nv12.pictures[0][i], 2);
        ASSERT_NEAR(planar.pictures[0][i], nv12.pictures[0][i], 2);
        ASSERT_NEAR(grey.pictures[0][i], nv12.pictures[0][i], 2);
    }
    for (std::size_t i = 0; i < width * height / 4; ++i) {
        const std::size_t luma = width * height;
        ASSERT_NEAR(planar.pictures[0][luma + i], nv12.pictures[0][luma + 2 * i], 2);
        ASSERT_NEAR(planar.pictures[0][luma * 5 / 4 + i], nv12.pictures[0][luma + 2 * i + 1], 2);
    }
}

// The mean luma of a recording whose samples all have this value, in limited or full range.
double lumaOf(int value, const std::string& range) {
    const std::string path = testing::TempDir() + "range_" + range + ".y4m";
    std::ofstream(path, std::ios::binary)
        << "YUV4MPEG2 W64 H64 F25:1 Ip A1:1 C420jpeg XCOLORRANGE=" << range << "\nFRAME\n"
        << std::string(64 * 64, char(value)) << std::string(64 * 64 / 2, char(128));
    const auto loop = loadPictures(path, V4L2_PIX_FMT_YUYV, 64, 48, 1);
    double sum = 0;
    for (std::size_t i = 0; i < loop.pictureBytes; i += 2)
        sum += loop.pictures[0][i];
    return sum / double(loop.pictureBytes / 2);
}

TEST(Recording, PicturesAreInLimitedRangeWhateverTheFileHas) {
    EXPECT_NEAR(lumaOf(16, "LIMITED"), 16, 1);
    EXPECT_NEAR(lumaOf(235, "LIMITED"), 235, 1);
    EXPECT_NEAR(lumaOf(0, "FULL"), 16, 1);
    EXPECT_NEAR(lumaOf(255, "FULL"), 235, 1);
}

TEST(Recording, AShortFileIsLooped) {
    // Two grey pictures of 16x16 in a YUV4MPEG file.
    const std::string path = testing::TempDir() + "two_pictures.y4m";
    std::ofstream file(path, std::ios::binary);
    file << "YUV4MPEG2 W16 H16 F25:1 Ip A1:1 C420jpeg\n";
    for (const int luma : {60, 180})
        file << "FRAME\n" << std::string(256, char(luma)) << std::string(128, char(128));
    file.close();
    const auto loop = loadPictures(path, V4L2_PIX_FMT_GREY, 64, 48, 5);
    ASSERT_EQ(loop.pictures.size(), 5u);
    EXPECT_NE(loop.pictures[0], loop.pictures[1]);
    EXPECT_EQ(loop.pictures[2], loop.pictures[0]);
    EXPECT_EQ(loop.pictures[3], loop.pictures[1]);
    EXPECT_EQ(loop.pictures[4], loop.pictures[0]);
}

TEST(Recording, DrawnFieldsHaveTheirColours) {
    const auto red = loadPictures("field:red", V4L2_PIX_FMT_YUYV, 64, 48, 5);
    ASSERT_EQ(red.pictures.size(), 1u);
    for (std::size_t i = 0; i < red.pictureBytes; i += 4) {
        ASSERT_EQ(red.pictures[0][i], 81);
        ASSERT_EQ(red.pictures[0][i + 1], 90);
        ASSERT_EQ(red.pictures[0][i + 2], 81);
        ASSERT_EQ(red.pictures[0][i + 3], 240);
    }
    const auto bars = loadPictures("field:bars", V4L2_PIX_FMT_NV12, 64, 48, 1);
    const int luma[] = {180, 162, 131, 112, 84, 65, 35, 16};
    for (int bar = 0; bar < 8; ++bar)
        EXPECT_EQ(bars.pictures[0][std::size_t(10 * 64 + bar * 8 + 4)], luma[bar]);
    EXPECT_EQ(bars.pictures[0][64 * 48 + 8], 44);   // yellow's blue difference
    EXPECT_EQ(bars.pictures[0][64 * 48 + 9], 142);  // and red difference
}

TEST(Recording, BadInputGetsOneLine) {
    EXPECT_NE(errorOf("/nonexistent/file.avi", V4L2_PIX_FMT_YUYV, 64, 48).find("/nonexistent"),
              std::string::npos);
    EXPECT_NE(errorOf("field:pink", V4L2_PIX_FMT_YUYV, 64, 48).find("field:pink"),
              std::string::npos);
    EXPECT_NE(errorOf("field:red", V4L2_PIX_FMT_MJPEG, 64, 48).find("MJPG"), std::string::npos);
    EXPECT_NE(errorOf("field:red", V4L2_PIX_FMT_YUYV, 63, 48).find("63x48"), std::string::npos);
    const std::string text = testing::TempDir() + "no_video.avi";
    std::ofstream(text) << "this is not a video";
    EXPECT_NE(errorOf(text, V4L2_PIX_FMT_YUYV, 64, 48).find("no_video.avi"), std::string::npos);
}

TEST(Recording, LoopsStayBelowTheirBudget) {
    EXPECT_EQ(board::loopLength(640, 480), 48u);
    EXPECT_EQ(board::loopLength(1920, 1080), 48u);
    EXPECT_EQ(board::loopLength(3840, 2160), 12u);
    EXPECT_EQ(board::loopLength(30000, 30000), 1u);
    EXPECT_EQ(board::loopLength(0, 0), 48u);
}

TEST(ComposeFrame, IsTheLoopsPictureWithTheStamp) {
    for (const std::uint32_t fourcc :
         {V4L2_PIX_FMT_YUYV, V4L2_PIX_FMT_NV12, V4L2_PIX_FMT_YUV420, V4L2_PIX_FMT_GREY}) {
        const auto loop = loadPictures(board::defaultRecording(), fourcc, 640, 480, 3);
        std::vector<std::uint8_t> frame(loop.pictureBytes);
        composeFrame(loop, 7, 1234, frame.data());
        const auto stamp = board::readStamp(frame.data(), fourcc == V4L2_PIX_FMT_YUYV ? 2 : 1,
                                            loop.stride, 640, 480);
        ASSERT_TRUE(stamp);
        EXPECT_EQ(stamp->frame, 7u);
        EXPECT_EQ(stamp->time_100us, 1234u);
        const auto& picture = loop.pictures[7 % 3];
        const std::size_t below = 4 * board::stampCell(640) * loop.stride;
        const std::size_t lumaBytes = std::size_t(loop.stride) * 480;
        EXPECT_TRUE(std::equal(frame.begin() + long(below), frame.begin() + long(lumaBytes),
                               picture.begin() + long(below)));
        if (fourcc == V4L2_PIX_FMT_NV12) {
            EXPECT_EQ(frame[lumaBytes], 128);
            EXPECT_EQ(frame[lumaBytes + 159], 128);
            EXPECT_EQ(frame[lumaBytes + 160], picture[lumaBytes + 160]);
        }
    }
}

TEST(ComposeFrame, APictureWithoutRoomForTheMarkGetsNone) {
    const auto loop = loadPictures("field:grey", V4L2_PIX_FMT_YUYV, 640, 16, 1);
    std::vector<std::uint8_t> frame(loop.pictureBytes);
    composeFrame(loop, 1, 1, frame.data());
    EXPECT_EQ(frame, loop.pictures[0]);
}

}  // namespace
