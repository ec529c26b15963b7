// A card's sound as WAV streams.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace board::console {

// Thread-safe. Keeps two seconds; a listener that is slower loses what lies before.
class SoundChannel {
  public:
    // Counts as a listener as long as it lives; hears what comes from then on.
    class Listener {
      public:
        explicit Listener(SoundChannel& channel);
        ~Listener();
        Listener(const Listener&) = delete;
        Listener& operator=(const Listener&) = delete;

        // The next bytes of a WAV file without an end, its head first; empty after `patience`
        // without sound, nothing when the card's rate became another one.
        std::optional<std::string> next(std::chrono::milliseconds patience);

      private:
        SoundChannel& channel_;
        std::uint64_t piece_;        // number of the next one
        std::uint32_t rate_Hz_ = 0;  // as the head says; 0: it was not sent yet
    };

    // Left and right of each frame.
    void publish(std::uint32_t rate_Hz, std::vector<std::int16_t> stereo);
    bool hasListeners() const;

  private:
    struct Piece {
        std::uint32_t rate_Hz;
        std::vector<std::int16_t> stereo;
    };

    mutable std::mutex lock_;
    std::condition_variable changed_;
    std::deque<Piece> pieces_;
    std::uint64_t nextPiece_ = 0;
    std::size_t samples_ = 0;
    unsigned listeners_ = 0;
};

}  // namespace board::console
