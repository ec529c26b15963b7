// The reader of docs/log-lines.md, on texts of its own and on the document itself.
#include "board/console/loglines.h"

#include <gtest/gtest.h>

#include <chrono>
#include <random>
#include <stdexcept>

namespace {

using board::console::LogLines;

constexpr char head[] =
    "# Lines\n"
    "\n"
    "| kind | what it is |\n"
    "| --- | --- |\n"
    "| fault | something is wrong |\n"
    "| figures | numbers |\n"
    "\n"
    "| line | kind | meaning | what to do |\n"
    "| --- | --- | --- | --- |\n";

LogLines read(const std::string& rows) {
    return {head + rows, "lines.md"};
}

std::string refusal(const std::string& document) {
    try {
        const LogLines lines(document, "lines.md");
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "";
}

// The pattern of the entry that a line belongs to.
std::string patternOf(const LogLines& lines, std::string_view line) {
    const auto found = lines.find(line);
    return found ? lines.entries()[*found].pattern : "none";
}

TEST(LogLines, HaveFourColumns) {
    const LogLines lines = read("| `cap:…` | figures | frames a \\| second | nothing |\n");
    ASSERT_EQ(lines.entries().size(), 1u);
    const auto& entry = lines.entries().front();
    EXPECT_EQ(entry.pattern, "cap:…");
    EXPECT_EQ(entry.kind, "figures");
    EXPECT_EQ(entry.meaning, "frames a | second");
    EXPECT_EQ(entry.todo, "nothing");
}

TEST(LogLines, OtherTablesAndTextsAreNoEntries) {
    const LogLines lines = read(
        "| `a` | fault | | |\n"
        "\n"
        "| `b` | fault | | |\n"
        "\n"
        "| word | meaning |\n"
        "| --- | --- |\n"
        "| `c` | fault |\n"
        "`d`\n"
        "| line | kind | meaning | what to do |\n"
        "| --- | --- | --- | --- |\n"
        "| `e` | fault | | |\n");
    ASSERT_EQ(lines.entries().size(), 2u);
    EXPECT_EQ(lines.entries()[1].pattern, "e");
}

TEST(LogLines, BlanksAndBarsOfALineAreItsOwn) {
    const LogLines lines = read("| ` a  \\| b` | fault | | |\r\n| `EAGAIN ` | fault | | |\n");
    EXPECT_EQ(patternOf(lines, " a  | b"), " a  | b");
    EXPECT_EQ(patternOf(lines, "a  | b"), "none");
    EXPECT_EQ(patternOf(lines, "EAGAIN "), "EAGAIN ");
    EXPECT_EQ(patternOf(lines, "EAGAIN"), "none");
}

TEST(LogLines, WhatVariesMayBeAnythingAlsoNothing) {
    const LogLines lines = read("| `from … to …, …` | fault | | |\n| `…: gone…` | fault | | |\n");
    EXPECT_EQ(patternOf(lines, "from a to b, c"), "from … to …, …");
    EXPECT_EQ(patternOf(lines, "from  to , "), "from … to …, …");
    EXPECT_EQ(patternOf(lines, "from to to to, , to"), "from … to …, …");
    EXPECT_EQ(patternOf(lines, "from a to b"), "none");
    EXPECT_EQ(patternOf(lines, "from a, b to c"), "none");
    EXPECT_EQ(patternOf(lines, ": gone"), "…: gone…");
    EXPECT_EQ(patternOf(lines, "x: gon"), "none");
    EXPECT_EQ(patternOf(lines, std::string_view("\0\xff: gone", 8)), "…: gone…");
}

// Whether a pattern in which '*' varies can be the line: tries every way.
bool mayBe(std::string_view pattern, std::string_view line) {
    if (pattern.empty())
        return line.empty();
    if (pattern.front() != '*')
        return !line.empty() && line.front() == pattern.front() &&
               mayBe(pattern.substr(1), line.substr(1));
    for (std::size_t taken = 0; taken <= line.size(); ++taken) {
        if (mayBe(pattern.substr(1), line.substr(taken)))
            return true;
    }
    return false;
}

TEST(LogLines, AgreeWithAMatcherThatTriesEveryWay) {
    std::mt19937 random(7);
    const auto word = [&](const char* letters, unsigned count, std::size_t longest) {
        std::string text(1 + random() % longest, ' ');
        for (char& c : text)
            c = letters[random() % count];
        return text;
    };
    unsigned found = 0;
    for (int round = 0; round < 4000; ++round) {
        const std::string pattern = word("ab*", 3, 7);
        if (pattern.find_first_not_of('*') == std::string::npos)
            continue;
        std::string row;
        for (const char c : pattern)
            row += c == '*' ? "…" : std::string(1, c);
        const LogLines lines = read("| `" + row + "` | fault | | |\n");
        const std::string line = word("ab", 2, 9);
        EXPECT_EQ(lines.find(line).has_value(), mayBe(pattern, line)) << row << " and " << line;
        found += lines.find(line).has_value();
    }
    EXPECT_GT(found, 200u);
}

TEST(LogLines, HeadAndTailDoNotShareCharacters) {
    const LogLines lines = read("| `aba…aba` | fault | | |\n");
    EXPECT_EQ(patternOf(lines, "aba"), "none");
    EXPECT_EQ(patternOf(lines, "ababa"), "none");
    EXPECT_EQ(patternOf(lines, "abaaba"), "aba…aba");
}

TEST(LogLines, NothingButWhatVariesIsANumber) {
    const LogLines lines = read("| `…` | figures | | |\n");
    EXPECT_EQ(patternOf(lines, "45000"), "…");
    EXPECT_EQ(patternOf(lines, "-5"), "…");
    for (const char* other : {"", "-", "4 5", "45a", "a", "--5"})
        EXPECT_EQ(patternOf(lines, other), "none") << other;
}

TEST(LogLines, MostLiteralCharactersWin) {
    const LogLines lines = read(
        "| `…x…@…` | fault | | |\n"
        "| `   Mjpeg   …x…@…` | fault | | |\n"
        "| `   Mjpeg   640x…` | fault | | |\n"
        "| `…` | fault | | |\n");
    EXPECT_EQ(patternOf(lines, "640x480@30"), "…x…@…");
    EXPECT_EQ(patternOf(lines, "   Mjpeg   320x240@30"), "   Mjpeg   …x…@…");
    EXPECT_EQ(patternOf(lines, "   Mjpeg   640x480@30"), "   Mjpeg   640x…");
    EXPECT_EQ(lines.findAll("   Mjpeg   640x480@30"), (std::vector<std::size_t>{2, 1, 0}));
    EXPECT_EQ(lines.literalBytes(0), 2u);
}

TEST(LogLines, EmptyLinesBelongToNothing) {
    const LogLines lines = read("| `…a…` | fault | | |\n");
    EXPECT_FALSE(lines.find("").has_value());
    EXPECT_TRUE(lines.findAll("").empty());
}

TEST(LogLines, RefusalsNameTheLine) {
    const std::string ten = "lines.md:10: ";
    EXPECT_EQ(refusal(std::string(head) + "| `a` | fault | |\n"),
              ten + "a row has 3 cells, a log line takes 4");
    EXPECT_EQ(refusal(std::string(head) + "| `a|b` | fault | | |\n"),
              ten + "a row has 5 cells, a log line takes 4");
    EXPECT_EQ(refusal(std::string(head) + "| a | fault | | |\n"),
              ten + "the line must stand in backticks: a");
    EXPECT_EQ(refusal(std::string(head) + "| `` | fault | | |\n"),
              ten + "the line must stand in backticks: ``");
    EXPECT_EQ(refusal(std::string(head) + "| `a` b `c` | fault | | |\n"),
              ten + "a backtick inside a line: `a` b `c`");
    EXPECT_EQ(refusal(std::string(head) + "| `a` | sound | | |\n"), ten + "unknown kind 'sound'");
    EXPECT_EQ(refusal(std::string(head) + "| `a` | fault | | |\n| `a` | figures | | |\n"),
              "lines.md:11: stands here twice: `a`");
    for (const std::string& none : {std::string(), std::string("|"), std::string(head)})
        EXPECT_EQ(refusal(none), "lines.md: no table of log lines in it");
}

TEST(LogLines, UnreadableFilesAreRefused) {
    for (const char* path : {"/no/such/file", "/tmp"}) {
        try {
            LogLines::fromFile(path);
            ADD_FAILURE() << path;
        } catch (const std::runtime_error& error) {
            EXPECT_EQ(std::string(error.what()).rfind(std::string(path) + ": cannot be read: ", 0),
                      0u)
                << error.what();
            EXPECT_EQ(std::string(error.what()).find('\n'), std::string::npos);
        }
    }
}

TEST(LogLines, ArePrintedByTheDocument) {
    const LogLines lines = LogLines::fromFile(LOG_LINES);
    EXPECT_GT(lines.entries().size(), 200u);
    EXPECT_EQ(patternOf(lines, "statue: STATUE_POOL_OPENDEVICE ==> STATUE_POOL_PLAY"),
              "statue: STATUE_POOL_OPENDEVICE ==> STATUE_POOL_PLAY");
    EXPECT_EQ(patternOf(lines, "cap:30"), "cap:…");
    EXPECT_EQ(patternOf(lines, "nobody ever printed this"), "none");
    for (const auto& entry : lines.entries()) {
        EXPECT_FALSE(entry.meaning.empty()) << entry.pattern;
        EXPECT_FALSE(entry.todo.empty()) << entry.pattern;
        // Each line finds its own entry, whatever stands in the places that vary.
        std::string line = entry.pattern;
        for (std::size_t at = 0; (at = line.find("…")) != std::string::npos;)
            line.replace(at, std::string("…").size(), "7");
        EXPECT_EQ(patternOf(lines, line), entry.pattern) << line;
    }
}

// A page that is opened late asks for thousands of lines at once.
TEST(LogLines, ThousandsOfLinesAreAMomentsWork) {
    const LogLines lines = LogLines::fromFile(LOG_LINES);
    const std::string longLine(2000, 'x');
    const auto began = std::chrono::steady_clock::now();
    std::size_t found = 0;
    for (int i = 0; i < 5000; ++i) {
        found += lines.find("VIDIOC_DQBUF faild errno =19").has_value();
        found += lines.find(longLine).has_value();
    }
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - began;
    EXPECT_EQ(found, 5000u);
    RecordProperty("microseconds_a_line", std::to_string(took.count() * 1e6 / 10000));
    EXPECT_LT(took.count(), 5.0);
}

}  // namespace
