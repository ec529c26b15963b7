// What is read of the camera, and when the analysis gives up.
#include "control/capture/analysisfile.h"

#include "control/task/fourcc.h"
#include "tests/unit/camera/fakeobsbot.h"
#include "tests/unit/capture/fakecamera.h"
#include "tests/unit/capture/fakestages.h"
#include "tests/unit/capture/output.h"

#include <fcntl.h>
#include <linux/videodev2.h>
#include <sys/resource.h>
#include <sys/select.h>

#include <cerrno>
#include <cstring>
#include <sstream>

namespace {

constexpr char node[] = "/dev/video0";

// The accepted modes of all lists, "W x H @ fps" each with its padded format name.
std::string modesOf(const AnalysisFile& analysis) {
    std::ostringstream text;
    for (const auto& list : analysis.uvcFmtLists) {
        for (const uvcFmt& mode : list) {
            text << mode;
        }
    }
    return text.str();
}

std::string acceptedOf(board::CameraDescription description) {
    FakeCamera fake(std::move(description));
    AnalysisFile analysis(node);
    outputOf([&] { EXPECT_TRUE(analysis.analysisUvcDevice()); });
    return modesOf(analysis);
}

// The analysis fails with exactly this line.
template <typename Prepare>
void expectRefusal(const Prepare& prepare, const std::string& line) {
    FakeCamera fake(camera({cameraFormat("YUYV", {{640, 480, {30}}})}));
    prepare(fake);
    AnalysisFile analysis(node);
    const Output output = outputOf([&] { EXPECT_FALSE(analysis.analysisUvcDevice()); });
    EXPECT_EQ(output.err, line + "\n");
    EXPECT_EQ(fake.openDescriptors(), 0U);
    EXPECT_EQ(modesOf(analysis), "");
}

std::string errorText(int error) {
    return std::to_string(error) + ", " + strerror(error);
}

TEST(CameraAnalysis, SaysWhyANodeIsRefused) {
    expectRefusal([](FakeCamera& fake) { fake.statError = ENOENT; },
                  "Cannot identify '/dev/video0': " + errorText(ENOENT));
    expectRefusal([](FakeCamera& fake) { fake.characterDevice = false; },
                  "/dev/video0 is no device");
    expectRefusal([](FakeCamera& fake) { fake.openError = EACCES; },
                  "Cannot open '/dev/video0': " + errorText(EACCES));
    expectRefusal([](FakeCamera& fake) { fake.failing[VIDIOC_QUERYCAP] = EINVAL; },
                  "/dev/video0 is no V4L2 device");
    expectRefusal([](FakeCamera& fake) { fake.failing[VIDIOC_QUERYCAP] = EIO; },
                  "VIDIOC_QUERYCAP, " + errorText(EIO));
    expectRefusal([](FakeCamera& fake) { fake.capabilities = V4L2_CAP_STREAMING; },
                  "/dev/video0 is no video capture device");
    expectRefusal([](FakeCamera& fake) { fake.capabilities = V4L2_CAP_VIDEO_CAPTURE; },
                  "/dev/video0 does not support streaming i/o");
}

// select could not wait for such a descriptor.
TEST(CameraAnalysis, RefusesADescriptorBeyondTheSet) {
    rlimit limit{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    if (limit.rlim_max <= FD_SETSIZE) {
        GTEST_SKIP() << "this system allows " << limit.rlim_max << " descriptors only";
    }
    const rlimit raised{FD_SETSIZE + 1, limit.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &raised), 0);
    expectRefusal([](FakeCamera& fake) { fake.lowestDescriptor = FD_SETSIZE; },
                  "Cannot open '/dev/video0': " + errorText(EMFILE));
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
}

TEST(CameraAnalysis, PrintsWhoTheCameraIs) {
    board::CameraDescription description = camera({}, "HD Webcam");
    description.busInfo = "usb-1";
    description.version = 0x00060142;
    FakeCamera fake(description);
    AnalysisFile analysis(node);
    const Output output = outputOf([&] { EXPECT_TRUE(analysis.analysisUvcDevice()); });
    EXPECT_EQ(output.out,
              "Driver Name:uvcvideo\nCard Name:HD Webcam\nBus info:usb-1\nDriver Version:6.1.66\n");
    EXPECT_EQ(output.err, "");
    EXPECT_EQ(analysis.cardName, "HD Webcam");
    EXPECT_EQ(fake.openFlags & (O_ACCMODE | O_NONBLOCK | O_CLOEXEC),
              O_RDWR | O_NONBLOCK | O_CLOEXEC);
    EXPECT_EQ(fake.openDescriptors(), 0U);
}

TEST(CameraAnalysis, ACardNameEndsAtItsField) {
    FakeCamera fake(camera({}));
    fake.unterminatedCard = true;
    AnalysisFile analysis(node);
    outputOf([&] { EXPECT_TRUE(analysis.analysisUvcDevice()); });
    EXPECT_EQ(analysis.cardName, std::string(32, 'x'));
}

TEST(CameraAnalysis, SortsModesIntoTheListsOfTheirFormats) {
    EXPECT_EQ(acceptedOf(camera({cameraFormat("NV12", {{640, 480, {30}}}),
                                 cameraFormat("H264", {{1920, 1080, {30}}}),
                                 cameraFormat("YUYV", {{640, 480, {30, 25}}, {320, 240, {30}}}),
                                 cameraFormat("MJPG", {{1280, 720, {60}}})})),
              "   Mjpeg   1280x720@60\n   Yuyv    640x480@30\n   Yuyv    640x480@25\n"
              "   Yuyv    320x240@30\n   H264    1920x1080@30\n");
}

TEST(CameraAnalysis, DropsSlowModes) {
    EXPECT_EQ(acceptedOf(camera({cameraFormat("YUYV", {{640, 480, {5, 15, 16}}})})),
              "   Yuyv    640x480@16\n");
    board::CameraDescription odd = camera({cameraFormat("YUYV", {{640, 480, {30}}})});
    odd.formats[0].sizes[0].intervals = {{0, 30}, {1001, 30000}, {333333, 10000000}, {2, 31}};
    EXPECT_EQ(acceptedOf(odd), "   Yuyv    640x480@29\n   Yuyv    640x480@30\n");
}

TEST(CameraAnalysis, OneModeOfOneCameraIsNeverOffered) {
    const std::vector<board::CameraFormat> formats = {
        cameraFormat("MJPG", {{1920, 1080, {60, 30}}}),
        cameraFormat("YUYV", {{1920, 1080, {60, 30}}, {2560, 1440, {30}}}),
        cameraFormat("H264", {{1920, 1080, {60, 30}}, {3840, 2160, {30}}})};
    EXPECT_EQ(acceptedOf(camera(formats, "OBSBOT Tiny 4K")),
              "   Mjpeg   1920x1080@30\n   Yuyv    1920x1080@30\n   Yuyv    2560x1440@30\n"
              "   H264    1920x1080@30\n   H264    3840x2160@30\n");
    for (const char* other : {"OBSBOT Tiny 4K ", "OBSBOT Tiny", "Camera"}) {
        EXPECT_EQ(acceptedOf(camera(formats, other)),
                  "   Mjpeg   1920x1080@60\n   Mjpeg   1920x1080@30\n   Yuyv    1920x1080@60\n"
                  "   Yuyv    1920x1080@30\n   Yuyv    2560x1440@30\n   H264    1920x1080@60\n"
                  "   H264    1920x1080@30\n   H264    3840x2160@30\n");
    }
}

TEST(CameraAnalysis, LimitsSizeAndBandwidthOfMjpegOnly) {
    const std::vector<Mode> modes = {
        {2560, 1440, {30}}, {1920, 1081, {30}}, {1920, 1080, {60, 61}}, {1280, 720, {135, 136}}};
    EXPECT_EQ(acceptedOf(camera({cameraFormat("MJPG", modes)})),
              "   Mjpeg   1920x1080@60\n   Mjpeg   1280x720@135\n");
    EXPECT_EQ(acceptedOf(camera({cameraFormat("H264", modes)})),
              "   H264    2560x1440@30\n   H264    1920x1081@30\n   H264    1920x1080@60\n"
              "   H264    1920x1080@61\n   H264    1280x720@135\n   H264    1280x720@136\n");
}

// The size counts in full, the bandwidth wraps at 32 bits.
TEST(CameraAnalysis, WideNumbers) {
    EXPECT_EQ(acceptedOf(camera({cameraFormat("MJPG", {{65536, 65536, {30}}})})), "");
    EXPECT_EQ(acceptedOf(camera({cameraFormat("MJPG", {{1024, 1024, {4096}}})})),
              "   Mjpeg   1024x1024@4096\n");
}

TEST(CameraAnalysis, SkipsSizesThatAreRanges) {
    FakeCamera fake(camera({cameraFormat("YUYV", {{640, 480, {30}}})}));
    fake.stepwiseSizes = true;
    AnalysisFile analysis(node);
    outputOf([&] { EXPECT_TRUE(analysis.analysisUvcDevice()); });
    EXPECT_EQ(modesOf(analysis), "");
}

TEST(CameraAnalysis, ARangeOfIntervalsCountsWithItsShortest) {
    FakeCamera fake(camera({cameraFormat("YUYV", {{640, 480, {30}}})}));
    fake.stepwiseIntervals = true;
    AnalysisFile analysis(node);
    outputOf([&] { EXPECT_TRUE(analysis.analysisUvcDevice()); });
    EXPECT_EQ(modesOf(analysis), "   Yuyv    640x480@30\n");
}

TEST(CameraAnalysis, AnEnumerationThatNeverEndsIsLeft) {
    FakeCamera fake(camera({cameraFormat("YUYV", {{640, 480, {30}}})}));
    fake.endless = true;
    AnalysisFile analysis(node);
    outputOf([&] { EXPECT_TRUE(analysis.analysisUvcDevice()); });
    EXPECT_GE(analysis.uvcFmtLists[1].size(), 1024U);
    EXPECT_LE(fake.enumerations, 20000U);
}

TEST(Analysis, PrintsTheDisplaysModes) {
    FakeCamera fake(camera({cameraFormat("H264", {{1920, 1080, {60}}})}));
    stages::reset({{0, 1920, 1080, 60}, {0, 1280, 720, 50}});
    AnalysisFile analysis(node);
    const Output output = outputOf([&] { EXPECT_TRUE(analysis.openFile()); });
    EXPECT_EQ(output.out.find("-----------get drm edid info-----------\n1920x1080@60\n1280x720@50\n"
                              "Driver Name:"),
              0U);
    EXPECT_EQ(analysis.captureInfo.format, fourccOf("H264"));
    EXPECT_EQ(analysis.captureInfo.fps, 60U);
}

TEST(Analysis, ChoosesNothingWithoutACameraMode) {
    FakeCamera fake(camera({cameraFormat("YUYV", {{1920, 1080, {15, 5}}})}));
    stages::reset({{0, 1920, 1080, 60}});
    AnalysisFile analysis(node);
    const Output output = outputOf([&] { EXPECT_FALSE(analysis.openFile()); });
    EXPECT_EQ(output.out.find("----total all format----"), std::string::npos);
}

TEST(Analysis, ChoosesNothingWithoutADisplayMode) {
    FakeCamera fake(camera({cameraFormat("YUYV", {{1920, 1080, {30}}})}));
    stages::reset({});
    AnalysisFile analysis(node);
    const Output output = outputOf([&] { EXPECT_FALSE(analysis.openFile()); });
    EXPECT_EQ(output.out.find("----total all format----"), std::string::npos);
}

TEST(Analysis, FailsWithoutAPair) {
    FakeCamera fake(camera({cameraFormat("YUYV", {{640, 480, {30}}})}));
    stages::reset({{0, 1920, 1080, 60}});
    AnalysisFile analysis(node);
    analysis.captureInfo = {1, 2, 3, 4};
    const Output output = outputOf([&] { EXPECT_FALSE(analysis.openFile()); });
    EXPECT_NE(output.out.find("----total all format----"), std::string::npos);
    EXPECT_EQ(analysis.captureInfo.width, 0U);
    EXPECT_EQ(analysis.captureInfo.format, 0U);
}

// Made for the node as soon as a mode was chosen, gone with the analysis.
TEST(Analysis, ACameraThatCanPlayGetsAControlTask) {
    FakeCamera fake(camera({cameraFormat("YUYV", {{640, 480, {30}}})}));
    obsBotLife = {};
    stages::reset({{0, 1920, 1080, 60}});
    outputOf([] { EXPECT_FALSE(AnalysisFile(node).openFile()); });
    EXPECT_EQ(obsBotLife.made.size(), 0U);
    stages::reset({{0, 640, 480, 60}});
    {
        AnalysisFile analysis(node);
        EXPECT_EQ(analysis.obsBot, nullptr);
        outputOf([&] { EXPECT_TRUE(analysis.openFile()); });
        EXPECT_NE(analysis.obsBot, nullptr);
        EXPECT_EQ(obsBotLife.made, std::vector<std::string>{node});
        EXPECT_EQ(obsBotLife.living, 1);
    }
    EXPECT_EQ(obsBotLife.living, 0);
}

}  // namespace
