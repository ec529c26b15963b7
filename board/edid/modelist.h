// The modes of a display while its EDID is read.
#pragma once

#include <vector>

#include "board/daemon/scenario.h"

namespace board {

class ModeList {
  public:
    // A mode that stands there with the same timing and clock is not repeated; its type is added.
    void add(const DisplayMode& mode);
    const std::vector<DisplayMode>& modes() const { return modes_; }
    // Preferred first, then by size, rate and clock.
    std::vector<DisplayMode> sorted() const;

  private:
    std::vector<DisplayMode> modes_;
};

}  // namespace board
