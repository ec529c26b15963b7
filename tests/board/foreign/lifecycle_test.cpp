// Clients that die, and clients that meet a busy device.

#include <gtest/gtest.h>

#include <csignal>

#include "tests/support/client.h"

namespace {

using support::Board;
using support::ClientResult;
using support::Milliseconds;

const std::vector<std::string> streamForEver = {"v4l2-ctl",
                                                "-d",
                                                "/dev/video0",
                                                "--set-fmt-video",
                                                "width=640,height=480,pixelformat=YUYV",
                                                "--stream-mmap=3"};

TEST(Lifecycle, KilledStreamLeavesTheCameraAsAClosedDescriptorWould) {
    Board board("default");
    const auto stream = startClient(board, streamForEver);
    ASSERT_TRUE(board.waitForCamera(
        [](const auto& figures) { return figures.streaming && figures.delivered > 5; },
        Milliseconds(10000)))
        << stream->err().text();
    stream->signal(SIGKILL);
    ASSERT_TRUE(stream->waitForEnd(Milliseconds(5000)).has_value());
    EXPECT_TRUE(board.waitForCamera(
        [](const auto& figures) { return !figures.streaming && figures.openHandles == 0; },
        Milliseconds(5000)));
    const ClientResult again =
        runClient(board, {"v4l2-ctl", "-d", "/dev/video0", "--stream-mmap=3", "--stream-count=5"});
    EXPECT_EQ(again.exitCode, 0) << again.err;
}

TEST(Lifecycle, KilledDisplayClientLeavesTheCardFree) {
    Board board("default");
    const std::vector<std::string> flips = {"modetest", "-M", "rockchip",
                                            "-v",       "-s", "33@31:1280x720-60@XR24"};
    const auto first = startClient(board, flips, true);
    ASSERT_TRUE(board.waitForDisplay(
        [](const auto& figures) { return figures.flips > 5 && figures.mode == "1280x720@60"; },
        Milliseconds(10000)))
        << first->err().text();
    first->signal(SIGKILL);
    ASSERT_TRUE(first->waitForEnd(Milliseconds(5000)).has_value());
    // The console takes the card back: the display's first mode.
    EXPECT_TRUE(board.waitForDisplay(
        [](const auto& figures) { return figures.mode == "1920x1080@60"; }, Milliseconds(5000)));
    const auto second = startClient(board, flips, true);
    const std::uint64_t before = board.display().flips;
    EXPECT_TRUE(board.waitForDisplay(
        [before](const auto& figures) { return figures.flips > before + 5; }, Milliseconds(10000)))
        << second->err().text();
    second->closeInput();
    EXPECT_EQ(second->waitForEnd(Milliseconds(10000)).value_or(-1), 0);
}

TEST(Lifecycle, SecondStreamIsToldThatTheCameraIsBusy) {
    Board board("default");
    const auto stream = startClient(board, streamForEver);
    ASSERT_TRUE(board.waitForCamera([](const auto& figures) { return figures.delivered > 5; },
                                    Milliseconds(10000)));
    const ClientResult second =
        runClient(board, {"v4l2-ctl", "-d", "/dev/video0", "--stream-mmap=3", "--stream-count=1"});
    EXPECT_NE((second.out + second.err).find("Device or resource busy"), std::string::npos)
        << second.out << second.err;
    const ClientResult format =
        runClient(board, {"v4l2-ctl", "-d", "/dev/video0", "--set-fmt-video",
                          "width=1280,height=720,pixelformat=YUYV"});
    EXPECT_NE((format.out + format.err).find("Device or resource busy"), std::string::npos)
        << format.out << format.err;
    // Asking and setting controls is allowed beside a stream.
    const ClientResult control =
        runClient(board, {"v4l2-ctl", "-d", "/dev/video0", "-c", "brightness=3"});
    EXPECT_EQ(control.exitCode, 0) << control.err;
    EXPECT_TRUE(stream->running());
}

TEST(Lifecycle, SecondDisplayClientIsRefusedTheMode) {
    Board board("default");
    const auto first = startClient(
        board, {"modetest", "-M", "rockchip", "-v", "-s", "33@31:1280x720-60@XR24"}, true);
    ASSERT_TRUE(board.waitForDisplay([](const auto& figures) { return figures.flips > 5; },
                                     Milliseconds(10000)));
    const ClientResult second =
        runClient(board, {"modetest", "-M", "rockchip", "-s", "33@31:1920x1080-60@XR24"});
    EXPECT_NE((second.out + second.err).find("Permission denied"), std::string::npos)
        << second.out << second.err;
    EXPECT_EQ(board.display().mode, "1280x720@60");
    EXPECT_TRUE(first->running());
}

}  // namespace
