// What readers of an input device's node get.

#include "tests/board/remote/inputbench.h"

#include <poll.h>

#include <cerrno>
#include <future>

namespace board::test {

namespace {

using Remote = InputBench;

class FastRemote : public InputBench {
  protected:
    FastRemote() : InputBench(10) {}
};

std::int64_t time_us(const input_event& event) {
    return std::int64_t(event.input_event_sec) * 1000000 + std::int64_t(event.input_event_usec);
}

TEST_F(Remote, aScanEventStandsBeforeEachPressAndRelease) {
    add(smallRemote());
    Reader reader = open(plug("remote"));
    type("W");
    press("D");
    EXPECT_EQ(textOf(reader.read(9)),
              "4/4=458778 1/17=1 0/0=0 4/4=458778 1/17=0 0/0=0 4/4=458759 1/32=1 0/0=0");
    EXPECT_EQ(state("remote").keysDown, std::vector<std::string>{"KEY_D"});
}

TEST_F(Remote, aDeviceWithoutScanCodesSendsTheKeysAlone) {
    InputDescription remote = smallRemote();
    remote.scanCodes = false;
    add(remote);
    Reader reader = open(plug("remote"));
    type("W");
    EXPECT_EQ(textOf(reader.read(4)), "1/17=1 0/0=0 1/17=0 0/0=0");
}

TEST_F(FastRemote, aKeyThatStaysDownRepeatsWithoutScanEvents) {
    add(smallRemote());
    Reader reader = open(plug("remote"));
    press("W");
    const std::vector<input_event> events = reader.read(3 + 3 * 2);
    EXPECT_EQ(textOf(events), "4/4=458778 1/17=1 0/0=0 1/17=2 0/0=1 1/17=2 0/0=1 1/17=2 0/0=1");
    // Board time: at least the delay, then at least two periods. A busy machine makes it longer.
    EXPECT_GE(time_us(events[3]) - time_us(events[1]), 249000);
    EXPECT_GE(time_us(events[7]) - time_us(events[1]), (250 + 2 * 33) * 1000 - 1000);
    release("W");
    reader.readAll();
    press("A");
    EXPECT_EQ(textOf(reader.read(4)), "4/4=458756 1/30=1 0/0=0 1/30=2");
}

TEST_F(FastRemote, theLastKeyRepeatsAndAnyReleaseEndsIt) {
    add(smallRemote());
    Reader reader = open(plug("remote"));
    board.onLoop([&] {
        inputs->press("", "W");
        inputs->press("", "A");
    });
    EXPECT_EQ(textOf(reader.read(8)),
              "4/4=458778 1/17=1 0/0=0 4/4=458756 1/30=1 0/0=0 1/30=2 0/0=1");
    release("W");
    const std::string rest = textOf(reader.readAll());
    EXPECT_EQ(rest.substr(rest.size() - 23), "4/4=458778 1/17=0 0/0=0");
    EXPECT_FALSE(reader.calls().wait(50));  // 15 periods
}

TEST_F(Remote, ordersThatMakeNoSenseAreRefused) {
    EXPECT_EQ(errorOf([](Inputs& i) { i.press("", "W"); }), "the scenario has no input device");
    add(smallRemote());
    EXPECT_EQ(errorOf([](Inputs& i) { i.press("", "W"); }), "\"remote\" is not plugged in");
    plug("remote");
    EXPECT_EQ(errorOf([](Inputs& i) { i.press("mouse", "W"); }),
              "there is no input device \"mouse\"");
    EXPECT_EQ(errorOf([](Inputs& i) { i.press("", "Q"); }), "the device has no KEY_Q");
    EXPECT_EQ(errorOf([](Inputs& i) { i.press("", "?"); }),
              "\"?\" is no key; W, KEY_W or 17, for example");
    EXPECT_EQ(errorOf([](Inputs& i) { i.release("", "W"); }), "KEY_W is not down");
    press("W");
    EXPECT_EQ(errorOf([](Inputs& i) { i.press("", "W"); }), "KEY_W is down already");
    EXPECT_EQ(errorOf([](Inputs& i) { i.plug("remote"); }),
              "\"remote\" is plugged in already, at /dev/input/event0");
    unplug("remote");
    EXPECT_EQ(errorOf([](Inputs& i) { i.unplug("remote"); }), "\"remote\" is not plugged in");
}

TEST_F(FastRemote, aHeldKeyGoesUpByItself) {
    add(smallRemote());
    Reader reader = open(plug("remote"));
    std::string result = "not yet";
    board.onLoop(
        [&] { inputs->hold("", "W", 100, [&](const std::string& error) { result = error; }); });
    const std::vector<input_event> events = reader.read(6);
    EXPECT_EQ(textOf(events), "4/4=458778 1/17=1 0/0=0 4/4=458778 1/17=0 0/0=0");
    EXPECT_GE(time_us(events[4]) - time_us(events[1]), 99000);
    board.onLoop([&] { EXPECT_EQ(result, ""); });
}

TEST_F(FastRemote, aHeldKeyWhoseDeviceGoesIsAnError) {
    add(smallRemote());
    plug("remote");
    std::promise<std::string> result;
    board.onLoop([&] {
        inputs->hold("", "W", 100, [&](const std::string& error) { result.set_value(error); });
        inputs->unplug("remote");
    });
    EXPECT_EQ(result.get_future().get(), "KEY_W was up before its time");
}

TEST_F(Remote, everyReaderGetsEveryEventUnlessOneGrabsTheDevice) {
    add(smallRemote());
    const std::string path = plug("remote");
    Reader first = open(path), second = open(path);
    type("W");
    EXPECT_EQ(textOf(first.read(6)), textOf(second.read(6)));
    int grab = 1;
    ASSERT_EQ(first.calls()(EVIOCGRAB, grab), 0);
    EXPECT_EQ(first.calls()(EVIOCGRAB, grab), -EBUSY);
    EXPECT_EQ(second.calls()(EVIOCGRAB, grab), -EBUSY);
    type("A");
    EXPECT_EQ(first.read(6).size(), 6u);
    EXPECT_TRUE(second.readAll().empty());
    grab = 0;
    EXPECT_EQ(second.calls()(EVIOCGRAB, grab), -EINVAL);
    ASSERT_EQ(first.calls()(EVIOCGRAB, grab), 0);
    press("S");
    EXPECT_EQ(second.read(3).size(), 3u);
}

TEST_F(Remote, aGrabEndsWithItsDescriptor) {
    add(smallRemote());
    const std::string path = plug("remote");
    Reader first = open(path), second = open(path);
    int grab = 1;
    ASSERT_EQ(first.calls()(EVIOCGRAB, grab), 0);
    first.calls().close();
    EXPECT_EQ(second.calls()(EVIOCGRAB, grab), 0);
}

TEST_F(Remote, aReaderThatDoesNotReadIsToldThatEventsWereDropped) {
    add(smallRemote());
    Reader reader = open(plug("remote"));
    for (int i = 0; i < 20; ++i) {
        type("W");
    }
    const std::vector<input_event> events = reader.readAll();
    ASSERT_LT(events.size(), 64u);
    EXPECT_EQ(textOf({events[0]}), "0/3=0");
    EXPECT_EQ(textOf({events.end() - 3, events.end()}), "4/4=458778 1/17=0 0/0=0");
}

TEST_F(Remote, lightsFollowWhatIsWritten) {
    add(smallRemote());
    const std::string path = plug("remote");
    Reader writer = open(path), other = open(path);
    std::vector<input_event> dark;
    for (unsigned led = 0; led < 15; ++led)
        dark.push_back(event(EV_LED, led, 0));
    writer.write(dark);
    writer.write({event(EV_LED, LED_CAPSL, 1), event(EV_LED, LED_MAIL, 1), event(EV_KEY, 17, 1),
                  event(EV_SYN, SYN_REPORT, 0)});
    // Only the light that the device has and that changed is news.
    EXPECT_EQ(textOf(other.read(2)), "17/1=1 0/0=0");
    std::uint64_t lit = 0;
    EXPECT_EQ(other.calls()(EVIOCGLED(sizeof lit), lit), 8);
    EXPECT_EQ(lit, 1u << LED_CAPSL);
    const InputState after = state("remote");
    EXPECT_EQ(after.ledsLit, std::vector<std::uint16_t>{LED_CAPSL});
    ASSERT_EQ(after.written.size(), 19u);
    EXPECT_EQ(after.writtenCount, 19u);
    EXPECT_EQ(after.written[14].type, EV_LED);
    EXPECT_EQ(after.written[14].code, 14);
    EXPECT_EQ(after.written[15].value, 1);
}

TEST_F(Remote, whatIsWrittenCountsBeforeTheNextCall) {
    add(smallRemote());
    Reader reader = open(plug("remote"));
    reader.write({event(EV_LED, LED_NUML, 1)});
    std::uint64_t lit = 0;
    EXPECT_EQ(reader.calls()(EVIOCGLED(sizeof lit), lit), 8);
    EXPECT_EQ(lit, 1u);
}

TEST_F(Remote, unpluggedItIsGoneForItsReadersAndFreshForTheNext) {
    add(smallRemote());
    const std::string path = plug("remote");
    Reader reader = open(path);
    press("W");
    unplug("remote");
    int version = 0;
    EXPECT_EQ(reader.calls()(EVIOCGVERSION, version), -ENODEV);
    EXPECT_EQ(reader.calls().state(), wire::handleGone);
    EXPECT_NE(reader.calls().polled() & POLLHUP, 0);
    EXPECT_EQ(state("remote").node, "");
    EXPECT_EQ(plug("remote"), path);
    EXPECT_TRUE(state("remote").keysDown.empty());
    Reader next = open(path);
    press("W");
    EXPECT_EQ(next.read(3).size(), 3u);
}

TEST_F(Remote, devicesGetTheLowestFreeNumber) {
    InputDescription high = smallRemote("high");
    high.firstNumber = 12;
    for (const InputDescription& input : {smallRemote("one"), smallRemote("two"), high})
        add(input);
    EXPECT_EQ(plug("one"), "/dev/input/event0");
    EXPECT_EQ(plug("two"), "/dev/input/event1");
    EXPECT_EQ(plug("high"), "/dev/input/event12");
    unplug("one");
    add(smallRemote("three"));
    EXPECT_EQ(plug("three"), "/dev/input/event0");
    EXPECT_EQ(plug("one"), "/dev/input/event2");
    board.onLoop([&] {
        EXPECT_EQ(board.nodes.at("/dev/input/event12").major, 13u);
        EXPECT_EQ(board.nodes.at("/dev/input/event12").minor, 76u);
    });
    // A key of one is none of the other.
    Reader reader = open("/dev/input/event1");
    press("W", "three");
    press("S", "two");
    EXPECT_EQ(textOf(reader.read(3)), "4/4=458774 1/31=1 0/0=0");
}

}  // namespace

}  // namespace board::test
