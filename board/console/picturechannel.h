// The latest picture of a live view, for any number of viewers.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

namespace board::console {

// Thread-safe. Whoever fetches late misses pictures; nothing is kept but the last one.
class PictureChannel {
  public:
    using Part = std::shared_ptr<const std::string>;  // of a multipart stream, head and picture

    // Counts as a viewer as long as it lives.
    class Viewer {
      public:
        explicit Viewer(PictureChannel& channel);
        ~Viewer();
        Viewer(const Viewer&) = delete;
        Viewer& operator=(const Viewer&) = delete;

        // One that this viewer has not had; after `patience` the last one again (null: there is
        // none yet).
        Part next(std::chrono::milliseconds patience);

      private:
        PictureChannel& channel_;
        std::uint64_t number_ = 0;
    };

    void publish(Part part);
    // What was published is of the past: viewers who come get nothing of it.
    void forget();
    bool hasViewers() const;
    // True as soon as there are viewers; false after `patience`.
    bool waitForViewers(std::chrono::milliseconds patience);

  private:
    mutable std::mutex lock_;
    std::condition_variable changed_;
    Part last_;
    std::uint64_t number_ = 0;
    unsigned viewers_ = 0;
};

}  // namespace board::console
