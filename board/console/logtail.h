// A file that another process writes, line by line as it grows.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace board::console {

// Used by one thread.
class LogTail {
  public:
    explicit LogTail(std::string path) : path_(std::move(path)) {}
    ~LogTail();
    LogTail(const LogTail&) = delete;
    LogTail& operator=(const LogTail&) = delete;

    // Lines that were finished since the last call, without their ends; a line of more than 16 KB
    // comes in pieces. A file that was replaced or cut is read from its beginning; one that is not
    // there has no lines.
    std::vector<std::string> read();

  private:
    void open();

    std::string path_;
    int file_ = -1;
    ino_t inode_ = 0;
    off_t place_ = 0;
    std::string partial_;
};

// The text with U+FFFD in the place of each byte that is no UTF-8.
std::string toUtf8(const std::string& bytes);

}  // namespace board::console
