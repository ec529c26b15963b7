// Which delivery a picture on the screen was, when its mark only says its place in a loop. Loop
// thread only.
#pragma once

#include "board/media/stamp.h"

#include <cstdint>
#include <map>
#include <optional>

namespace board {

class LoopNumbers {
  public:
    void clear() { latest_.clear(); }
    void note(std::uint32_t mark, const Stamp& delivery) { latest_[mark] = delivery; }

    // The stamp with number and time. One that has them is left alone, but not while a loop is
    // sent: it is none of its pictures'. Nothing when the picture was not delivered since clear().
    // Loops are longer than what can be under way.
    std::optional<Stamp> resolve(const Stamp& stamp) const {
        if (stamp.time_100us != stampInLoop)
            return latest_.empty() ? std::optional<Stamp>(stamp) : std::nullopt;
        const auto found = latest_.find(stamp.frame);
        return found == latest_.end() ? std::nullopt : std::optional<Stamp>(found->second);
    }

  private:
    std::map<std::uint32_t, Stamp> latest_;
};

}  // namespace board
