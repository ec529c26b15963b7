// Wherever a thread waits when a device goes: everything ends soon, and the next plug plays.

#include <gtest/gtest.h>

#include <cerrno>
#include <ostream>

#include "tests/support/application.h"
#include "tests/support/scenarios.h"

namespace {

using support::Application;
using support::benchScenario;
using support::Board;
using support::Milliseconds;

constexpr char failedToNone[] = "statue: STATUE_POOL_OPENFAID ==> STATUE_POLL_NODEVICE";
constexpr char displayGoneToNone[] = "statue: STATUE_POOL_PLAYERR ==> STATUE_POLL_NODEVICE";
constexpr char deleted[] = "delete capture media succeed";
constexpr Milliseconds bound(2000);

bool showsMore(Board& board, std::uint64_t frames) {
    const std::uint64_t before = board.display().shown;
    return board.waitForDisplay(
        [&](const auto& figures) { return figures.shown >= before + frames; }, Milliseconds(10000));
}

// Unplugs, and expects all threads of the pipeline to end within the bound.
std::size_t expectTornDown(Board& board, Application& application, const std::string& device,
                           std::size_t from) {
    const auto began = support::Clock::now();
    board.unplug(device);
    const std::size_t next = application.expectLine(deleted, bound, from);
    EXPECT_TRUE(application.waitForPipelineGone(Milliseconds(500)));
    std::printf(
        "%s: torn down after %lld ms\n", device.c_str(),
        (long long)std::chrono::duration_cast<Milliseconds>(support::Clock::now() - began).count());
    return application.expectLine(device == "camera" ? failedToNone : displayGoneToNone,
                                  Milliseconds(5000), next);
}

struct Wait {
    const char* name;
    const char* call;
    const char* thread;
};

void PrintTo(const Wait& one, std::ostream* out) {
    *out << one.name;
}

class TeardownWhileParked : public testing::TestWithParam<Wait> {};

TEST_P(TeardownWhileParked, EndsSoonAndPlaysAgain) {
    Board board(benchScenario("small"));
    Application application(board);
    std::size_t next = application.expectPlaying();
    for (const char* device : {"camera", "display"}) {
        ASSERT_TRUE(showsMore(board, 5));
        board.park(GetParam().call, GetParam().thread);
        ASSERT_TRUE(board.waitForPark(Milliseconds(5000)))
            << GetParam().thread << " does not wait in " << GetParam().call;
        next = expectTornDown(board, application, device, next);
        board.unpark();
        board.plug(device);
        next = application.expectPlaying(next);
        ASSERT_FALSE(HasFailure());
    }
    EXPECT_TRUE(showsMore(board, 5));
}

INSTANTIATE_TEST_SUITE_P(Waits, TeardownWhileParked,
                         testing::Values(Wait{"CaptureSelect", "select", "CaptureMedia"},
                                         Wait{"DisplayPoll", "poll", "ShowControl"},
                                         Wait{"DecoderQueue", "pthread_cond_wait",
                                              "Decoder_Rawvide"}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(Teardown, WithFlipsThatDoNotComplete) {
    Board board(benchScenario("small"));
    Application application(board);
    std::size_t next = application.expectPlaying();
    for (const char* device : {"camera", "display"}) {
        ASSERT_TRUE(showsMore(board, 5));
        board.holdFlips(true);
        // The ring is full now, the decoder waits for a free slot, and the last flip that did
        // complete was read long ago.
        next = application.expectLine("clean queue buff", Milliseconds(10000), next);
        // A read that nothing answers would wait for ever: it must not be entered at all.
        board.park("read", "ShowControl");
        next = expectTornDown(board, application, device, next);
        board.unpark();
        board.holdFlips(false);
        board.plug(device);
        next = application.expectPlaying(next);
        ASSERT_FALSE(HasFailure());
    }
    EXPECT_TRUE(showsMore(board, 5));
}

TEST(Teardown, WhileThePictureIsBlack) {
    Board board(benchScenario("small"));
    Application application(board);
    const std::size_t next = application.expectPlaying();
    // In the first second nothing is shown: the flip handler waits for a picture.
    expectTornDown(board, application, "camera", next);
}

class LostFlip : public testing::TestWithParam<unsigned> {};

TEST_P(LostFlip, DoesNotStopTheDisplay) {
    Board board(benchScenario("small"));
    Application application(board);
    const std::size_t next = application.expectPlaying();
    ASSERT_TRUE(showsMore(board, 5));
    board.fail("DRM_IOCTL_MODE_PAGE_FLIP", 1, EBUSY, GetParam());
    EXPECT_TRUE(showsMore(board, 30));
    EXPECT_FALSE(application.out().waitForMatch("^statue: ", Milliseconds(0), next).has_value());
}

INSTANTIATE_TEST_SUITE_P(Times, LostFlip, testing::Values(1, 5),
                         [](const auto& info) { return std::to_string(info.param); });

TEST(LostFlip, WithoutItsEventTheDisplayGoesOn) {
    Board board(benchScenario("small"));
    Application application(board);
    const std::size_t next = application.expectPlaying();
    ASSERT_TRUE(showsMore(board, 5));
    board.loseFlip();
    EXPECT_TRUE(showsMore(board, 30));
    EXPECT_FALSE(application.out().waitForMatch("^statue: ", Milliseconds(0), next).has_value());
}

TEST(LostFlip, HeldForAWhileGoesOnAfterwards) {
    Board board(benchScenario("small"));
    Application application(board);
    application.expectPlaying();
    ASSERT_TRUE(showsMore(board, 5));
    board.holdFlips(true);
    application.expectLine("clean queue buff", Milliseconds(10000));
    board.holdFlips(false);
    EXPECT_TRUE(showsMore(board, 30));
    // The overflow itself may show a slot that was filled again while its flip was held.
    board.resetFigures();
    EXPECT_TRUE(showsMore(board, 30));
    EXPECT_EQ(board.display().outOfOrder, 0u);
}

TEST(SetUp, DisplayThatRefusesItsModeIsTriedAgain) {
    Board board(benchScenario("small"));
    board.fail("DRM_IOCTL_MODE_SETCRTC", 1, EINVAL);
    Application application(board);
    std::size_t next = application.expectLine("show dev disconnect ", Milliseconds(10000));
    next = application.expectLine(displayGoneToNone, Milliseconds(5000), next);
    application.expectPlaying(next);
    EXPECT_TRUE(showsMore(board, 5));
}

TEST(SetUp, DisplayWithoutMemoryIsTriedAgain) {
    Board board(benchScenario("small"));
    board.fail("DRM_IOCTL_MODE_CREATE_DUMB", 20, ENOMEM);
    Application application(board);
    std::size_t next = application.expectLine("show dev disconnect ", Milliseconds(10000));
    application.expectPlaying(next);
    EXPECT_TRUE(showsMore(board, 5));
}

// A camera's ioctl that fails: the line on standard error, and what becomes of the start.
struct CameraFault {
    const char* ioctl;
    unsigned nth;
    int error;
    const char* line;  // empty: none
    enum { startFails, plays, playEnds } result;
};

const CameraFault cameraFaults[] = {
    {"VIDIOC_QUERYCAP", 1, EINVAL, "/dev/video0 is no V4L2 device", CameraFault::startFails},
    {"VIDIOC_QUERYCAP", 1, EIO, "VIDIOC_QUERYCAP, 5, Input/output error", CameraFault::startFails},
    {"VIDIOC_ENUM_FMT", 1, EIO, "", CameraFault::startFails},
    {"VIDIOC_ENUM_FRAMESIZES", 1, EIO, "", CameraFault::startFails},
    {"VIDIOC_ENUM_FRAMEINTERVALS", 1, EIO, "", CameraFault::startFails},
    {"VIDIOC_S_FMT", 1, EBUSY, "VIDIOC_S_FMT faild", CameraFault::startFails},
    {"VIDIOC_G_PARM", 1, EIO, "VIDIOC_G_PARM faild", CameraFault::plays},
    {"VIDIOC_S_PARM", 1, EIO, "VIDIOC_S_PARM faild", CameraFault::plays},
    {"VIDIOC_REQBUFS", 1, EINVAL, "/dev/video0 does not support memory mapping",
     CameraFault::startFails},
    {"VIDIOC_REQBUFS", 1, EBUSY, "VIDIOC_REQBUFS faild", CameraFault::startFails},
    {"VIDIOC_QUERYBUF", 2, EIO, "VIDIOC_QUERYBUF faild", CameraFault::startFails},
    {"VIDIOC_QBUF", 3, EIO, "VIDIOC_QBUF faild", CameraFault::startFails},
    {"VIDIOC_STREAMON", 1, ENOSPC, "VIDIOC_STREAMON faild", CameraFault::startFails},
    {"VIDIOC_DQBUF", 10, EIO, "VIDIOC_DQBUF faild EIO", CameraFault::playEnds},
    {"VIDIOC_DQBUF", 10, EAGAIN, "VIDIOC_DQBUF faild EAGAIN", CameraFault::playEnds},
    {"VIDIOC_DQBUF", 10, EPROTO, "VIDIOC_DQBUF faild errno =71", CameraFault::playEnds},
    {"VIDIOC_STREAMOFF", 1, EIO, "", CameraFault::plays},
};

// Standard error holds other lines too (a failed start is torn down); this one must be there once.
void expectFaultLine(Application& application, const CameraFault& fault, std::size_t from) {
    if (std::string(fault.line).empty()) {
        return;
    }
    EXPECT_TRUE(application.err().waitForExactly(fault.line, Milliseconds(5000), from).has_value())
        << application.err().text();
    EXPECT_EQ(application.err().count(fault.line, from), 1u);
}

std::size_t expectResult(Application& application, const CameraFault& fault, std::size_t next) {
    switch (fault.result) {
        case CameraFault::startFails:
            return application.expectLine("statue: STATUE_POOL_OPENDEVICE ==> STATUE_POOL_OPENFAID",
                                          Milliseconds(10000), next);
        case CameraFault::plays:
            return application.expectPlaying(next);
        case CameraFault::playEnds:
            next = application.expectPlaying(next);
            return application.expectLine("statue: STATUE_POOL_PLAYERR ==> STATUE_POOL_OPENFAID",
                                          Milliseconds(10000), next);
    }
    return next;
}

TEST(CameraFaults, EachGivesItsLineAndTheNextPlugPlays) {
    Board board(benchScenario("small-unplugged"), 2);
    Application application(board);
    std::size_t next = 0;
    for (const CameraFault& fault : cameraFaults) {
        const std::string what =
            std::string(fault.ioctl) + " failing with " + std::to_string(fault.error);
        SCOPED_TRACE(what);
        const std::size_t errorsBefore = application.err().size();
        board.fail(fault.ioctl, fault.nth, fault.error);
        board.plug("camera");
        next = expectResult(application, fault, next);
        expectFaultLine(application, fault, errorsBefore);
        board.unplug("camera");
        next = application.expectLine(failedToNone, Milliseconds(10000), next);
        board.clearFaults();
        board.plug("camera");
        EXPECT_EQ(board.camera().node, "/dev/video0") << "a descriptor of the failed try is open";
        next = application.expectPlaying(next);
        EXPECT_TRUE(showsMore(board, 2));
        board.unplug("camera");
        next = application.expectLine(failedToNone, Milliseconds(10000), next);
        ASSERT_FALSE(HasFailure()) << what;
    }
}

TEST(CameraFaults, BufferThatCannotBeGivenBackIsOnlySaid) {
    Board board(benchScenario("small"));
    board.fail("VIDIOC_QBUF", 40, EIO);  // 3 at the start, then one a frame
    Application application(board);
    const std::size_t next = application.expectPlaying();
    EXPECT_TRUE(application.err().waitForExactly("VIDIOC_QBUF", Milliseconds(10000)).has_value());
    EXPECT_TRUE(showsMore(board, 30));
    EXPECT_FALSE(application.out().waitForMatch("^statue: ", Milliseconds(0), next).has_value());
}

}  // namespace
