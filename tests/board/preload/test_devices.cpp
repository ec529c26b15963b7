// Devices seen through the client library: the cases of the client programs, each on a fresh board.
#include "tests/board/preload/fakeboard.h"
#include "tests/board/preload/run.h"

#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <thread>

namespace {

class Preload : public ::testing::TestWithParam<const char*> {};

TEST_P(Preload, Case) {
    fake::Board board;
    const Result result = runClient(board.folder(), {CLIENT_PROGRAM, GetParam()});
    EXPECT_EQ(result.code, 0) << result.err;
    EXPECT_GT(board.requests(), 0u);
}

INSTANTIATE_TEST_SUITE_P(Devices, Preload,
                         ::testing::Values("openAndCall", "openFlags", "faults", "nested",
                                           "nestedCounts", "values", "presence", "presenceIsFree"),
                         [](const auto& info) { return std::string(info.param); });
INSTANTIATE_TEST_SUITE_P(Descriptors, Preload,
                         ::testing::Values("copies", "closeAll", "manyOpens", "memory", "forks",
                                           "boardVanishes", "signalsDuringCalls"),
                         [](const auto& info) { return std::string(info.param); });
INSTANTIATE_TEST_SUITE_P(Waits, Preload,
                         ::testing::Values("dequeueWaits", "dequeueNonBlocking",
                                           "dequeueInterrupted", "stopEndsDequeue", "pollBuffers",
                                           "selectBuffers", "events", "reads"),
                         [](const auto& info) { return std::string(info.param); });
INSTANTIATE_TEST_SUITE_P(Parks, Preload,
                         ::testing::Values("timeOutRunsOut", "liftGoesOn", "ioctlHeld",
                                           "conditionHeld"),
                         [](const auto& info) { return std::string(info.param); });
INSTANTIATE_TEST_SUITE_P(Time, Preload, ::testing::Values("step"),
                         [](const auto& info) { return std::string(info.param); });

class FastBoard : public ::testing::TestWithParam<const char*> {};

TEST_P(FastBoard, Case) {
    fake::Board board(4);
    const Result result = runClient(board.folder(), {CLIENT_PROGRAM, GetParam()});
    EXPECT_EQ(result.code, 0) << result.err;
}

INSTANTIATE_TEST_SUITE_P(Time, FastBoard, ::testing::Values("sleeps", "waits", "conditions"),
                         [](const auto& info) { return std::string(info.param); });

// On a /dev of its own that has every one of the nodes.
TEST(PreloadHost, HostDevicesAreHidden) {
    if (runClient("", {"unshare", "-rm", "true"}).code != 0)
        GTEST_SKIP() << "this machine allows no mount namespaces";
    fake::Board board;
    const std::string script =
        "mount -t tmpfs none /dev && cd /dev && mkdir dri snd input && "
        "touch null video1 dri/renderD128 snd/timer input/mice media0 v4l-subdev0 && "
        "LD_PRELOAD=" CLIENT_LIBRARY " exec " CLIENT_PROGRAM " hostHidden";
    const Result result = runClient(
        board.folder(), {"env", "-u", "LD_PRELOAD", "unshare", "-rm", "sh", "-c", script});
    EXPECT_EQ(result.code, 0) << result.err;
    EXPECT_EQ(board.requests(), 0u);  // absence is known without asking
}

TEST(PreloadHost, WithoutBoardNothingChanges) {
    EXPECT_EQ(runClient("", {CLIENT_PROGRAM, "hostSeen"}).code, 0);
    EXPECT_EQ(runClient("/nowhere/at/all", {CLIENT_PROGRAM, "hostSeen"}).code, 0);
}

TEST(PreloadHost, LibraryIsQuietAndNeedsOnlyLibc) {
    const Result result = runClient("", {"readelf", "-d", CLIENT_LIBRARY});
    ASSERT_EQ(result.code, 0);
    EXPECT_NE(result.out.find("[libc.so"), std::string::npos);
    EXPECT_EQ(result.out.find("libstdc++"), std::string::npos);
    EXPECT_EQ(result.out.find("libgcc"), std::string::npos);
    EXPECT_EQ(result.err, "");
}

TEST(PreloadDeath, BoardSeesTheEndThoughAShellLivesOn) {
    fake::Board board;
    const Result result = runClient(board.folder(), {CLIENT_PROGRAM, "dieWithShell"});
    ASSERT_EQ(result.code, 128 + SIGKILL);
    const pid_t shell = std::stoi(result.out);
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (board.connections() != 0 && std::chrono::steady_clock::now() < end)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    EXPECT_EQ(board.connections(), 0u);
    ::kill(shell, SIGKILL);
}

}  // namespace
