// A lively run on one board, saved as a session, and the same log from it on other boards.

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <thread>

#include "tests/support/application.h"
#include "tests/support/logfilter.h"
#include "tests/support/ordertext.h"
#include "tests/support/scenarios.h"

namespace {

using support::Application;
using support::benchScenario;
using support::Board;
using support::Milliseconds;
using support::OrderText;

constexpr unsigned speed = 3;
// Board time between what was seen and the next order: a repetition on a busier machine may be that
// much slower. Where the log says nothing of an order, less will do.
constexpr Milliseconds room(2400), shortRoom(600);

constexpr char playing[] = "statue: STATUE_POOL_OPENDEVICE ==> STATUE_POOL_PLAY";
constexpr char failedToNone[] = "statue: STATUE_POOL_OPENFAID ==> STATUE_POLL_NODEVICE";
constexpr char errorToFailed[] = "statue: STATUE_POOL_PLAYERR ==> STATUE_POOL_OPENFAID";
constexpr char displayGoneToNone[] = "statue: STATUE_POOL_PLAYERR ==> STATUE_POLL_NODEVICE";
constexpr char remoteOpened[] = "^/dev/input/event0: open, fd = [0-9]+$";

struct Log {
    std::string out, err;
};

std::string joined(const std::vector<std::string>& lines) {
    std::string text;
    for (const std::string& line : support::steadyLines(lines)) {
        text += line + "\n";
    }
    return text;
}

// The camera that turns, with sound and another camera to choose; removed with the object.
class Files {
  public:
    Files() : folder_(support::makeTemporaryFolder("session-")) {
        std::string text = support::readFile(benchScenario("small-ptz"));
        text.erase(text.find_last_of('}'));
        text +=
            ", \"microphone\": \"synthetic-microphone\", \"output\": \"synthetic-output\", "
            "\"hears\": \"ramp\"}";
        support::writeFile(path("start.json"), text);
    }
    ~Files() {
        std::error_code gone;
        std::filesystem::remove_all(folder_, gone);
    }
    Files(const Files&) = delete;
    Files& operator=(const Files&) = delete;
    std::string path(const std::string& name) const { return folder_ + "/" + name; }

  private:
    std::string folder_;
};

// Somebody at the board: waits for what each order leads to before giving the next one.
class Person {
  public:
    Person(Board& board, Application& application) : board_(board), application_(application) {}

    void playing() {
        const std::size_t before = next_;
        next_ = application_.expectPlaying(next_);
        EXPECT_TRUE(application_.out().waitForMatch(remoteOpened, Milliseconds(10000), before))
            << application_.out().text();
        pause(room);
    }
    void line(const char* text) {
        next_ = application_.expectLine(text, Milliseconds(20000), next_);
        pause(room);
    }
    void order(OrderText& order) {
        board_.order(order.text());
        pause();
    }
    void shows(std::uint64_t frames) {
        const std::uint64_t before = board_.camera().delivered;
        EXPECT_TRUE(board_.waitForCamera(
            [&](const auto& figures) { return figures.delivered >= before + frames; },
            Milliseconds(10000)));
        pause(room);
    }
    // Not a wait for anything: the room that a repetition is given.
    void pause(Milliseconds howLong = shortRoom) {
        std::this_thread::sleep_for(support::scaled(howLong) / speed);
    }

  private:
    Board& board_;
    Application& application_;
    std::size_t next_ = 0;
};

constexpr unsigned plays = 4;  // how often the pipeline plays in it

void liveSession(Board& board, Application& application) {
    Person person(board, application);
    person.playing();
    board.press("W");
    person.pause();
    board.release("W");
    board.hold("I", Milliseconds(700));
    person.pause();
    person.order(OrderText("payload-fault")
                     .with("kind", "truncate")
                     .with("count", std::int64_t(4))
                     .with("seed", std::int64_t(11)));
    person.shows(10);
    board.unplug("camera");
    person.line(failedToNone);
    board.plug("camera");
    person.playing();
    board.unplug("display");
    person.line(displayGoneToNone);
    board.plug("display");
    person.playing();
    // What the microphone had heard is played before the output goes: else it is lost, and told of.
    board.unplug("microphone");
    person.pause();
    board.plug("microphone");
    person.pause(room);
    board.unplug("output");
    person.pause();
    board.plug("output");
    person.pause();
    board.stallCamera(true);
    person.line(errorToFailed);
    board.stallCamera(false);
    board.unplug("camera");
    person.line(failedToNone);
    board.setRecording("field:bars");
    board.plug("camera", "synthetic-mjpeg");
    person.playing();
}

std::unique_ptr<Log> logOf(Application& application) {
    application.end();
    auto log = std::make_unique<Log>();
    log->out = joined(application.out().all());
    log->err = joined(application.err().all());
    return log;
}

// The application on a board that repeats the session; nobody gives an order.
std::unique_ptr<Log> repeated(const std::string& session) {
    Board board(session);
    Application application(board);
    std::size_t next = 0;
    for (unsigned play = 0; play < plays; ++play) {
        next = application.expectLine(playing, Milliseconds(60000), next);
    }
    EXPECT_EQ(support::member(board.order(OrderText("state").text()), "ordersToCome").GetUint(),
              0u);
    Person(board, application).pause(room);
    EXPECT_EQ(board.daemon().err().text().find("was refused"), std::string::npos)
        << board.daemon().err().text();
    return logOf(application);
}

TEST(Session, RepeatedGivesTheSameLog) {
    const Files files;
    std::unique_ptr<Log> first;
    {
        Board board(files.path("start.json"), speed);
        Application application(board);
        liveSession(board, application);
        board.order(OrderText("session").with("path", files.path("saved.json")).text());
        first = logOf(application);
    }
    ASSERT_FALSE(HasFailure());
    // Everything is the same, and it is not nothing.
    EXPECT_NE(first->out.find("find decoder dev is Mjpeg"), std::string::npos);
    EXPECT_NE(first->err.find("VIDIOC_DQBUF"), std::string::npos);
    for (int run = 1; run <= 2; ++run) {
        const std::unique_ptr<Log> again = repeated(files.path("saved.json"));
        EXPECT_EQ(again->out, first->out) << "repetition " << run;
        EXPECT_EQ(again->err, first->err) << "repetition " << run;
    }
}

}  // namespace
