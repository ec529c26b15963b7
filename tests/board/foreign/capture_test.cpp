// Pictures that foreign programs take from the camera equal the recording bit for bit.

#include <gtest/gtest.h>
#include <linux/videodev2.h>

#include "board/media/recording.h"
#include "board/media/stamp.h"
#include "tests/support/client.h"

namespace {

using support::Board;
using support::ClientResult;
using support::Milliseconds;

constexpr std::uint32_t width = 640, height = 480;
constexpr std::size_t frameBytes = std::size_t(width) * height * 2;

// Every picture in the file carries a readable mark and is what the camera makes of that number.
void expectCameraPictures(const std::string& path, std::size_t count) {
    const std::string bytes = support::readFile(path);
    ASSERT_EQ(bytes.size(), count * frameBytes);
    const board::PictureLoop loop =
        board::loadPictures(board::defaultRecording(), V4L2_PIX_FMT_YUYV, width, height,
                            board::loopLength(width, height));
    std::vector<std::uint8_t> expected(loop.pictureBytes);
    std::uint32_t lastFrame = 0;
    for (std::size_t i = 0; i < count; ++i) {
        const auto* picture = reinterpret_cast<const std::uint8_t*>(bytes.data()) + i * frameBytes;
        const auto stamp = board::readStamp(picture, 2, width * 2, width, height);
        ASSERT_TRUE(stamp.has_value()) << "picture " << i;
        if (i > 0) {
            EXPECT_GT(stamp->frame, lastFrame);
        }
        lastFrame = stamp->frame;
        composeFrame(loop, stamp->frame, stamp->time_100us, expected.data());
        EXPECT_EQ(std::memcmp(picture, expected.data(), frameBytes), 0) << "picture " << i;
    }
}

TEST(Capture, V4l2CtlGetsTheCamerasPictures) {
    Board board("default");
    const std::string path = board.folder() + "/pictures.raw";
    const ClientResult result =
        runClient(board, {"v4l2-ctl", "-d", "/dev/video0", "--set-fmt-video",
                          "width=640,height=480,pixelformat=YUYV", "--stream-mmap=4",
                          "--stream-count=6", "--stream-to=" + path});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    expectCameraPictures(path, 6);
}

TEST(Capture, FfmpegGetsTheCamerasPictures) {
    Board board("default");
    const std::string path = board.folder() + "/pictures.raw";
    const ClientResult result = runClient(board, {"ffmpeg",
                                                  "-nostdin",
                                                  "-v",
                                                  "error",
                                                  "-f",
                                                  "v4l2",
                                                  "-input_format",
                                                  "yuyv422",
                                                  "-video_size",
                                                  "640x480",
                                                  "-framerate",
                                                  "30",
                                                  "-i",
                                                  "/dev/video0",
                                                  "-frames:v",
                                                  "6",
                                                  "-fps_mode",
                                                  "passthrough",
                                                  "-c:v",
                                                  "rawvideo",
                                                  "-f",
                                                  "rawvideo",
                                                  path});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    expectCameraPictures(path, 6);
}

TEST(Capture, GstreamerGetsTheCamerasPictures) {
    Board board("default");
    const std::string path = board.folder() + "/pictures.raw";
    const ClientResult result =
        runClient(board,
                  {"gst-launch-1.0", "-q", "v4l2src", "device=/dev/video0", "num-buffers=6", "!",
                   "video/x-raw,format=YUY2,width=640,height=480,framerate=30/1", "!", "filesink",
                   "location=" + path},
                  Milliseconds(60000));
    EXPECT_EQ(result.exitCode, 0) << result.out << result.err;
    expectCameraPictures(path, 6);
}

}  // namespace
