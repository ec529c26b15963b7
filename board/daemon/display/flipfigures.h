// What the completed flips say about the pictures that reached the screen.
#pragma once

#include "board/daemon/display.h"
#include "board/media/stamp.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace board {

// What one flip did.
struct FlipStep {
    bool isNew = false;         // its picture carries a mark that was not on screen before
    bool repeated = false;      // its mark is that of the marked picture before
    std::uint32_t skipped = 0;  // frame numbers left out since that one
};

class FlipFigures {
  public:
    // One completed flip; `now_100us` is board time modulo 2^32; `overwritten`: the mark is not the
    // one that the picture carried when the flip was asked for.
    FlipStep count(const std::optional<Stamp>& stamp, std::uint32_t now_100us,
                   bool overwritten = false);
    // Percentiles are of the last `window` new pictures.
    DisplayFigures figures() const;
    void reset();

    static constexpr std::size_t window = 4096;

  private:
    DisplayFigures counts_;
    std::optional<std::uint32_t> lastFrame_;
    std::vector<std::uint32_t> latencies_100us_;  // a ring once `window` long
    std::size_t nextLatency_ = 0;
};

}  // namespace board
