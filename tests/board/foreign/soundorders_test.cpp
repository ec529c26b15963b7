// What clients of a sound card see when something happens to it on order.

#include <gtest/gtest.h>

#include <csignal>

#include "tests/board/foreign/soundscenario.h"

namespace {

using sound::client;
using sound::SoundScenario;
using sound::usualMicrophone;
using sound::usualOutput;
using support::Board;
using support::ClientResult;
using support::Milliseconds;

class EitherDirection : public testing::TestWithParam<bool> {
  protected:
    std::string direction() const { return GetParam() ? "capture" : "playback"; }
    std::string device() const { return GetParam() ? "microphone" : "output"; }
    std::string node() const { return GetParam() ? "hw:1,0" : "hw:0,0"; }
    std::unique_ptr<support::Process> startMoving(Board& board) {
        auto process = startClient(board, client(direction(), node()), true);
        EXPECT_TRUE(process->out().waitForMatch("^moves", Milliseconds(10000)))
            << process->out().text() << process->err().text();
        return process;
    }
    void expectEnd(support::Process& process, int status) {
        const auto ended = process.waitForEnd(Milliseconds(10000));
        EXPECT_EQ(ended.value_or(-1), status << 8) << process.out().text() << process.err().text();
    }
    SoundScenario scenario_{usualMicrophone, usualOutput};
    Board board_{scenario_.path()};
};

TEST_P(EitherDirection, UnplugEndsTheCall) {
    const auto process = startMoving(board_);
    board_.unplug(device());
    expectEnd(*process, 3);
    EXPECT_TRUE(process->out().waitForMatch("^ended: ENODEV", Milliseconds(1000)));
    EXPECT_EQ(runClient(board_, client(direction(), node())).exitCode, 3);
    board_.plug(device());
    startMoving(board_)->closeInput();
}

TEST_P(EitherDirection, UnplugWhileNothingMovesEndsTheWait) {
    const auto process = startMoving(board_);
    board_.stall(device(), true);
    board_.unplug(device());
    expectEnd(*process, 3);
    EXPECT_TRUE(process->out().waitForMatch("^ended: ENODEV", Milliseconds(1000)));
}

// Frames between the client and the card: none, the whole buffer, and back.
TEST_P(EitherDirection, QueuedFramesAreCounted) {
    // A card that stands still from the start takes whole writes only: nothing is ever between two.
    if (!GetParam())
        board_.stall(device(), true);
    const auto process = startMoving(board_);
    const auto queued = [&](auto... wanted) {
        return board_.waitForSound(
            device(), [&](const auto& now) { return (... || (now.queuedFrames == wanted)); },
            Milliseconds(10000));
    };
    const std::uint64_t whole = board_.sound(device()).bufferFrames;
    ASSERT_GT(whole, 0u);
    if (GetParam()) {
        // The reader stands still: the buffer fills until the stream breaks off.
        process->signal(SIGSTOP);
        EXPECT_TRUE(queued(whole));
        process->signal(SIGCONT);
        process->closeInput();
        expectEnd(*process, 0);
    } else {
        EXPECT_TRUE(queued(whole))
            << "the writer fills the buffer of a card that stands still, not "
            << board_.sound(device()).queuedFrames << " of " << whole << " frames, "
            << board_.sound(device()).state;
        process->signal(SIGKILL);
    }
    EXPECT_TRUE(queued(0u)) << "nobody has the stream open any more";
}

TEST_P(EitherDirection, OrderedXrunIsSeenAndTheStreamGoesOn) {
    const auto process = startMoving(board_);
    board_.xrun(device());
    EXPECT_TRUE(process->out().waitForMatch("^EPIPE", Milliseconds(10000)));
    EXPECT_TRUE(board_.waitForSound(
        device(), [](const auto& now) { return now.starts >= 2 && now.state == "RUNNING"; },
        Milliseconds(10000)));
    EXPECT_GE(board_.sound(device()).xruns, 1u);
    process->closeInput();
    expectEnd(*process, 0);
    EXPECT_FALSE(board_.sound(device()).open);
}

TEST_P(EitherDirection, BriefSuspendIsTheClientsToEnd) {
    const auto process = startMoving(board_);
    board_.suspend(device(), true);
    EXPECT_TRUE(process->out().waitForMatch("^ESTRPIPE", Milliseconds(10000)));
    // The output can go on where it was, the USB card must be prepared anew.
    EXPECT_TRUE(process->out().waitForMatch(GetParam() ? "^resume ENOSYS" : "^resume done",
                                            Milliseconds(10000)));
    EXPECT_TRUE(board_.waitForSound(
        device(), [](const auto& now) { return now.state == "RUNNING"; }, Milliseconds(10000)));
    process->closeInput();
    expectEnd(*process, 0);
}

TEST_P(EitherDirection, HeldSuspendEndsWithTheOrder) {
    const auto process = startMoving(board_);
    board_.suspend(device());
    EXPECT_TRUE(process->out().waitForMatch("^ESTRPIPE", Milliseconds(10000)));
    EXPECT_EQ(board_.sound(device()).state, "SUSPENDED");
    const std::uint64_t frames = board_.sound(device()).frames;
    board_.stall(device(), false);
    EXPECT_TRUE(board_.waitForSound(
        device(), [&](const auto& now) { return now.frames > frames; }, Milliseconds(10000)))
        << board_.sound(device()).state << "\n"
        << process->out().text();
}

TEST_P(EitherDirection, StalledCardMovesNothingAndGoesOn) {
    const auto process = startMoving(board_);
    board_.stall(device(), true);
    const std::uint64_t stood = board_.sound(device()).frames;
    const double cpu = process->figures().cpu_s;
    const auto passed = support::Clock::now() + Milliseconds(300);
    while (support::Clock::now() < passed) {
        EXPECT_EQ(board_.sound(device()).frames, stood);
        std::this_thread::sleep_for(Milliseconds(50));
    }
    EXPECT_LT(process->figures().cpu_s - cpu, 0.1);
    board_.stall(device(), false);
    EXPECT_TRUE(board_.waitForSound(
        device(), [&](const auto& now) { return now.frames > stood + 1024; }, Milliseconds(10000)));
    EXPECT_TRUE(process->running());
}

TEST_P(EitherDirection, GrantsAnotherRateAndPeriod) {
    board_.grant(device(), 44100, 512);
    const auto process = startMoving(board_);
    EXPECT_TRUE(process->out().waitForMatch("^rate 44100", Milliseconds(1000)));
    EXPECT_TRUE(process->out().waitForMatch("^period 512", Milliseconds(1000)));
    EXPECT_EQ(board_.sound(device()).periodFrames, 512u);
    process->closeInput();
    expectEnd(*process, 0);
    board_.grant(device(), 0, 0);
    startMoving(board_)->closeInput();
}

TEST_P(EitherDirection, OpeningsFailOnOrder) {
    board_.failOpenings(device(), EIO, 1);
    const ClientResult refused = runClient(board_, client(direction(), node()));
    EXPECT_EQ(refused.out, "open: EIO\n");
    startMoving(board_)->closeInput();
}

TEST_P(EitherDirection, CallsFailOnOrder) {
    board_.fail("SNDRV_PCM_IOCTL_HW_PARAMS", 1, EINVAL);
    EXPECT_EQ(runClient(board_, client(direction(), node())).out, "parameters: EINVAL\n");
    const auto process = startMoving(board_);
    board_.fail(GetParam() ? "SNDRV_PCM_IOCTL_READI_FRAMES" : "SNDRV_PCM_IOCTL_WRITEI_FRAMES", 1,
                EIO);
    expectEnd(*process, 3);
    EXPECT_TRUE(process->out().waitForMatch("^ended: EIO", Milliseconds(1000)));
}

TEST_P(EitherDirection, SecondClientIsRefusedAndADeadOneForgotten) {
    const auto process = startMoving(board_);
    EXPECT_EQ(runClient(board_, client(direction(), node())).out, "open: EBUSY\n");
    process->signal(SIGKILL);
    ASSERT_TRUE(process->waitForEnd(Milliseconds(5000)).has_value());
    ASSERT_TRUE(board_.waitForSound(
        device(), [](const auto& now) { return !now.open; }, Milliseconds(5000)));
    startMoving(board_)->closeInput();
}

// A card that moves nothing for ten seconds of board time has failed, as the kernel sees it.
TEST_P(EitherDirection, BlockingCallsGiveUpOnADeadCard) {
    Board fast(scenario_.path(), 10);
    const auto process = startMoving(fast);
    fast.stall(device(), true);
    expectEnd(*process, 3);
    EXPECT_TRUE(process->out().waitForMatch("^ended: EIO", Milliseconds(1000)));
}

INSTANTIATE_TEST_SUITE_P(Directions, EitherDirection, testing::Bool(),
                         [](const auto& info) { return info.param ? "Capture" : "Playback"; });

TEST(SoundOrders, RefuseWhatCannotBe) {
    const SoundScenario scenario(usualMicrophone, usualOutput);
    Board board(scenario.path());
    const auto refused = [&](const std::string& order, const std::string& words) {
        const auto answer = board.tryOrder(order);
        ASSERT_FALSE(answer["ok"].GetBool()) << order;
        EXPECT_NE(std::string(answer["error"].GetString()).find(words), std::string::npos)
            << answer["error"].GetString();
    };
    refused(R"({"order": "xrun", "device": "camera"})", "must be microphone or output");
    refused(R"({"order": "plug", "device": "output"})", "plugged in already");
    refused(R"({"order": "clock-error", "device": "output", "ppm": 100001})", "$.ppm");
    refused(R"({"order": "suspend", "device": "output", "action": "long"})", "hold or brief");
    refused(R"({"order": "open-fails", "device": "output", "errno": "ENOTHING"})", "no errno");
    refused(R"({"order": "record-sound", "action": "start", "path": "here.wav"})", "absolute");
    refused(R"({"order": "record-sound", "action": "stop"})", "no recording");
    refused(R"({"order": "hear", "name": "tone:loud"})", "cannot be opened");
    board.unplug("microphone");
    refused(R"({"order": "unplug", "device": "microphone"})", "not plugged in");
    EXPECT_FALSE(std::filesystem::exists(board.rootPath("/proc/asound/card1")));
    refused(R"({"order": "plug", "device": "microphone", "description": "none"})",
            "no sound card \"none\"");
    board.order(
        R"({"order": "plug", "device": "microphone", "description": "hd-pro-webcam-c920"})");
    EXPECT_EQ(support::readFile(board.rootPath("/proc/asound/card1/stream0")),
              support::readFile(
                  support::sourcePath("board/scenarios/sound/stream0/hd-pro-webcam-c920.txt")));
}

TEST(SoundOrders, ReplugWhileTheOldCardIsHeldTakesTheNextNumber) {
    const SoundScenario scenario(usualMicrophone, usualOutput);
    Board board(scenario.path());
    const auto holder = startClient(board, client("capture", "hw:1,0"), true);
    ASSERT_TRUE(holder->out().waitForMatch("^moves", Milliseconds(10000)));
    holder->signal(SIGSTOP);  // it cannot let go
    board.unplug("microphone");
    const auto answer = board.order(R"({"order": "plug", "device": "microphone"})");
    EXPECT_STREQ(answer["card"].GetString(), "hw:2");
    EXPECT_TRUE(std::filesystem::exists(board.rootPath("/proc/asound/card2/stream0")));
    const auto process = startClient(board, client("capture", "hw:2,0"), true);
    EXPECT_TRUE(process->out().waitForMatch("^moves", Milliseconds(10000)));
    holder->signal(SIGCONT);
}

}  // namespace
