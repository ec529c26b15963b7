// Which delivery a picture on the screen was, when its mark only says its place in a loop. Loop
// thread only.
#pragma once

#include "board/media/stamp.h"

#include <cstdint>
#include <deque>
#include <map>
#include <optional>

namespace board {

class LoopNumbers {
  public:
    void clear() {
        deliveries_.clear();
        last_.reset();
        begin_ = 0;
    }
    // From this number on the places are another loop's. Those of the last one that were not
    // delivered again are kept: its pictures are still under way.
    void changeLoop(std::uint32_t first) { begin_ = first; }
    void note(std::uint32_t mark, const Stamp& delivery) {
        std::deque<Stamp>& rounds = deliveries_[mark];
        rounds.push_back(delivery);
        while (rounds.size() > 1 &&
               (rounds.size() > mostRounds || std::int32_t(rounds.front().frame - begin_) < 0))
            rounds.pop_front();
    }

    // The stamp with number and time. One that has them is left alone, but not while a loop is
    // sent: it is none of its pictures'. Nothing when the picture was not delivered since clear().
    //
    // A program that is held up for long may show a place of a loop that was delivered again
    // meanwhile. The round is the one that goes on from the last picture asked about; going back by
    // less than `mostBack` is told, and going back further where no later round can be meant.
    std::optional<Stamp> resolve(const Stamp& stamp) {
        if (stamp.time_100us != stampInLoop)
            return deliveries_.empty() ? std::optional<Stamp>(stamp) : std::nullopt;
        const auto found = deliveries_.find(stamp.frame);
        if (found == deliveries_.end())
            return std::nullopt;
        Stamp meant = found->second.back();
        for (const Stamp& round : found->second) {
            if (last_ && std::int32_t(round.frame - *last_) > -mostBack) {
                meant = round;
                break;
            }
        }
        last_ = meant.frame;
        return meant;
    }

    static constexpr std::int32_t mostBack = 128;  // of the shortest loop's 192

  private:
    static constexpr std::size_t mostRounds = 8;

    std::map<std::uint32_t, std::deque<Stamp>> deliveries_;  // the oldest first
    std::optional<std::uint32_t> last_;
    std::uint32_t begin_ = 0;
};

}  // namespace board
