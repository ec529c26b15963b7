#include "board/daemon/sound/cardclock.h"

namespace board {

namespace {

constexpr std::int64_t million = 1000000;
constexpr std::int64_t second_ns = 1000000000;

// value * factor / divisor without overflow for values of years in nanoseconds, rounded down.
std::int64_t scaled(std::int64_t value, std::int64_t factor, std::int64_t divisor) {
    return value / divisor * factor + value % divisor * factor / divisor;
}

std::int64_t scaledUp(std::int64_t value, std::int64_t factor, std::int64_t divisor) {
    return value / divisor * factor + (value % divisor * factor + divisor - 1) / divisor;
}

}  // namespace

CardClock::CardClock(const Board& board, std::int32_t error_ppm)
    : board_(board), error_ppm_(error_ppm), fromBoard_ns_(board.clock().now_ns()) {}

std::int64_t CardClock::factor() const {
    return stopped_ ? 0 : million + error_ppm_;
}

std::int64_t CardClock::at(std::int64_t board_ns) const {
    const std::int64_t passed = board_ns - fromBoard_ns_;
    return passed <= 0 ? fromCard_ns_ : fromCard_ns_ + scaled(passed, factor(), million);
}

std::int64_t CardClock::toBoard(std::int64_t card_ns) const {
    const std::int64_t ahead = card_ns - fromCard_ns_;
    return ahead <= 0 ? fromBoard_ns_ : fromBoard_ns_ + scaledUp(ahead, million, factor());
}

void CardClock::rebase() {
    const std::int64_t now = board_.clock().now_ns();
    fromCard_ns_ = at(now);
    fromBoard_ns_ = now;
}

void CardClock::setError(std::int32_t error_ppm) {
    rebase();
    error_ppm_ = error_ppm;
}

void CardClock::setStopped(bool stopped) {
    rebase();
    stopped_ = stopped;
}

std::int64_t framesIn(std::int64_t length_ns, std::uint32_t rate_Hz) {
    return length_ns <= 0 ? 0 : scaled(length_ns, rate_Hz, second_ns);
}

std::int64_t lengthOf_ns(std::int64_t frames, std::uint32_t rate_Hz) {
    return frames <= 0 ? 0 : scaledUp(frames, second_ns, rate_Hz);
}

}  // namespace board
