// The lines that a running program writes to a pipe, as they come.
#pragma once

#include "tests/support/environment.h"

#include <condition_variable>
#include <cstddef>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace support {

// Thread-safe. Owns the reading end of the pipe and a thread that reads it.
class Lines {
  public:
    explicit Lines(int readEnd);
    ~Lines();
    Lines(const Lines&) = delete;
    Lines& operator=(const Lines&) = delete;

    // All complete lines so far, without their line ends; a last line without an end counts once
    // the pipe is closed.
    std::vector<std::string> all() const;
    std::vector<std::string> from(std::size_t first) const;
    std::size_t size() const;
    std::string text() const;

    // Waits for the first line at or after `first` for which `wanted` is true; its index, or
    // nothing after the deadline (scaled) or when the pipe was closed without it.
    std::optional<std::size_t> waitFor(const std::function<bool(const std::string&)>& wanted,
                                       Milliseconds patience, std::size_t first = 0) const;
    std::optional<std::size_t> waitForExactly(const std::string& line, Milliseconds patience,
                                              std::size_t first = 0) const;
    std::optional<std::size_t> waitForMatch(const std::string& regex, Milliseconds patience,
                                            std::size_t first = 0) const;
    std::size_t count(const std::string& line, std::size_t first = 0) const;

    // Takes what is still in the pipe and ends the thread, also when somebody else (a child of the
    // program) keeps the writing end open.
    void finish();

  private:
    void read();
    bool take();

    int readEnd_;
    int stopEvent_;
    mutable std::mutex lock_;
    mutable std::condition_variable changed_;
    std::vector<std::string> lines_;
    std::string partial_;
    bool closed_ = false;
    std::thread thread_;
};

}  // namespace support
