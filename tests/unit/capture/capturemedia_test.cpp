// The capture session on a camera inside the test process.
#include "control/capture/capturemedia.h"

#include "control/task/fourcc.h"
#include "tests/unit/capture/fakecamera.h"
#include "tests/unit/capture/fakestages.h"
#include "tests/unit/capture/output.h"

#include <fcntl.h>
#include <linux/videodev2.h>

#include <algorithm>
#include <cerrno>
#include <functional>
#include <thread>

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr std::uint32_t rate = 16;

// H.264 is not paced: frames pass as fast as they are delivered.
board::CameraDescription h264Camera() {
    return camera({cameraFormat("H264", {{1280, 720, {rate}}})});
}

std::vector<std::uint8_t> payload(std::uint8_t value, std::size_t length = 100) {
    return std::vector<std::uint8_t>(length, value);
}

// Waits for a condition of another thread, with the deadline of all.
bool eventually(const std::function<bool()>& condition) {
    const auto end = steady_clock::now() + deadline;
    while (!condition()) {
        if (steady_clock::now() > end) {
            return false;
        }
        std::this_thread::sleep_for(milliseconds(1));
    }
    return true;
}

class Session : public testing::Test {
  protected:
    void SetUp() override { stages::reset({{0, 1280, 720, 60}}); }

    // Starts a session and delivers its warm-up.
    void play() {
        media = std::make_unique<CaptureMedia>("/dev/video0");
        ASSERT_TRUE(media->startPlayMedia());
        for (std::uint32_t frame = 0; frame < rate; ++frame) {
            ASSERT_TRUE(fake.deliver(payload(0)));
        }
    }

    FakeCamera fake{h264Camera()};
    std::unique_ptr<CaptureMedia> media;
};

TEST_F(Session, DeliversFramesAfterTheFirstSecond) {
    play();
    ASSERT_TRUE(fake.deliver(payload(1)));
    ASSERT_TRUE(fake.deliver(payload(2, 7)));
    ASSERT_TRUE(stages::waitFrames(2));
    media.reset();
    const auto frames = stages::frames();
    ASSERT_EQ(frames.size(), 2U);
    EXPECT_EQ(frames[0].payload, payload(1));
    EXPECT_EQ(frames[1].payload, payload(2, 7));
    EXPECT_EQ(frames[0].width, 1280U);
    EXPECT_EQ(frames[0].height, 720U);
    EXPECT_EQ(frames[0].virWidth, 1280U);
    EXPECT_EQ(frames[0].virHeight, 720U);
    EXPECT_EQ(frames[0].format, 0U);
    EXPECT_GE(frames[0].pts, 0.0);
    EXPECT_LT(frames[0].pts, 10000.0);
    EXPECT_GT(frames[1].pts, frames[0].pts);
    EXPECT_EQ(frames[0].thread, "CaptureMedia");
}

TEST_F(Session, BuildsAndDropsItsStagesInOrder) {
    play();
    media.reset();
    const std::vector<std::string> expected = {
        "show 1280x720@60 after close", "find decoder 1 0 '' after REQBUFS",
        "decoder_open after REQBUFS",   "show runs after REQBUFS",
        "decoder deleted after close",  "show deleted after close"};
    EXPECT_EQ(stages::journal(), expected);
    const std::vector<std::string> calls = {"open",   "close",   "open",     "S_FMT",     "G_PARM",
                                            "S_PARM", "REQBUFS", "STREAMON", "STREAMOFF", "close"};
    EXPECT_EQ(fake.calls(), calls);
    EXPECT_EQ(fake.setWidth, 1280U);
    EXPECT_EQ(fake.setHeight, 720U);
    EXPECT_EQ(fake.setFourcc, fourccOf("H264"));
    EXPECT_EQ(fake.setField, std::uint32_t{V4L2_FIELD_INTERLACED});
    EXPECT_EQ(fake.setRate, rate);
    EXPECT_EQ(fake.openFlags & (O_NONBLOCK | O_CLOEXEC), O_NONBLOCK | O_CLOEXEC);
    EXPECT_EQ(fake.openDescriptors(), 0U);
    EXPECT_EQ(fake.mappings(), 0U);
}

TEST_F(Session, PrintsRatesAndItsEnd) {
    const Output output = outputOf([&] {
        play();
        media.reset();
    });
    EXPECT_NE(output.out.find("\nsrc numerator=333333\nsrc denominator=10000000\n"
                              "dst numerator=1\ndst denominator=16\n"),
              std::string::npos);
    EXPECT_NE(output.out.find("\nCaptureMediasvc normal stop!\n"), std::string::npos);
    EXPECT_NE(output.out.find("\ndelete capture media succeed\n"), std::string::npos);
    EXPECT_EQ(output.err, "");
}

TEST_F(Session, AFullDecoderDropsTheFrameAndKeepsTheBuffer) {
    play();
    ASSERT_TRUE(fake.deliver(payload(1)));
    ASSERT_TRUE(stages::waitFrames(1));
    stages::setAccepting(false);
    for (int frame = 0; frame < 6; ++frame) {
        ASSERT_TRUE(fake.deliver(payload(2)));
    }
    ASSERT_TRUE(fake.waitQueued(3));
    stages::setAccepting(true);
    ASSERT_TRUE(fake.deliver(payload(3)));
    ASSERT_TRUE(stages::waitFrames(2));
    EXPECT_EQ(stages::frames()[1].payload, payload(3));
    EXPECT_EQ(media->getCaptureError(), 0);
}

TEST_F(Session, NeverReadsBeyondABuffer) {
    play();
    ASSERT_TRUE(fake.deliver(payload(9, fake.bufferBytes), 10 * fake.bufferBytes));
    ASSERT_TRUE(stages::waitFrames(1));
    EXPECT_EQ(stages::frames()[0].payload, payload(9, fake.bufferBytes));
}

TEST_F(Session, ASilentCameraIsAnErrorAfterASecond) {
    const Output output = outputOf([&] {
        play();
        EXPECT_EQ(CaptureMedia::selectTimeout_sec, 1);
        EXPECT_EQ(CaptureMedia::selectTimeout_usec, 0);
        ASSERT_TRUE(fake.waitQueued(3));
        const auto begin = steady_clock::now();
        EXPECT_EQ(media->getCaptureError(), 0);
        EXPECT_TRUE(eventually([&] { return media->getCaptureError() == 1; }));
        EXPECT_GE(steady_clock::now() - begin, milliseconds(700));
        EXPECT_EQ(CaptureMedia::selectTimeout_sec, 0);
        EXPECT_EQ(CaptureMedia::selectTimeout_usec, 100000);
        media.reset();
    });
    EXPECT_EQ(output.err.find("select timeout\n"), 0U);
    const CaptureMedia next("/dev/video0");
    EXPECT_EQ(CaptureMedia::selectTimeout_sec, 1);
    EXPECT_EQ(CaptureMedia::selectTimeout_usec, 0);
}

TEST_F(Session, TheFirstFrameMayTakeLonger) {
    media = std::make_unique<CaptureMedia>("/dev/video0");
    ASSERT_TRUE(media->startPlayMedia());
    const auto end = steady_clock::now() + milliseconds(1500);
    while (steady_clock::now() < end) {
        ASSERT_EQ(media->getCaptureError(), 0);
        std::this_thread::sleep_for(milliseconds(10));
    }
}

TEST_F(Session, TeardownDoesNotWaitForFrames) {
    media = std::make_unique<CaptureMedia>("/dev/video0");
    ASSERT_TRUE(media->startPlayMedia());
    const auto begin = steady_clock::now();
    media.reset();
    EXPECT_LT(steady_clock::now() - begin, milliseconds(2000));
}

TEST_F(Session, AnUnpluggedCameraLeavesNoDescriptor) {
    const Output output = outputOf([&] {
        play();
        fake.unplug();
        EXPECT_TRUE(eventually([&] { return media->getCaptureError() == 1; }));
        media.reset();
    });
    EXPECT_EQ(output.err, "VIDIOC_DQBUF faild errno =19\nVIDIOC_STREAMOFF faild\n");
    EXPECT_EQ(fake.openDescriptors(), 0U);
    EXPECT_EQ(fake.mappings(), 0U);
}

TEST_F(Session, ADequeueErrorIsFatalAndNamed) {
    for (const auto& [error, line] :
         std::vector<std::pair<int, std::string>>{{EIO, "VIDIOC_DQBUF faild EIO\n"},
                                                  {EAGAIN, "VIDIOC_DQBUF faild EAGAIN\n"},
                                                  {EINVAL, "VIDIOC_DQBUF faild errno =22\n"}}) {
        FakeCamera failing(h264Camera());
        failing.failing[VIDIOC_DQBUF] = error;
        const Output output = outputOf([&] {
            media = std::make_unique<CaptureMedia>("/dev/video0");
            ASSERT_TRUE(media->startPlayMedia());
            ASSERT_TRUE(failing.deliver(payload(1)));
            EXPECT_TRUE(eventually([&] { return media->getCaptureError() == 1; }));
            media.reset();
        });
        EXPECT_EQ(output.err, line);
    }
}

TEST_F(Session, ALostDisplayIsTold) {
    const Output output = outputOf([&] {
        play();
        EXPECT_EQ(media->getCaptureError(), 0);
        stages::setConnected(false);
        EXPECT_EQ(media->getCaptureError(), 2);
        stages::setConnected(true);
        EXPECT_EQ(media->getCaptureError(), 0);
    });
    EXPECT_NE(output.out.find("\nshow dev disconnect \n"), std::string::npos);
}

TEST_F(Session, AFailedStartLeavesNothing) {
    struct Case {
        unsigned long request;
        int error;
        std::string line;
    };
    for (const Case& c :
         {Case{VIDIOC_S_FMT, EBUSY, "VIDIOC_S_FMT faild\n"},
          Case{VIDIOC_REQBUFS, EINVAL, "/dev/video0 does not support memory mapping\n"},
          Case{VIDIOC_REQBUFS, EBUSY, "VIDIOC_REQBUFS faild\n"},
          Case{VIDIOC_QUERYBUF, EINVAL, "VIDIOC_QUERYBUF faild\n"},
          Case{VIDIOC_QBUF, EINVAL, "VIDIOC_QBUF faild\n"},
          Case{VIDIOC_STREAMON, EIO, "VIDIOC_STREAMON faild\n"}}) {
        FakeCamera failing(h264Camera());
        failing.failing[c.request] = c.error;
        const Output output = outputOf([&] {
            CaptureMedia session("/dev/video0");
            EXPECT_FALSE(session.startPlayMedia());
        });
        EXPECT_EQ(output.err, c.line);
        EXPECT_EQ(failing.openDescriptors(), 0U) << c.line;
        EXPECT_EQ(failing.mappings(), 0U) << c.line;
    }
}

// The rate is a wish: a camera that refuses it is shown at its own.
TEST_F(Session, PlaysAlsoWithoutFrameRates) {
    fake.failing[VIDIOC_G_PARM] = EINVAL;
    fake.failing[VIDIOC_S_PARM] = EINVAL;
    const Output output = outputOf([&] { play(); });
    EXPECT_EQ(output.err, "VIDIOC_G_PARM faild\nVIDIOC_S_PARM faild\n");
}

TEST_F(Session, ARefusedRequeueIsOnlyReported) {
    play();
    ASSERT_TRUE(fake.waitQueued(3));
    const Output output = outputOf([&] {
        stages::setAccepting(false);
        fake.refuseRequeues();
        ASSERT_TRUE(fake.deliver(payload(1)));
        ASSERT_TRUE(fake.waitRefused(1));
        EXPECT_EQ(media->getCaptureError(), 0);
        media.reset();
    });
    EXPECT_EQ(output.err, "VIDIOC_QBUF\n");
}

TEST_F(Session, DoesNotStartWithoutADecoder) {
    for (const bool missing : {true, false}) {
        stages::setDecoderMissing(missing);
        stages::setDecoderOpens(missing);
        CaptureMedia session("/dev/video0");
        EXPECT_FALSE(session.startPlayMedia());
    }
    EXPECT_EQ(fake.openDescriptors(), 0U);
}

TEST_F(Session, DoesNotStartWithoutAThread) {
    fake.noThreads = true;
    CaptureMedia session("/dev/video0");
    EXPECT_FALSE(session.startPlayMedia());
}

TEST_F(Session, DoesNotStartWithoutAPair) {
    stages::reset({{0, 3840, 2160, 30}});
    const Output output = outputOf([&] {
        CaptureMedia session("/dev/video0");
        EXPECT_FALSE(session.startPlayMedia());
    });
    EXPECT_EQ(output.err, "VIDIOC_STREAMOFF faild\n");
    EXPECT_EQ(stages::journal().size(), 0U);
}

// Raw and MJPEG frames are taken at the camera's pace: 1000 / fps - 2 ms apart at least.
TEST_F(Session, PacesEverythingButH264) {
    constexpr int frames = 20;
    const auto timeOf = [&](const char(&fourcc)[5]) {
        FakeCamera paced(camera({cameraFormat(fourcc, {{1280, 720, {30}}})}));
        media = std::make_unique<CaptureMedia>("/dev/video0");
        EXPECT_TRUE(media->startPlayMedia());
        EXPECT_TRUE(paced.deliver(payload(0)));
        const auto begin = steady_clock::now();
        for (int frame = 0; frame < frames; ++frame) {
            EXPECT_TRUE(paced.deliver(payload(0)));
        }
        EXPECT_TRUE(paced.waitQueued(3));
        const auto took = steady_clock::now() - begin;
        media.reset();
        return took;
    };
    EXPECT_GE(timeOf("YUYV"), milliseconds((frames - 2) * 31));
    EXPECT_LT(timeOf("H264"), milliseconds((frames - 2) * 31));
}

using SessionDeath = Session;

TEST_F(SessionDeath, ABufferThatDoesNotExistEndsTheProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            fake.reportedIndexOffset = 1000;
            media = std::make_unique<CaptureMedia>("/dev/video0");
            media->startPlayMedia();
            fake.deliver(payload(1));
            eventually([] { return false; });
        },
        "control/capture/capturemedia\\.cpp:[0-9]+: bool CaptureMedia::read_frame\\(bool\\): "
        "Assertion `buf\\.index < n_buffers' failed");
}

}  // namespace
