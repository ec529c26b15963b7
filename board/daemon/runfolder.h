// The folder of a run, held by one daemon at a time.
#pragma once

#include <string>

namespace board {

class RunFolder {
  public:
    // Creates the folder where needed. Throws std::runtime_error with one line when it cannot be
    // used or another daemon runs in it.
    explicit RunFolder(const std::string& path);
    ~RunFolder();  // removes the lock; the folder stays
    RunFolder(const RunFolder&) = delete;
    RunFolder& operator=(const RunFolder&) = delete;

    const std::string& path() const { return path_; }  // absolute

  private:
    std::string path_;
    std::string lockPath_;
    int lock_ = -1;
};

}  // namespace board
