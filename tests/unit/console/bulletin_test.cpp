// What pages are told, and what of the application's log goes into it.

#include "board/console/bulletin.h"
#include "board/console/logtail.h"
#include "board/console/requestguard.h"
#include "board/console/soundfigures.h"
#include "board/console/supervisorlog.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <fstream>
#include <thread>

namespace {

using board::console::Bulletin;
using board::console::LogTail;
using std::chrono::milliseconds;

unsigned countOf(const std::string& text, const std::string& wanted) {
    unsigned count = 0;
    for (std::size_t at = 0; (at = text.find(wanted, at)) != std::string::npos; ++at)
        ++count;
    return count;
}

TEST(Bulletin, GreetsWithHistoryAndTheWholeLog) {
    Bulletin bulletin;
    bulletin.setHistory("{\"h\": 1}");
    bulletin.addLine("\"text\": \"a\"");
    bulletin.addLine("\"text\": \"b\"");
    bulletin.setState("{\"s\": 1}");
    Bulletin::Reader reader;
    EXPECT_EQ(bulletin.news(reader, milliseconds(0)),
              "event: history\ndata: {\"h\": 1}\n\n"
              "event: log\ndata: {\"lines\": [{\"n\": 0, \"text\": \"a\"}, "
              "{\"n\": 1, \"text\": \"b\"}]}\n\n"
              "event: state\ndata: {\"s\": 1}\n\n");
    EXPECT_EQ(bulletin.news(reader, milliseconds(0)), "");
    bulletin.addLine("\"text\": \"c\"");
    EXPECT_EQ(bulletin.news(reader, milliseconds(0)),
              "event: log\ndata: {\"lines\": [{\"n\": 2, \"text\": \"c\"}]}\n\n");
}

TEST(Bulletin, KeepsTheLastFiveThousandLines) {
    Bulletin bulletin;
    for (int i = 0; i < 5100; ++i)
        bulletin.addLine("\"x\": 0");
    Bulletin::Reader late;
    const std::string news = bulletin.news(late, milliseconds(0));
    EXPECT_EQ(countOf(news, "\"n\": "), 5000u);
    EXPECT_NE(news.find("{\"n\": 100,"), std::string::npos);
    EXPECT_EQ(news.find("{\"n\": 99,"), std::string::npos);
    EXPECT_EQ(countOf(news, "event: log"), 10u);
}

TEST(Bulletin, ManyReadersGetEveryLineWhileItIsWritten) {
    constexpr unsigned lines = 2000;
    Bulletin bulletin;
    std::atomic<unsigned> complete{0};
    std::vector<std::thread> readers;
    for (int i = 0; i < 4; ++i)
        readers.emplace_back([&] {
            const Bulletin::Presence presence(bulletin);
            Bulletin::Reader reader;
            unsigned seen = 0;
            for (int rounds = 0; seen < lines && rounds < 100000; ++rounds)
                seen += countOf(bulletin.news(reader, milliseconds(100)), "\"n\": ");
            complete += seen == lines ? 1 : 0;
        });
    for (unsigned i = 0; i < lines; ++i) {
        bulletin.addLine("\"x\": 0");
        bulletin.setState("{}");
    }
    for (std::thread& reader : readers)
        reader.join();
    EXPECT_EQ(complete, 4u);
    EXPECT_FALSE(bulletin.hasReaders());
}

class LogTailTest : public testing::Test {
  protected:
    LogTailTest() : path_(testing::TempDir() + "logtail" + std::to_string(::getpid())) {}
    ~LogTailTest() override { std::remove(path_.c_str()); }
    void append(const std::string& text) { std::ofstream(path_, std::ios::app) << text; }

    const std::string path_;
};

using Texts = std::vector<std::string>;

TEST_F(LogTailTest, GivesLinesOnceTheyAreWhole) {
    LogTail tail(path_);
    EXPECT_EQ(tail.read(), Texts());
    append("one\ntw");
    EXPECT_EQ(tail.read(), Texts{"one"});
    append("o\n\nthree\n");
    EXPECT_EQ(tail.read(), (Texts{"two", "", "three"}));
    EXPECT_EQ(tail.read(), Texts());
}

TEST_F(LogTailTest, StartsAgainWithAnotherFile) {
    LogTail tail(path_);
    append("a long line of the first\npart");
    EXPECT_EQ(tail.read().size(), 1u);
    std::ofstream(path_, std::ios::trunc) << "new\n";
    EXPECT_EQ(tail.read(), Texts{"new"});
    std::remove(path_.c_str());
    EXPECT_EQ(tail.read(), Texts());
    append("third, longer than the second\n");
    EXPECT_EQ(tail.read(), Texts{"third, longer than the second"});
}

TEST_F(LogTailTest, CutsLinesWithoutAnEnd) {
    LogTail tail(path_);
    append(std::string(40000, 'x'));
    EXPECT_EQ(tail.read(), (Texts(2, std::string(16384, 'x'))));
}

TEST(ToUtf8, ReplacesWhatIsNone) {
    const std::string bad = "\xef\xbf\xbd";
    EXPECT_EQ(board::console::toUtf8("plain \xc3\xa4 \xe2\x80\xa6 \xf0\x9f\x8e\xa5"),
              "plain \xc3\xa4 \xe2\x80\xa6 \xf0\x9f\x8e\xa5");
    EXPECT_EQ(board::console::toUtf8("a\xff"
                                     "b\xc3"),
              "a" + bad + "b" + bad);
    EXPECT_EQ(board::console::toUtf8("\xed\xa0\x80"), bad + bad + bad);  // half a surrogate pair
    EXPECT_EQ(board::console::toUtf8("\xc0\xaf\xf5"), bad + bad + bad);
}

TEST(SupervisorLog, FollowsTheStates) {
    board::console::SupervisorLog log;
    EXPECT_EQ(log.json(), "{\"state\": \"STATUE_POLL_NODEVICE\", \"transitions\": []}");
    log.take("statue: A ==> B", 5);
    log.take("something else ==> C", 6);
    log.take("statue: B ==> A", 7);
    log.take("statue: A ==> B", 8);
    EXPECT_EQ(log.json(),
              "{\"state\": \"B\", \"transitions\": [{\"from\": \"A\", \"to\": \"B\", \"count\": 2, "
              "\"last_ms\": 8}, {\"from\": \"B\", \"to\": \"A\", \"count\": 1, \"last_ms\": 7}]}");
}

TEST(RequestGuard, AdmitsItsOwnPageOnly) {
    const board::console::RequestGuard guard(8471);
    EXPECT_TRUE(guard.admits({"127.0.0.1:8471"}, {}));
    EXPECT_TRUE(guard.admits({"localhost:8471"}, {"http://localhost:8471"}));
    for (const char* host : {"", "127.0.0.1", "127.0.0.1:8472", "evil.example:8471", "localhost",
                             "LOCALHOST:8471.", "127.0.0.1:8471 ", "127.0.0.1:08471", "[::1]:8471"})
        EXPECT_FALSE(guard.admits({host}, {})) << host;
    EXPECT_FALSE(guard.admits({}, {}));
    EXPECT_FALSE(guard.admits({"127.0.0.1:8471", "127.0.0.1:8471"}, {}));
    for (const char* origin :
         {"", "null", "http://evil.example", "https://127.0.0.1:8471", "http://localhost:8471",
          "http://127.0.0.1:8471/", "http://127.0.0.1:8471.evil.example"})
        EXPECT_FALSE(guard.admits({"127.0.0.1:8471"}, {origin})) << origin;
    EXPECT_FALSE(
        guard.admits({"127.0.0.1:8471"}, {"http://127.0.0.1:8471", "http://evil.example"}));
}

TEST(SoundOnTheWay, IsReadAndNotWritten) {
    rapidjson::Document figures;
    figures.Parse(
        "{\"microphone\": {\"capture\": {\"state\": \"RUNNING\", \"rate\": 48000, "
        "\"frames\": 48000, \"unreadFrames\": 480}}, "
        "\"output\": {\"playback\": {\"state\": \"RUNNING\", \"rate\": 24000, "
        "\"frames\": 12000, \"queuedFrames\": 2400}}}");
    const auto sound = board::console::soundOnTheWay(figures);
    EXPECT_DOUBLE_EQ(sound.onTheWay_ms.value_or(0), 990 - 600);
    EXPECT_DOUBLE_EQ(sound.queued_ms.value_or(0), 100);
    figures.Parse("{\"output\": {\"playback\": {\"state\": \"XRUN\", \"rate\": 24000}}}");
    EXPECT_FALSE(board::console::soundOnTheWay(figures).queued_ms);
}

}  // namespace
