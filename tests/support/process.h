// A program that a test starts: its output line by line, its end, what it uses of the machine.
#pragma once

#include "tests/support/lines.h"

#include <sys/types.h>

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace support {

// What /proc says about a running process.
struct ProcessFigures {
    unsigned descriptors = 0;
    unsigned threads = 0;
    unsigned mappings = 0;
    unsigned deviceMappings = 0;  // those of a device's buffers
    double cpu_s = 0;             // user and system together
    std::uint64_t resident_kB = 0;
};

class Process {
  public:
    struct Start {
        std::vector<std::string> command;                // the first is a path or found in PATH
        std::map<std::string, std::string> environment;  // added to the test's own
        std::string folder;                              // working folder; empty: the test's
        bool keepInput = false;  // standard input stays open until closeInput() (else /dev/null)
    };

    // Starts at once; throws std::runtime_error when it cannot. The program is killed when the
    // test's thread that started it ends.
    explicit Process(const Start& start);
    // Kills it if it still runs.
    ~Process();
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    pid_t pid() const { return pid_; }
    Lines& out() { return *out_; }
    Lines& err() { return *err_; }
    const Lines& out() const { return *out_; }
    const Lines& err() const { return *err_; }

    void closeInput();
    void signal(int number);
    bool running();
    // The wait status once it ended, nothing after the deadline (scaled). All output is read then.
    std::optional<int> waitForEnd(Milliseconds patience);

    ProcessFigures figures() const;
    // Names of the threads, as the kernel knows them (15 characters).
    std::vector<std::string> threadNames() const;
    // Targets of the open descriptors.
    std::vector<std::string> descriptorTargets() const;

  private:
    pid_t pid_ = -1;
    int pidDescriptor_ = -1;
    int input_ = -1;
    std::optional<int> status_;
    std::unique_ptr<Lines> out_;
    std::unique_ptr<Lines> err_;
};

// "exit 0", "signal 15": a wait status in words.
std::string describeStatus(int status);

}  // namespace support
