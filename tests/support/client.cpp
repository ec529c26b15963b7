#include "tests/support/client.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <cstdlib>

namespace support {

std::map<std::string, std::string> boardEnvironment(const Board& board) {
    std::string preload = preloadPath();
    if (const char* others = std::getenv("LD_PRELOAD")) {
        preload += std::string(":") + others;
    }
    return {{"LD_PRELOAD", preload}, {"VIRTUAL_BOARD", board.folder()}, {"LC_ALL", "C"}};
}

std::unique_ptr<Process> startClient(const Board& board, const std::vector<std::string>& command,
                                     bool keepInput) {
    Process::Start start;
    start.command = command;
    start.environment = boardEnvironment(board);
    start.folder = board.folder();
    start.keepInput = keepInput;
    return std::make_unique<Process>(start);
}

ClientResult runClient(const Board& board, const std::vector<std::string>& command,
                       Milliseconds patience) {
    const std::unique_ptr<Process> program = startClient(board, command);
    const std::optional<int> status = program->waitForEnd(patience);
    if (!status) {
        program->signal(SIGKILL);
        program->waitForEnd(Milliseconds(10000));
    }
    ClientResult result;
    result.ended = status.has_value();
    result.exitCode = status && WIFEXITED(*status) ? WEXITSTATUS(*status) : -1;
    result.out = program->out().text();
    result.err = program->err().text();
    EXPECT_TRUE(result.ended) << command.front() << " did not end in time\n"
                              << result.out << result.err;
    EXPECT_NE(result.exitCode, 127) << command.front() << " is not installed";
    return result;
}

}  // namespace support
