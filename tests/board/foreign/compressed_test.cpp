// Foreign programs on the compressed formats.

#include <gtest/gtest.h>
#include <linux/videodev2.h>

#include "board/media/stamp.h"
#include "tests/support/client.h"
#include "tests/support/reference.h"

namespace {

using support::Board;
using support::ClientResult;
using support::Milliseconds;

constexpr std::uint32_t width = 640, height = 480;

// The name of a camera is that of a scenario.
std::string cameraFor(const std::string& fourcc) {
    return fourcc == "H264" ? "synthetic-h264" : "synthetic-mjpeg";
}

std::optional<board::Stamp> stampOf(const std::uint8_t* luma) {
    return board::readStamp(luma, 1, width, width, height);
}

class CompressedFormat : public testing::TestWithParam<std::string> {};

TEST_P(CompressedFormat, PassesTheComplianceTest) {
    Board board(cameraFor(GetParam()), 2);
    const ClientResult format =
        runClient(board, {"v4l2-ctl", "-d", "/dev/video0", "--set-fmt-video",
                          "width=640,height=480,pixelformat=" + GetParam()});
    EXPECT_EQ(format.exitCode, 0) << format.err;
    const ClientResult result =
        runClient(board, {"v4l2-compliance", "-d", "/dev/video0", "-s"}, Milliseconds(120000));
    EXPECT_EQ(result.exitCode, 0) << result.out << result.err;
    EXPECT_NE(result.out.find("Failed: 0,"), std::string::npos) << result.out;
}

// Marks of the pictures that FFmpeg decodes from a file of payloads.
std::vector<std::uint32_t> marksIn(const std::string& path, std::uint32_t fourcc) {
    std::vector<std::uint32_t> marks;
    support::ReferenceDecoder decoder(fourcc, [&marks](const support::Picture& picture) {
        EXPECT_EQ(picture.width, width);
        EXPECT_EQ(picture.height, height);
        const auto stamp = stampOf(picture.luma.data());
        EXPECT_TRUE(stamp.has_value()) << "picture " << marks.size();
        marks.push_back(stamp.value_or(board::Stamp{}).frame);
    });
    decoder.decodeFile(path);
    return marks;
}

TEST_P(CompressedFormat, FfmpegCopiesThePayloads) {
    const bool h264 = GetParam() == "H264";
    Board board(cameraFor(GetParam()));
    const std::string path = board.folder() + (h264 ? "/copy.h264" : "/copy.mjpeg");
    const ClientResult result =
        runClient(board, {"ffmpeg", "-nostdin", "-v", "error", "-f", "v4l2", "-input_format",
                          h264 ? "h264" : "mjpeg", "-video_size", "640x480", "-framerate", "30",
                          "-i", "/dev/video0", "-frames:v", "20", "-c:v", "copy", path});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    const std::vector<std::uint32_t> marks =
        marksIn(path, h264 ? V4L2_PIX_FMT_H264 : V4L2_PIX_FMT_MJPEG);
    ASSERT_EQ(marks.size(), 20u);
    for (std::size_t i = 1; i < marks.size(); ++i) {
        EXPECT_GT(marks[i], marks[i - 1]);
    }
}

INSTANTIATE_TEST_SUITE_P(Formats, CompressedFormat, testing::Values("MJPG", "H264"),
                         [](const auto& info) { return info.param; });

TEST(MotionJpeg, GstreamerDecodesThePayloads) {
    Board board(cameraFor("MJPG"));
    const std::string path = board.folder() + "/pictures.raw";
    // Its default inverse transform is a fast one that breaks blocks of high contrast, as in a
    // mark.
    const ClientResult result = runClient(
        board,
        {"gst-launch-1.0", "-q", "v4l2src", "device=/dev/video0", "num-buffers=6", "!",
         "image/jpeg,width=640,height=480,framerate=30/1", "!", "jpegdec", "idct-method=islow", "!",
         "video/x-raw,format=I420", "!", "filesink", "location=" + path},
        Milliseconds(60000));
    EXPECT_EQ(result.exitCode, 0) << result.out << result.err;
    const std::string bytes = support::readFile(path);
    const std::size_t frameBytes = std::size_t(width) * height * 3 / 2;
    ASSERT_EQ(bytes.size(), 6 * frameBytes);
    std::uint32_t last = 0;
    for (std::size_t i = 0; i < 6; ++i) {
        const auto stamp =
            stampOf(reinterpret_cast<const std::uint8_t*>(bytes.data()) + i * frameBytes);
        ASSERT_TRUE(stamp.has_value()) << "picture " << i;
        EXPECT_TRUE(i == 0 || stamp->frame > last);
        last = stamp->frame;
    }
}

}  // namespace
