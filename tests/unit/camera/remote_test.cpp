// The remote control: which receiver is used, what its keys do, what happens when it goes.
#include "control/camera/obsbot.h"
#include "tests/unit/camera/fakerig.h"
#include "tests/unit/task/printed.h"
#include "tests/unit/task/waiting.h"

#include <fcntl.h>

#include <ctime>

namespace {

using Told = std::vector<std::string>;

const std::string sleepBytes = "xu 2.2=AA 00 0E 12 33 00 F4 E0 00 E1 13 C2 01 03 ";
const std::string wakeBytes = "xu 2.2=AA 00 0E 12 00 33 34 D1 00 E1 13 C2 01 01 ";

std::string filledUp(std::string command) {
    while (command.size() < 7 + 60 * 3) {
        command += "00 ";
    }
    return command;
}

// Selector 3 of the fake camera: the state and 59 bytes that must come back as they were.
std::string trackCommand(const char* first) {
    std::string command = std::string("xu 2.3=") + first + ' ';
    for (int i = 1; i < 60; ++i) {
        char text[4];
        std::snprintf(text, sizeof text, "%02X ", i);
        command += text;
    }
    return command;
}

class Remote : public testing::Test {
  protected:
    void SetUp() override {
        ObsBot::dormantStatus = 0;
        testing::internal::CaptureStdout();
    }
    void TearDown() override {
        if (bot != nullptr) {
            end();
        }
        EXPECT_EQ(rig.openDescriptors(), 0U);
        ObsBot::dormantStatus = 0;
    }
    void start() { bot = std::make_unique<ObsBot>(cameraNode); }
    // With the receiver found and open.
    void startWithReceiver() {
        rig.plugReceiver(3);
        start();
        ASSERT_TRUE(rig.waitOpened(1));
    }
    // What was printed since the control table was.
    std::string end() {
        bot.reset();
        const std::string out = testing::internal::GetCapturedStdout();
        const auto begin = out.rfind("zoom_value:");
        return begin == std::string::npos ? out : out.substr(out.find('\n', begin) + 1);
    }
    void press(int key) { rig.press(3, key); }
    void release(int key) { rig.release(3, key); }
    void expectTold(const Told& told) {
        ASSERT_TRUE(rig.settle());
        EXPECT_EQ(rig.told(), told);
    }
    // The key that ends the remote's handling was dealt with.
    bool leftTheRemote() {
        return comesTrue([this] { return rig.openDescriptors() == 0; }, deadline);
    }

    FakeRig rig;
    std::unique_ptr<ObsBot> bot;
};

TEST_F(Remote, APressStartsAndTheReleaseStops) {
    startWithReceiver();
    press(KEY_W);
    expectTold({"tilt_speed=10"});
    release(KEY_W);
    expectTold({"tilt_speed=10", "tilt_speed=0"});
    EXPECT_EQ(end().find("/dev/input/event3: open, fd = "), 0U);
}

TEST_F(Remote, EachMotionHasItsControlAndDirection) {
    startWithReceiver();
    Told told;
    const std::pair<int, Told> motions[] = {
        {KEY_W, {"tilt_speed=10", "tilt_speed=0"}},
        {KEY_S, {"tilt_speed=-10", "tilt_speed=0"}},
        {KEY_A, {"pan_speed=-10", "pan_speed=0"}},
        {KEY_D, {"pan_speed=10", "pan_speed=0"}},
        {KEY_I, {"zoom_continuous=10", "zoom_continuous=0"}},
        {KEY_O, {"zoom_continuous=-10", "zoom_continuous=0"}},
    };
    for (const auto& [key, sent] : motions) {
        press(key);
        release(key);
        told.insert(told.end(), sent.begin(), sent.end());
    }
    expectTold(told);
}

TEST_F(Remote, OverlappingKeysAreNotToldApart) {
    startWithReceiver();
    press(KEY_D);
    press(KEY_W);
    release(KEY_D);
    release(KEY_W);
    expectTold({"pan_speed=10", "tilt_speed=10", "pan_speed=10", "tilt_speed=10"});
}

TEST_F(Remote, AHeldKeyRepeatsNothing) {
    startWithReceiver();
    press(KEY_A);
    for (int i = 0; i < 20; ++i) {
        rig.repeat(3, KEY_A);
    }
    expectTold({"pan_speed=-10"});
    release(KEY_A);
    expectTold({"pan_speed=-10", "pan_speed=0"});
}

TEST_F(Remote, AKeyWithoutAScanCodeIsIgnored) {
    startWithReceiver();
    rig.send(3, EV_KEY, KEY_W, 1);
    rig.send(3, EV_KEY, KEY_W, 0);
    expectTold({});
    // One scan code is good for one key; other events in between do not use it up.
    rig.send(3, EV_MSC, MSC_SCAN, 1);
    rig.send(3, EV_SYN, SYN_REPORT, 0);
    rig.send(3, EV_REL, REL_X, 1);
    rig.send(3, EV_KEY, KEY_W, 1);
    rig.send(3, EV_KEY, KEY_S, 1);
    expectTold({"tilt_speed=10"});
    rig.send(3, EV_MSC, MSC_RAW, 1);  // no scan code
    rig.send(3, EV_KEY, KEY_W, 0);
    expectTold({"tilt_speed=10"});
    rig.send(3, EV_MSC, MSC_SCAN, 1);
    rig.send(3, EV_KEY, KEY_X, 1);  // used up by a key that does nothing
    rig.send(3, EV_KEY, KEY_W, 0);
    expectTold({"tilt_speed=10"});
}

TEST_F(Remote, AllOtherKeysDoNothing) {
    startWithReceiver();
    for (int key = 0; key < KEY_CNT; ++key) {
        const int used[] = {KEY_W, KEY_S, KEY_A, KEY_D, KEY_I, KEY_O, KEY_R, KEY_T, KEY_L};
        if (std::find(std::begin(used), std::end(used), key) == std::end(used)) {
            press(key);
            release(key);
        }
    }
    expectTold({});
}

TEST_F(Remote, ResetRecentresOnce) {
    startWithReceiver();
    press(KEY_R);
    const Told centred = {"pan_absolute=0", "tilt_absolute=3600", "zoom_absolute=0"};
    expectTold(centred);
    release(KEY_R);
    expectTold(centred);
    press(KEY_R);
    ASSERT_TRUE(rig.settle());
    EXPECT_EQ(rig.told().size(), 6U);
    end();
}

// Whatever became of the table: the motions do not need it.
TEST_F(Remote, MovesACameraWithoutATable) {
    rig.controls.clear();
    rig.plugReceiver(0);
    start();
    ASSERT_TRUE(rig.waitOpened(1));
    rig.press(0, KEY_I);
    expectTold({"zoom_continuous=10"});
}

TEST_F(Remote, TrackingIsToggled) {
    startWithReceiver();
    press(KEY_T);
    release(KEY_T);
    expectTold({trackCommand("01")});
    press(KEY_T);
    release(KEY_T);
    expectTold({trackCommand("01"), trackCommand("00")});
    EXPECT_EQ(rig.capabilityQueries(), 2U);
    for (int unit = 0; unit < 255; ++unit) {
        EXPECT_EQ(rig.unitReads(unit, 4), unit <= 2 ? 2U : 0U) << unit;
    }
    const std::string out = end();
    const std::string who = "Driver Name:uvcvideo\nCard Name:" + std::string(32, 'x') +
                            "\nBus info:usb-1\nDriver Version:6.1.66\n";
    EXPECT_NE(out.find(who + who), std::string::npos) << out;
}

TEST_F(Remote, ATrackingStateOfTwoBecomesZero) {
    rig.tracking = 2;
    startWithReceiver();
    press(KEY_T);
    expectTold({trackCommand("00")});
}

TEST_F(Remote, TrackingWithoutAUnitFails) {
    rig.extensionUnit = -1;
    startWithReceiver();
    press(KEY_T);
    release(KEY_T);
    press(KEY_W);
    expectTold({"tilt_speed=10"});
    for (int unit = 0; unit < 255; ++unit) {
        EXPECT_EQ(rig.unitReads(unit, 4), 1U) << unit;
    }
    EXPECT_EQ(rig.unitReads(255, 4), 0U);
    EXPECT_NE(end().find("setControl 3 failed\n"), std::string::npos);
}

TEST_F(Remote, TheLastUnitIsFound) {
    rig.extensionUnit = 254;
    startWithReceiver();
    press(KEY_T);
    ASSERT_TRUE(rig.settle());
    ASSERT_EQ(rig.told().size(), 1U);
    EXPECT_EQ(rig.told()[0].substr(0, 10), "xu 254.3=0");
}

TEST_F(Remote, TheSleepKeyEndsTheRemotesHandling) {
    startWithReceiver();
    press(KEY_L);
    ASSERT_TRUE(rig.waitTold(1));
    ASSERT_TRUE(leftTheRemote());
    EXPECT_EQ(ObsBot::dormantStatus, 1);
    EXPECT_EQ(rig.told(), Told{filledUp(sleepBytes)});
    const unsigned searched = rig.openings("/dev/input/event0");
    rig.press(3, KEY_W);
    EXPECT_EQ(end().find("disconnect"), std::string::npos);
    EXPECT_EQ(rig.told().size(), 1U);
    EXPECT_EQ(rig.openings("/dev/input/event0"), searched);
    EXPECT_EQ(ObsBot::dormantStatus, 1);  // outlives the task
}

TEST_F(Remote, TheSleepKeyWakesInTheNextTask) {
    ObsBot::dormantStatus = 1;
    startWithReceiver();
    press(KEY_L);
    ASSERT_TRUE(leftTheRemote());
    EXPECT_EQ(ObsBot::dormantStatus, 0);
    EXPECT_EQ(rig.told(), Told{filledUp(wakeBytes)});
    EXPECT_EQ(rig.controlReads(), 0U);
}

TEST_F(Remote, SleepIsNotedEvenIfTheCameraRefuses) {
    rig.refusesCommands = true;
    startWithReceiver();
    press(KEY_L);
    ASSERT_TRUE(leftTheRemote());
    EXPECT_EQ(ObsBot::dormantStatus, 1);
    EXPECT_NE(end().find("setControl 2 failed\nObsBotsvc normal stop!\n"), std::string::npos);
}

TEST_F(Remote, TheSleepKeyOnACameraWithoutAUnit) {
    rig.extensionUnit = -1;
    startWithReceiver();
    press(KEY_L);
    ASSERT_TRUE(leftTheRemote());
    EXPECT_EQ(ObsBot::dormantStatus, 1);
    EXPECT_TRUE(rig.told().empty());
    EXPECT_EQ(rig.unitReads(254, 4), 1U);
    EXPECT_NE(end().find("setControl 2 failed\nObsBotsvc normal stop!\n"), std::string::npos);
}

TEST_F(Remote, KeysOnACameraThatHasGone) {
    startWithReceiver();
    press(KEY_W);
    expectTold({"tilt_speed=10"});
    rig.cameraGone = true;
    release(KEY_W);
    press(KEY_R);
    press(KEY_T);
    ASSERT_TRUE(rig.settle());
    press(KEY_L);
    ASSERT_TRUE(leftTheRemote());
    EXPECT_EQ(rig.told(), Told{"tilt_speed=10"});
    EXPECT_EQ(ObsBot::dormantStatus, 1);
    // Each unit is asked for, by each of the two keys, and one command follows each.
    std::string expected;
    for (int i = 0; i < 255 + 2 + 255 + 1; ++i) {
        expected += "open error\n";
    }
    const std::string out = end();
    EXPECT_NE(out.find("\n" + expected + "ObsBotsvc normal stop!\n"), std::string::npos) << out;
}

TEST_F(Remote, TheReceiversLightsAreSwitchedOff) {
    startWithReceiver();
    press(KEY_W);
    expectTold({"tilt_speed=10"});
    const std::vector<input_event> written = rig.written(3);
    ASSERT_EQ(written.size(), 15U);
    for (std::size_t i = 0; i < written.size(); ++i) {
        EXPECT_EQ(written[i].type, EV_LED);
        EXPECT_EQ(written[i].code, i);
        EXPECT_EQ(written[i].value, 0);
        EXPECT_EQ(written[i].input_event_usec, 0);
        EXPECT_LE(time(nullptr) - written[i].input_event_sec, 60);
        EXPECT_GE(time(nullptr) - written[i].input_event_sec, 0);
    }
    EXPECT_EQ(rig.openFlags("/dev/input/event3") & (O_ACCMODE | O_NONBLOCK | O_CLOEXEC),
              O_RDWR | O_NONBLOCK | O_CLOEXEC);
}

TEST_F(Remote, TheLowestNumberWins) {
    rig.plugReceiver(7);
    rig.plugReceiver(4);
    rig.plugReceiver(2, "NYFZ USB DONGLE Keyboard");
    rig.plugReceiver(1, "NYFZ USB DONGL");
    rig.plugReceiver(0, "");
    start();
    ASSERT_TRUE(rig.waitOpened(1));
    rig.press(7, KEY_W);
    rig.press(2, KEY_W);
    rig.press(4, KEY_S);
    expectTold({"tilt_speed=-10"});
    EXPECT_EQ(end().find("/dev/input/event4: open, fd = "), 0U);
}

TEST_F(Remote, TheTenthNodeIsTheLast) {
    rig.plugReceiver(10);
    start();
    ASSERT_TRUE(rig.waitSearched(2));
    rig.plugReceiver(9);
    EXPECT_TRUE(rig.waitOpened(1));
    EXPECT_EQ(rig.openings("/dev/input/event10"), 0U);
    EXPECT_EQ(end().find("/dev/input/event9: open, fd = "), 0U);
}

TEST_F(Remote, ANameThatFillsTheFieldEndsThere) {
    rig.plugReceiver(0, std::string(300, 'n'));
    rig.plugReceiver(1);
    start();
    EXPECT_TRUE(rig.waitOpened(1));
}

// Unplugged with a key held: the motion goes on, and the first key after the replug stops it.
TEST_F(Remote, TheReceiverIsOutWithAKeyHeld) {
    startWithReceiver();
    press(KEY_D);
    expectTold({"pan_speed=10"});
    rig.unplugReceiver(3);
    ASSERT_TRUE(leftTheRemote());
    rig.plugReceiver(3);
    ASSERT_TRUE(rig.waitOpened(2));
    press(KEY_D);
    expectTold({"pan_speed=10", "pan_speed=0"});
    const std::string out = end();
    const auto gone = out.find("/dev/input/event3 disconnect!!!\n");
    ASSERT_NE(gone, std::string::npos) << out;
    EXPECT_NE(out.find("/dev/input/event3: open, fd = ", gone), std::string::npos) << out;
}

// The node can be missing while the descriptor says nothing.
TEST_F(Remote, AReceiverWhoseNodeIsMissingHasGone) {
    startWithReceiver();
    rig.unplugReceiver(3, true);
    ASSERT_TRUE(leftTheRemote());
    EXPECT_NE(end().find("/dev/input/event3 disconnect!!!\n"), std::string::npos);
}

// The path is there again before the next look at it.
TEST_F(Remote, AReceiverReplacedByAnotherDeviceHasGone) {
    startWithReceiver();
    rig.plugReceiver(5);
    rig.unplugReceiver(3);
    rig.plugReceiver(3, "Keyboard");
    ASSERT_TRUE(rig.waitOpened(2));
    rig.press(3, KEY_W);
    rig.press(5, KEY_S);
    expectTold({"tilt_speed=-10"});
    const std::string out = end();
    EXPECT_NE(out.find("/dev/input/event3 disconnect!!!\n/dev/input/event5: open, fd = "),
              std::string::npos)
        << out;
}

// A scan code whose key was lost with the receiver belongs to no key of the next one.
TEST_F(Remote, AReconnectionForgetsThePendingScanCode) {
    startWithReceiver();
    rig.send(3, EV_MSC, MSC_SCAN, 1);
    ASSERT_TRUE(rig.settle());
    rig.unplugReceiver(3);
    rig.plugReceiver(3);
    ASSERT_TRUE(rig.waitOpened(2));
    rig.repeat(3, KEY_W);
    expectTold({});
}

// A new task knows nothing of the motion: the release starts it afresh, the next press stops it.
TEST_F(Remote, AKeyIsHeldOverARebuild) {
    startWithReceiver();
    press(KEY_W);
    expectTold({"tilt_speed=10"});
    bot.reset();
    start();
    ASSERT_TRUE(rig.waitOpened(2));
    rig.repeat(3, KEY_W);
    expectTold({"tilt_speed=10"});
    release(KEY_W);
    press(KEY_W);
    expectTold({"tilt_speed=10", "tilt_speed=10", "tilt_speed=0"});
}

// Open to read but not to write: searched again, and neither given up nor tried without a pause.
TEST_F(Remote, AReceiverThatRefusesIsTriedAgain) {
    rig.receiversRefuse = true;
    rig.patient = true;
    rig.plugReceiver(0);
    start();
    ASSERT_TRUE(comesTrue([this] { return rig.openings("/dev/input/event0") >= 8; }, deadline));
    const unsigned before = rig.openings("/dev/input/event0");
    std::this_thread::sleep_for(std::chrono::milliseconds(300));  // the span that is looked at
    EXPECT_LT(rig.openings("/dev/input/event0") - before, 40U);
    rig.receiversRefuse = false;
    EXPECT_TRUE(rig.waitOpened(1));
}

}  // namespace
