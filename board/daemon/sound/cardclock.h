// A sound card's own clock: board time, wrong by some parts in a million, and able to stand still.
#pragma once

#include "board/daemon/board.h"

#include <cstdint>

namespace board {

class CardClock {
  public:
    explicit CardClock(const Board& board, std::int32_t error_ppm = 0);

    // The card's time starts anywhere and never runs backwards.
    std::int64_t now_ns() const { return at(board_.clock().now_ns()); }
    std::int64_t at(std::int64_t board_ns) const;
    // The board time at which the card's will be `card_ns`; only while it runs.
    std::int64_t toBoard(std::int64_t card_ns) const;

    void setError(std::int32_t error_ppm);  // above -1000000
    void setStopped(bool stopped);
    std::int32_t error_ppm() const { return error_ppm_; }
    bool stopped() const { return stopped_; }

  private:
    std::int64_t factor() const;  // card time passes factor() / 1000000 times as fast
    void rebase();

    const Board& board_;
    std::int32_t error_ppm_;
    bool stopped_ = false;
    std::int64_t fromBoard_ns_ = 0, fromCard_ns_ = 0;
};

// Frames at `rate_Hz` in a length of time, whole ones; and the time that so many take, rounded up.
std::int64_t framesIn(std::int64_t length_ns, std::uint32_t rate_Hz);
std::int64_t lengthOf_ns(std::int64_t frames, std::uint32_t rate_Hz);

}  // namespace board
