// The board's page in a test: the console's program, on a port of its own.
#pragma once

#include "tests/support/application.h"
#include "tests/support/board.h"
#include "tests/support/process.h"

#include <string>

namespace support {

// Ends with the object: SIGTERM, and an expectation that it ends with 0 soon, whoever is connected.
class Console {
  public:
    // The log that it shows is read from files in the board's folder: `writeLog` adds to it.
    explicit Console(Board& board);
    ~Console();
    Console(const Console&) = delete;
    Console& operator=(const Console&) = delete;

    unsigned short port() const { return port_; }
    Process& process() { return process_; }
    void writeLog(const std::string& text);
    void end();

  private:
    std::string logPath_;
    Process process_;
    unsigned short port_ = 0;
    bool ended_ = false;
};

}  // namespace support
