// The remote as programs see it that know input devices and nothing of the board.

#include <gtest/gtest.h>

#include <filesystem>

#include "tests/support/client.h"

namespace {

using support::Board;
using support::Milliseconds;

// One scenario: the remote, and a keyboard beside it.
class InputScenario {
  public:
    InputScenario()
        : folder_(support::makeTemporaryFolder("scenario-")), path_(folder_ + "/scenario.json") {
        support::writeFile(path_, R"({"name": "inputs", "camera": null, "display": null,
                                      "inputs": ["keyboard", "remote"]})");
    }
    ~InputScenario() { std::filesystem::remove_all(folder_); }
    const std::string& path() const { return path_; }

  private:
    std::string folder_, path_;
};

TEST(RemoteForeign, evtestShowsKeysUntilTheReceiverIsPulledOut) {
    const InputScenario scenario;
    Board board(scenario.path());
    ASSERT_EQ(board.input("remote").node, "/dev/input/event1");
    const auto evtest = support::startClient(board, {"evtest", "/dev/input/event1"});
    ASSERT_TRUE(evtest->out().waitForMatch("^Testing", Milliseconds(20000)))
        << evtest->out().text() << evtest->err().text();
    board.press("W", "keyboard");
    board.hold("W", Milliseconds(50), "remote");
    board.release("W", "keyboard");
    board.hold("L", Milliseconds(50), "remote");
    ASSERT_TRUE(evtest->out().waitForMatch("KEY_L\\), value 0", Milliseconds(20000)));
    board.unplug("remote");
    ASSERT_TRUE(evtest->waitForEnd(Milliseconds(20000)));

    const std::string text = evtest->out().text();
    EXPECT_NE(text.find("Input device name: \"NYFZ USB DONGLE\""), std::string::npos) << text;
    EXPECT_NE(text.find("Event code 17 (KEY_W)"), std::string::npos);
    EXPECT_NE(text.find("Event type 17 (EV_LED)"), std::string::npos);
    EXPECT_NE(text.find("Repeat code 0 (REP_DELAY)\n      Value    250"), std::string::npos);
    std::string events;
    for (std::size_t at = text.find("Event: "); at != std::string::npos;
         at = text.find("Event: ", at + 1)) {
        const std::size_t comma = text.find(", ", at) + 2;
        events += text.substr(comma, text.find('\n', comma) - comma) + "\n";
    }
    EXPECT_EQ(events,
              "type 4 (EV_MSC), code 4 (MSC_SCAN), value 7001a\n"
              "type 1 (EV_KEY), code 17 (KEY_W), value 1\n"
              "-------------- SYN_REPORT ------------\n"
              "type 4 (EV_MSC), code 4 (MSC_SCAN), value 7001a\n"
              "type 1 (EV_KEY), code 17 (KEY_W), value 0\n"
              "-------------- SYN_REPORT ------------\n"
              "type 4 (EV_MSC), code 4 (MSC_SCAN), value 7000f\n"
              "type 1 (EV_KEY), code 38 (KEY_L), value 1\n"
              "-------------- SYN_REPORT ------------\n"
              "type 4 (EV_MSC), code 4 (MSC_SCAN), value 7000f\n"
              "type 1 (EV_KEY), code 38 (KEY_L), value 0\n"
              "-------------- SYN_REPORT ------------\n");
    EXPECT_NE(evtest->err().text().find("No such device"), std::string::npos)
        << evtest->err().text();
}

// Python's os.read and os.write are the plain calls.
constexpr char readsAndWrites[] = R"(
import errno, os, select, struct
path = "/dev/input/event1"
fd = os.open(path, os.O_RDWR | os.O_NONBLOCK)
def attempt(what, call):
    try:
        print(what, call(), flush=True)
    except OSError as error:
        print(what, errno.errorcode[error.errno], flush=True)
attempt("empty", lambda: os.read(fd, 24))
attempt("short", lambda: os.read(fd, 23))
attempt("half", lambda: os.write(fd, b"x" * 23))
lights = b"".join(struct.pack("qqHHi", 1, 0, 17, led, 0) for led in range(15))
attempt("lights", lambda: os.write(fd, lights))
attempt("one", lambda: os.write(fd, struct.pack("qqHHi", 1, 0, 17, 2, 1) + b"rest"))
print("ready", flush=True)
select.select([fd], [], [])
attempt("events", lambda: len(os.read(fd, 100)))
gone = select.poll()
gone.register(fd, 0)  # the hang-up comes unasked
gone.poll()
attempt("gone", lambda: os.read(fd, 24))
attempt("gone", lambda: os.write(fd, lights))
)";

TEST(RemoteForeign, readsAndWritesAreOfWholeEventsAndEndWithTheDevice) {
    const InputScenario scenario;
    Board board(scenario.path());
    const auto script = support::startClient(board, {"python3", "-c", readsAndWrites});
    ASSERT_TRUE(script->out().waitForMatch("^ready", Milliseconds(20000)))
        << script->out().text() << script->err().text();
    board.press("W", "remote");
    ASSERT_TRUE(script->out().waitForMatch("^events", Milliseconds(20000)));
    board.press("S", "remote");  // nobody reads it
    const support::InputFigures figures = board.input("remote");
    board.unplug("remote");
    ASSERT_TRUE(script->waitForEnd(Milliseconds(20000)));
    // Nothing ended the packet of the light that went on: the key's packet carries it.
    EXPECT_EQ(script->out().text(),
              "empty EAGAIN\nshort EINVAL\nhalf EINVAL\nlights 360\none 24\nready\nevents 96\n"
              "gone ENODEV\ngone ENODEV\n");
    EXPECT_EQ(script->err().text(), "");
    ASSERT_EQ(figures.writes.size(), 16u);
    for (unsigned led = 0; led < 15; ++led) {
        EXPECT_EQ(figures.writes[led].type, 17u);
        EXPECT_EQ(figures.writes[led].code, led);
        EXPECT_EQ(figures.writes[led].value, 0);
    }
    EXPECT_EQ(figures.ledsLit, std::vector<unsigned>{2});
    EXPECT_EQ(figures.keysDown, (std::vector<std::string>{"KEY_W", "KEY_S"}));
}

TEST(RemoteForeign, ordersAddChangeAndTakeDevices) {
    Board board("default");
    EXPECT_EQ(board.input("remote").device, "NYFZ USB DONGLE");
    board.plug("second", "remote");
    EXPECT_EQ(board.input("second").node, "/dev/input/event1");
    board.unplug("remote");
    board.plug("remote", "keyboard");
    EXPECT_EQ(board.input("remote").device, "USB Keyboard");
    EXPECT_EQ(board.input("remote").node, "/dev/input/event0");
    board.unplug("second");
    EXPECT_EQ(board.input("second").node, "");
    const rapidjson::Document refused =
        board.tryOrder(R"({"order": "press", "key": "W", "device": "second"})");
    EXPECT_STREQ(refused["error"].GetString(), "\"second\" is not plugged in");
}

}  // namespace
