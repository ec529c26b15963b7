#include "tests/support/console.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace support {

namespace {

Process::Start startOf(const Board& board, const std::string& log) {
    const std::string page = board.folder() + "/console-page";
    if (!std::filesystem::create_directories(page))
        throw std::runtime_error("no folder " + page);
    writeFile(page + "/index.html", "<p>test");
    writeFile(log, "");
    writeFile(log + ".err", "");
    Process::Start start;
    start.command = {consolePath(), "--board", board.folder(), "--log", log, "--err", log + ".err",
                     "--port",      "0",       "--page",       page};
    return start;
}

}  // namespace

Console::Console(Board& board)
    : logPath_(board.folder() + "/console-log"), process_(startOf(board, logPath_)) {
    const std::string start = "console: http://127.0.0.1:";
    const auto line = process_.out().waitFor(
        [&](const std::string& text) { return text.compare(0, start.size(), start) == 0; },
        Milliseconds(10000));
    if (!line)
        throw std::runtime_error("the console does not start: " + process_.err().text());
    const std::string text = process_.out().all()[*line];
    port_ = static_cast<unsigned short>(std::atoi(text.c_str() + start.size()));
}

Console::~Console() {
    end();
}

void Console::end() {
    if (ended_)
        return;
    ended_ = true;
    process_.signal(SIGTERM);
    const std::optional<int> status = process_.waitForEnd(Milliseconds(5000));
    EXPECT_TRUE(status && *status == 0) << (status ? describeStatus(*status) : "it goes on");
    EXPECT_EQ(process_.err().text(), "");
}

void Console::writeLog(const std::string& text) {
    std::ofstream(logPath_, std::ios::app) << text;
}

}  // namespace support
