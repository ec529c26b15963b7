// What happens to a camera's payloads on their way.
#pragma once

#include "tests/unit/decode/streams.h"

#include <random>

class PayloadFaults {
  public:
    explicit PayloadFaults(unsigned seed) : random_(seed) {}

    // The payload with one or two faults. Larger than the packet buffers of both decoders once in
    // a while.
    streams::Bytes damaged(streams::Bytes payload);
    std::size_t below(std::size_t limit) { return limit == 0 ? 0 : random_() % limit; }

  private:
    void flipBits(streams::Bytes& payload);
    streams::Bytes noise(std::size_t bytes);
    void damage(streams::Bytes& payload, std::size_t fault);

    std::mt19937 random_;
};
