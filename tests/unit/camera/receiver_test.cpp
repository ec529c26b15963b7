// The remote control's receiver: which one is used, what happens when it goes.
#include "tests/unit/camera/remotebench.h"

#include <fcntl.h>

#include <ctime>
#include <thread>

namespace {

using Receiver = RemoteBench;

TEST_F(Receiver, TheReceiversLightsAreSwitchedOff) {
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

TEST_F(Receiver, TheLowestNumberWins) {
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

TEST_F(Receiver, TheTenthNodeIsTheLast) {
    rig.plugReceiver(10);
    start();
    ASSERT_TRUE(rig.waitSearched(2));
    rig.plugReceiver(9);
    EXPECT_TRUE(rig.waitOpened(1));
    EXPECT_EQ(rig.openings("/dev/input/event10"), 0U);
    EXPECT_EQ(end().find("/dev/input/event9: open, fd = "), 0U);
}

TEST_F(Receiver, ANameThatFillsTheFieldEndsThere) {
    rig.plugReceiver(0, std::string(300, 'n'));
    rig.plugReceiver(1);
    start();
    EXPECT_TRUE(rig.waitOpened(1));
}

// Unplugged with a key held: the motion goes on, and the first key after the replug stops it.
TEST_F(Receiver, TheReceiverIsOutWithAKeyHeld) {
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
TEST_F(Receiver, AReceiverWhoseNodeIsMissingHasGone) {
    startWithReceiver();
    rig.unplugReceiver(3, true);
    ASSERT_TRUE(leftTheRemote());
    EXPECT_NE(end().find("/dev/input/event3 disconnect!!!\n"), std::string::npos);
}

// The path is there again before the next look at it.
TEST_F(Receiver, AReceiverReplacedByAnotherDeviceHasGone) {
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
TEST_F(Receiver, AReconnectionForgetsThePendingScanCode) {
    startWithReceiver();
    rig.send(3, EV_MSC, MSC_SCAN, 1);
    ASSERT_TRUE(rig.settle());
    rig.unplugReceiver(3);
    rig.plugReceiver(3);
    ASSERT_TRUE(rig.waitOpened(2));
    rig.repeat(3, KEY_W);
    expectTold({});
}

// Open to read but not to write: searched again, and neither given up nor tried without a pause.
TEST_F(Receiver, AReceiverThatRefusesIsTriedAgain) {
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
