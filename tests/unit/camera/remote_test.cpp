// The remote control: what its keys do.
#include "tests/unit/camera/remotebench.h"

#include <algorithm>
#include <cstdio>

namespace {

using Remote = RemoteBench;

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

}  // namespace
