// How loud a sound card was just now.
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <vector>

namespace board::console {

// Thread-safe.
class SoundMeter {
  public:
    using Clock = std::chrono::steady_clock;

    void take(const std::vector<std::int16_t>& stereo, Clock::time_point now);
    // {"rms_dB": [left, right], "peak_dB": [left, right]} of the last 300 ms, in dB below full
    // scale; null when there was no sound at all.
    std::string json(Clock::time_point now);

  private:
    struct Piece {
        Clock::time_point came;
        double frames = 0;
        double squares[2] = {};  // sums, of samples where full scale is 1
        double peaks[2] = {};
    };
    void dropOld(Clock::time_point now);

    std::mutex lock_;
    std::deque<Piece> pieces_;
};

}  // namespace board::console
