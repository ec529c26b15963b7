// The ioctls of an input device, as the kernel's evdev answers them.

#include "tests/board/remote/inputbench.h"

#include <sys/ioctl.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <set>

namespace board::test {

namespace {

class InputIoctls : public InputBench {
  protected:
    InputIoctls() {
        add(smallRemote());
        reader = std::make_unique<Reader>(open(plug("remote")));
    }
    ~InputIoctls() override { reader.reset(); }

    // An ioctl with a length in its number, on memory filled with 0xee.
    int ask(std::uint64_t request, std::vector<std::byte>& memory) {
        IoctlCall call;
        call.request = std::uint32_t(request);
        call.argument.assign(_IOC_SIZE(call.request), std::byte(0xee));
        const int result = reader->calls().run(call);
        memory = call.argument;
        return result;
    }
    std::string text(std::uint64_t request) {
        std::vector<std::byte> memory;
        const int bytes = ask(request, memory);
        return bytes > 0 ? std::string(reinterpret_cast<const char*>(memory.data()), bytes)
                         : std::to_string(bytes);
    }
    std::set<unsigned> bits(std::uint64_t request) {
        std::vector<std::byte> memory;
        const int bytes = ask(request, memory);
        std::set<unsigned> set;
        for (int bit = 0; bit < bytes * 8; ++bit)
            if ((unsigned(memory[std::size_t(bit) / 8]) >> bit % 8 & 1u) != 0)
                set.insert(unsigned(bit));
        return set;
    }
    int length(std::uint64_t request) {
        std::vector<std::byte> memory;
        return ask(request, memory);
    }

    std::unique_ptr<Reader> reader;
};

TEST_F(InputIoctls, whoItIs) {
    int version = 0;
    EXPECT_EQ(reader->calls()(EVIOCGVERSION, version), 0);
    EXPECT_EQ(version, EV_VERSION);
    input_id id{};
    EXPECT_EQ(reader->calls()(EVIOCGID, id), 0);
    EXPECT_EQ(id.bustype, BUS_USB);
    EXPECT_EQ(id.vendor, 0x1234);
    EXPECT_EQ(id.product, 0x5678);
    EXPECT_EQ(id.version, 0x110);
    EXPECT_EQ(text(EVIOCGNAME(256)), std::string("NYFZ USB DONGLE", 16));
    EXPECT_EQ(text(EVIOCGNAME(4)), "NYFZ");
    EXPECT_EQ(text(EVIOCGPHYS(64)), std::string("usb-1/input0", 13));
    EXPECT_EQ(length(EVIOCGUNIQ(64)), -ENOENT);
}

TEST_F(InputIoctls, memoryBehindTheAnswerStaysAsItWas) {
    std::vector<std::byte> memory;
    EXPECT_EQ(ask(EVIOCGNAME(20), memory), 16);
    EXPECT_EQ(memory[15], std::byte(0));
    EXPECT_EQ(memory[16], std::byte(0xee));
}

TEST_F(InputIoctls, whatItCanDo) {
    EXPECT_EQ(bits(EVIOCGBIT(0, 4)), (std::set<unsigned>{EV_SYN, EV_KEY, EV_MSC, EV_LED, EV_REP}));
    EXPECT_EQ(bits(EVIOCGBIT(EV_KEY, KEY_CNT)), (std::set<unsigned>{KEY_W, KEY_A, KEY_S, KEY_D}));
    EXPECT_EQ(bits(EVIOCGBIT(EV_MSC, 8)), std::set<unsigned>{MSC_SCAN});
    EXPECT_EQ(bits(EVIOCGBIT(EV_LED, 8)), (std::set<unsigned>{LED_NUML, LED_CAPSL}));
    EXPECT_TRUE(bits(EVIOCGPROP(8)).empty());
}

TEST_F(InputIoctls, aBitListIsAsLongAsTheKernels) {
    EXPECT_EQ(length(EVIOCGBIT(0, 4)), 4);
    EXPECT_EQ(length(EVIOCGBIT(0, 100)), 8);
    EXPECT_EQ(length(EVIOCGBIT(EV_KEY, 1000)), 96);
    EXPECT_EQ(length(EVIOCGBIT(EV_REL, 100)), 8);
    EXPECT_EQ(length(EVIOCGBIT(EV_ABS, 100)), 8);
    EXPECT_EQ(length(EVIOCGBIT(EV_FF, 100)), 16);
    EXPECT_EQ(length(EVIOCGSND(100)), 8);
    EXPECT_EQ(length(EVIOCGSW(100)), 8);
    EXPECT_EQ(length(EVIOCGBIT(EV_REP, 100)), -EINVAL);
}

TEST_F(InputIoctls, keysThatAreDown) {
    press("W");
    press("D");
    EXPECT_EQ(bits(EVIOCGKEY(96)), (std::set<unsigned>{KEY_W, KEY_D}));
}

TEST_F(InputIoctls, repetitionCanBeChanged) {
    std::array<unsigned, 2> repeat{};
    EXPECT_EQ(reader->calls()(EVIOCGREP, repeat), 0);
    EXPECT_EQ(repeat[0], 250u);
    EXPECT_EQ(repeat[1], 33u);
    repeat[0] = 20;
    repeat[1] = 10;
    EXPECT_EQ(reader->calls()(EVIOCSREP, repeat), 0);
    EXPECT_EQ(reader->calls()(EVIOCGREP, repeat), 0);
    EXPECT_EQ(repeat[0], 20u);
    press("W");
    EXPECT_EQ(textOf(reader->read(5)), "4/4=458778 1/17=1 0/0=0 1/17=2 0/0=1");
}

TEST_F(InputIoctls, withoutRepetitionThereIsNothingToChange) {
    InputDescription still = smallRemote("still");
    still.repeatDelay_ms = 0;
    add(still);
    Reader other = open(plug("still"));
    std::array<unsigned, 2> repeat{};
    EXPECT_EQ(other.calls()(EVIOCGREP, repeat), -ENOSYS);
    EXPECT_EQ(other.calls()(EVIOCSREP, repeat), -ENOSYS);
}

TEST_F(InputIoctls, timesAreThoseOfTheChosenClock) {
    int clock = CLOCK_MONOTONIC;
    EXPECT_EQ(reader->calls()(EVIOCSCLOCKID, clock), 0);
    std::int64_t before = 0, after = 0;
    board.onLoop([&] { before = board.clock().now_ns() / 1000; });
    press("W");
    board.onLoop([&] { after = board.clock().now_ns() / 1000; });
    const std::vector<input_event> events = reader->read(3);
    ASSERT_EQ(events.size(), 3u);
    for (const input_event& event : events) {
        const std::int64_t time =
            std::int64_t(event.input_event_sec) * 1000000 + std::int64_t(event.input_event_usec);
        EXPECT_GE(time, before);
        EXPECT_LE(time, after);
    }
    clock = CLOCK_PROCESS_CPUTIME_ID;
    EXPECT_EQ(reader->calls()(EVIOCSCLOCKID, clock), -EINVAL);
}

TEST_F(InputIoctls, anotherClockDropsWhatLiesUnread) {
    type("W");
    int clock = CLOCK_MONOTONIC;
    EXPECT_EQ(reader->calls()(EVIOCSCLOCKID, clock), 0);
    EXPECT_EQ(textOf(reader->readAll()), "0/3=0");
}

TEST_F(InputIoctls, everythingElseIsUnknown) {
    EXPECT_FALSE(reader->calls().knows(EVIOCGABS(0)));
    EXPECT_FALSE(reader->calls().knows(EVIOCGMTSLOTS(8)));
    EXPECT_FALSE(reader->calls().knows(_IOR('V', 0, int)));
    EXPECT_FALSE(reader->calls().knows(EVIOCSFF));
    EXPECT_TRUE(reader->calls().knows(EVIOCGNAME(17)));
    EXPECT_TRUE(reader->calls().knows(EVIOCGBIT(EV_KEY, 96)));
    EXPECT_FALSE(reader->calls().knows(_IOW('E', 0x06, char[16])));
    EXPECT_EQ(length(EVIOCGABS(0)), -EINVAL);
    EXPECT_EQ(reader->calls().map(0, 4096, 1).error, -ENODEV);
}

}  // namespace

}  // namespace board::test
