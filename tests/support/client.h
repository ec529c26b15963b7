// A foreign program on a virtual board.
#pragma once

#include "tests/support/board.h"
#include "tests/support/process.h"

#include <map>
#include <string>
#include <vector>

namespace support {

// The environment that lets a program see the board.
std::map<std::string, std::string> boardEnvironment(const Board& board);

struct ClientResult {
    bool ended = false;  // false: killed at the deadline
    int exitCode = -1;   // -1 when a signal ended it
    std::string out;
    std::string err;
};

// Runs the program to its end. A program that is not installed is a failure of the running test.
ClientResult runClient(const Board& board, const std::vector<std::string>& command,
                       Milliseconds patience = Milliseconds(20000));

// Starts it and leaves it running.
std::unique_ptr<Process> startClient(const Board& board, const std::vector<std::string>& command,
                                     bool keepInput = false);

}  // namespace support
