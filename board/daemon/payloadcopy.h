// A copy of a payload in memory that can be handed to other processes and never changes.
#pragma once

#include <cstddef>
#include <cstdint>

namespace board {

class PayloadCopy {
  public:
    PayloadCopy(const std::uint8_t* payload, std::size_t bytes);
    ~PayloadCopy();
    PayloadCopy(const PayloadCopy&) = delete;
    PayloadCopy& operator=(const PayloadCopy&) = delete;

    bool made() const { return made_; }  // false: memory or descriptors ran out
    // Open for reading, this object's; -1 for a payload of 0 bytes.
    int descriptor() const { return descriptor_; }

  private:
    int descriptor_ = -1;
    bool made_ = false;
};

}  // namespace board
