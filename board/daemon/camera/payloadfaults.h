// Which of a camera's next payloads are damaged, and how. Loop thread only.
#pragma once

#include "board/media/payloaddamage.h"

#include <cstdint>
#include <optional>
#include <random>

namespace board {

class PayloadFaults {
  public:
    // The next `count` frames have this fault. What chance decides follows from the seed.
    void plan(PayloadFault fault, unsigned count, std::uint32_t seed);
    // From now on this many of a thousand frames have a fault, any of those that the format can
    // have; 0: none any more.
    void mix(unsigned perMille, std::uint32_t seed);

    // The next frame's fault, if any; then the order's frames are one fewer.
    std::optional<PayloadFault> next(std::uint32_t fourcc);
    std::mt19937& random() { return random_; }

  private:
    std::mt19937 random_;
    PayloadFault fault_ = PayloadFault::truncate;
    unsigned frames_ = 0;
    unsigned perMille_ = 0;
};

}  // namespace board
