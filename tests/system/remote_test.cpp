// The remote control, from the key to the camera.

#include <gtest/gtest.h>

#include "tests/support/application.h"
#include "tests/support/client.h"
#include "tests/support/scenarios.h"

namespace {

using support::Application;
using support::benchScenario;
using support::Board;
using support::Milliseconds;

constexpr char opened[] = "^/dev/input/event0: open, fd = [0-9]+$";
constexpr char disconnected[] = "/dev/input/event0 disconnect!!!";
constexpr char deleted[] = "delete capture media succeed";

// The control as another program on the same camera reads it.
std::string valueOf(Board& board, const std::string& control) {
    return support::runClient(board, {"v4l2-ctl", "-d", "/dev/video0", "-C", control}).out;
}

bool becomes(Board& board, const std::string& control, int value) {
    const std::string wanted = control + ": " + std::to_string(value) + "\n";
    const auto deadline = support::Clock::now() + support::scaled(Milliseconds(10000));
    while (valueOf(board, control) != wanted) {
        if (support::Clock::now() > deadline) {
            return false;
        }
    }
    return true;
}

// Plays, and reads the remote.
class Remote : public testing::Test {
  protected:
    explicit Remote(const char* scenario = "small-remote", unsigned speed = 4)
        : board(benchScenario(scenario), speed) {}
    void SetUp() override {
        next = application.expectPlaying();
        expectOpened(0);
    }
    void expectOpened(std::size_t from) {
        ASSERT_TRUE(application.out().waitForMatch(opened, Milliseconds(10000), from));
    }

    Board board;
    Application application{board};
    std::size_t next = 0;
};

TEST_F(Remote, KeysMoveTheCamera) {
    struct {
        const char* key;
        const char* control;
        int speed;
    } const motions[] = {{"W", "tilt_speed", 10},      {"S", "tilt_speed", -10},
                         {"A", "pan_speed", -10},      {"D", "pan_speed", 10},
                         {"I", "zoom_continuous", 10}, {"O", "zoom_continuous", -10}};
    for (const auto& motion : motions) {
        board.press(motion.key);
        EXPECT_TRUE(becomes(board, motion.control, motion.speed)) << motion.key;
        board.release(motion.key);
        EXPECT_TRUE(becomes(board, motion.control, 0)) << motion.key;
    }
    board.press("R");
    EXPECT_TRUE(becomes(board, "zoom_absolute", 0));
    EXPECT_TRUE(becomes(board, "pan_absolute", 0));
    EXPECT_TRUE(becomes(board, "tilt_absolute", 0));
}

TEST_F(Remote, LightsAreSwitchedOff) {
    const auto writes = [this] { return board.input("remote").writes; };
    board.press("W");
    ASSERT_TRUE(becomes(board, "tilt_speed", 10));  // the lights come before the keys
    const auto written = writes();
    ASSERT_EQ(written.size(), 15U);
    for (unsigned code = 0; code < 15; ++code) {
        EXPECT_EQ(written[code].type, 17U);
        EXPECT_EQ(written[code].code, code);
        EXPECT_EQ(written[code].value, 0);
    }
}

TEST_F(Remote, AReceiverThatComesBackIsReadAgain) {
    for (int replug = 0; replug < 3; ++replug) {
        board.unplug("remote");
        next = application.expectLine(disconnected, Milliseconds(5000), next);
        board.plug("remote");
        ASSERT_NO_FATAL_FAILURE(expectOpened(next));
        board.press("D");
        EXPECT_TRUE(becomes(board, "pan_speed", 10));
        board.release("D");
        EXPECT_TRUE(becomes(board, "pan_speed", 0));
    }
}

// The motion goes on, as nobody tells the camera to stop; the next press of the key does.
TEST_F(Remote, AReceiverGoesWithAKeyHeld) {
    board.press("D");
    ASSERT_TRUE(becomes(board, "pan_speed", 10));
    board.unplug("remote");
    next = application.expectLine(disconnected, Milliseconds(5000), next);
    board.plug("remote");
    ASSERT_NO_FATAL_FAILURE(expectOpened(next));
    EXPECT_EQ(valueOf(board, "pan_speed"), "pan_speed: 10\n");
    board.press("D");
    EXPECT_TRUE(becomes(board, "pan_speed", 0));
}

TEST_F(Remote, ACameraGoesWhileItMoves) {
    board.hold("W", Milliseconds(100));
    board.press("W");
    ASSERT_TRUE(becomes(board, "tilt_speed", 10));
    const auto began = support::Clock::now();
    board.unplug("camera");
    next = application.expectLine(deleted, Milliseconds(2000), next);
    EXPECT_TRUE(application.waitForPipelineGone(Milliseconds(500)));
    EXPECT_LT(support::Clock::now() - began, support::scaled(Milliseconds(2000)));
    EXPECT_EQ(application.out().count("ObsBotsvc normal stop!"), 1U);
    board.plug("camera");
    ASSERT_NO_FATAL_FAILURE(expectOpened(next));
    application.expectPlaying(next);
}

// The key is the remote's last word to this pipeline, whatever the camera says; a display that goes
// makes another.
TEST_F(Remote, TheSleepKeyOnACameraThatCannotSleep) {
    board.press("L");
    next = application.expectLine("setControl 2 failed", Milliseconds(10000), next);
    board.release("L");
    board.press("W");
    const std::uint64_t before = board.camera().delivered;
    EXPECT_TRUE(board.waitForCamera(
        [&](const auto& figures) { return figures.delivered > before + 10; }, Milliseconds(10000)));
    EXPECT_EQ(valueOf(board, "tilt_speed"), "tilt_speed: 0\n");
    board.unplug("display");
    next = application.expectLine(deleted, Milliseconds(5000), next);
    board.plug("display");
    ASSERT_NO_FATAL_FAILURE(expectOpened(next));
    board.release("W");  // to a new task the release is the first it hears of the key
    EXPECT_TRUE(becomes(board, "tilt_speed", 10));
}

constexpr char sleepTold[] = "2/2:aa000e123300f4e000e113c20103";
constexpr char wakeTold[] = "2/2:aa000e12003334d100e113c20101";
constexpr char wokenUp[] = "statue: STATUE_POOL_OPENFAID ==> STATUE_POLL_NODEVICE(WAKE UP)";

class SleepingCamera : public Remote {
  protected:
    SleepingCamera() : Remote("small-ptz", 8) {}
    void press(const char* key) {
        board.press(key);
        board.release(key);
    }
    // Until the supervisor's own task reads the remote.
    void putToSleep() {
        press("L");
        next = application.expectLine("statue: STATUE_POOL_PLAYERR ==> STATUE_POOL_OPENFAID",
                                      Milliseconds(20000), next);
        ASSERT_NO_FATAL_FAILURE(expectOpened(next));
    }
    void wakeUp() {
        press("L");
        next = application.expectLine(wokenUp, Milliseconds(5000), next);
        ASSERT_NO_FATAL_FAILURE(expectOpened(next));
        next = application.expectPlaying(next);
    }
    bool showsMore() {
        const std::uint64_t before = board.display().shown;
        return board.waitForDisplay([&](const auto& figures) { return figures.shown > before + 3; },
                                    Milliseconds(10000));
    }
    bool tracks(bool wanted) {
        const auto deadline = support::Clock::now() + support::scaled(Milliseconds(10000));
        while (board.ptz().tracking != wanted) {
            if (support::Clock::now() > deadline) {
                return false;
            }
            std::this_thread::sleep_for(Milliseconds(5));
        }
        return true;
    }
    std::vector<std::string> told() {
        std::vector<std::string> texts;
        for (const support::Told& told : board.told()) {
            texts.push_back(told.text());
        }
        return texts;
    }
};

TEST_F(SleepingCamera, IsDrivenWhileItSleeps) {
    ASSERT_NO_FATAL_FAILURE(putToSleep());
    press("W");
    ASSERT_NO_FATAL_FAILURE(wakeUp());
    EXPECT_EQ(told(),
              (std::vector<std::string>{sleepTold, "0x009a0921=10", "0x009a0921=0", wakeTold}));
}

TEST_F(SleepingCamera, GoesAndComesBackAwake) {
    ASSERT_NO_FATAL_FAILURE(putToSleep());
    board.unplug("camera");
    next = application.expectLine("statue: STATUE_POOL_OPENFAID ==> STATUE_POLL_NODEVICE",
                                  Milliseconds(5000), next);
    board.plug("camera");
    ASSERT_NO_FATAL_FAILURE(expectOpened(next));
    next = application.expectPlaying(next);
    EXPECT_TRUE(showsMore());
    // To the new pipeline it is awake: the key puts it to sleep.
    press("L");
    next = application.expectLine("statue: STATUE_POOL_PLAYERR ==> STATUE_POOL_OPENFAID",
                                  Milliseconds(20000), next);
    EXPECT_TRUE(board.ptz().asleep);
}

TEST_F(SleepingCamera, TrackingIsToggled) {
    press("T");
    EXPECT_TRUE(tracks(true));
    press("T");
    EXPECT_TRUE(tracks(false));
    EXPECT_EQ(told(), (std::vector<std::string>{"2/3:01", "2/3:00"}));
}

}  // namespace
