// Owner of one file descriptor.
#pragma once

#include <unistd.h>

class UniqueFd {
  public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) : fd_(fd) {}
    ~UniqueFd() { reset(); }
    UniqueFd(UniqueFd&& other) noexcept : fd_(other.release()) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept {
        if (this != &other) {
            reset(other.release());
        }
        return *this;
    }
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;

    int get() const { return fd_; }
    bool valid() const { return fd_ >= 0; }
    // Gives the descriptor away without closing it.
    int release() {
        const int fd = fd_;
        fd_ = -1;
        return fd;
    }
    // Closes the held descriptor, if any, and takes another. The result is that of close().
    int reset(int fd = -1) {
        const int result = fd_ >= 0 ? ::close(fd_) : 0;
        fd_ = fd;
        return result;
    }

  private:
    int fd_ = -1;
};
