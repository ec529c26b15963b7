// Sound bytes on their way from one thread to another, oldest first. No limit: it grows.
#pragma once

#include <cstddef>
#include <mutex>
#include <vector>

// Thread-safe.
class ByteFifo {
  public:
    void push(const unsigned char* data, unsigned int length);
    // Takes at most `length` bytes from the front; how many. The time does not depend on how many
    // stay behind.
    unsigned int pop(unsigned char* out, unsigned int length);
    unsigned int length() const;  // bytes held
    void clear();

  private:
    mutable std::mutex lock_;
    std::vector<unsigned char> bytes_;
    std::size_t front_ = 0;  // what stands before it was taken
};
