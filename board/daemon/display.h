// The board's display: a KMS card with one connector, encoder, CRTC and plane.
#pragma once

#include "board/daemon/board.h"
#include "board/daemon/scenario.h"
#include "board/daemon/watcher.h"
#include "board/media/stamp.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace board {

struct DisplayFigures {
    std::uint64_t flips = 0;        // completed page flips
    std::uint64_t shown = 0;        // flips to a picture with a readable stamp
    std::uint64_t repeated = 0;     // flips to the same frame number again
    std::uint64_t skipped = 0;      // frame numbers left out between two shown frames
    std::uint64_t outOfOrder = 0;   // flips to a smaller frame number than the one before
    std::uint64_t overwritten = 0;  // flips whose picture was drawn over before it came on screen
    std::uint32_t lastFrame = 0;
    double latencyMedian_ms = 0, latencyP95_ms = 0, latencyP99_ms = 0;  // camera frame to flip
    std::string mode;  // "1920x1080@60", empty when no CRTC is set
};

// What is on screen, in memory that another process can map.
struct OnScreen {
    std::uint64_t change = 0;  // another number whenever something else is on screen
    wire::ViewPicture picture{};
    // The display's, valid until control returns to the loop; -1: none.
    int descriptors[2] = {-1, -1};
};

class Display {
  public:
    Display(Board& board, const DisplayDescription& description);
    ~Display();

    void addCard();  // puts /dev/dri/card0 in place: the card is there also without a display
    void plug();     // connects the display
    void unplug();   // connector disconnected; flips go on completing
    bool plugged() const;
    void replaceDescription(const DisplayDescription& description);  // at once, as after a hot-plug

    // How a mark that only says its place in a loop gets its number and time; nothing: not counted.
    using StampLookup = std::function<std::optional<Stamp>(const Stamp& stamp)>;
    void setStampLookup(StampLookup lookup);

    // Told of everything that comes on screen; null: nobody. Must outlive this or be taken back.
    void setWatcher(Watcher* watcher);
    OnScreen onScreen() const;

    void holdFlips(bool held);  // flips are accepted and complete only when released
    void loseFlipEvent();       // the next flip completes, but nobody is told
    DisplayFigures figures() const;
    void resetFigures();

    // What is on screen now, to a PNG file; `done` gets an error line, empty on success. The file
    // is written on another thread, `done` runs on the loop's.
    void picture(const std::string& path, const std::function<void(const std::string&)>& done);
    // Records the screen as a video (H.264 or MPEG-4 in a .mp4, at most 30 pictures a second) until
    // stopped. Empty on success, an error line otherwise.
    std::string startRecording(const std::string& path);
    void stopRecording(const std::function<void(const std::string&)>& done);
    // Keeps an exact copy of the next `count` scanned-out pictures (at most 64) and writes them to
    // `folder` as NNN.nv12 (rows without padding) plus index.json: file, frame number, width,
    // height, flip time. For comparisons by tests.
    void dumpFrames(const std::string& folder, unsigned count,
                    std::function<void(const std::string&)> done);

  private:
    class Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace board
