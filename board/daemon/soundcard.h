// A sound card of the board: a control node and a PCM node for each direction, with the limits of a
// scenario and a clock of its own.
#pragma once

#include "board/daemon/board.h"
#include "board/daemon/soundlimits.h"
#include "board/daemon/watcher.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace board {

// One direction of a card: what its open stream is, what all its streams counted.
struct SoundFigures {
    bool open = false;
    std::string state;   // "RUNNING", ...; empty while nobody has it open
    std::string format;  // "S16_LE"; empty while nothing is chosen
    std::uint32_t rate_Hz = 0, channels = 0, periodFrames = 0, bufferFrames = 0;
    std::uint64_t frames = 0, periods = 0, starts = 0, xruns = 0, missing = 0;
    // Playback: written by the client and not played yet; capture: recorded and not read yet.
    std::uint64_t queuedFrames = 0;
};

class SoundCard {
  public:
    // The description is copied. Nothing is in place until plug().
    SoundCard(Board& board, const SoundDescription& description, unsigned number,
              std::int32_t clockError_ppm);
    ~SoundCard();

    // Puts the nodes in place. The number is the card's own, or the next that no descriptor of an
    // earlier plugging holds.
    void plug();
    void unplug();  // every call on an open descriptor answers ENODEV from now on
    bool plugged() const;
    unsigned number() const;  // of the plugged card
    const SoundDescription& description() const;
    void replaceDescription(const SoundDescription& description);  // at the next plug

    void stall(bool stalled);  // the card's clock stands still
    void setClockError(std::int32_t ppm);
    void breakOff();  // running streams have an under-run or over-run now
    void suspend();
    void wake(bool goOn);  // goOn: suspended streams go on by themselves
    // From the next opening on the card has this rate and this period only; 0: as described.
    void grant(std::uint32_t rate_Hz, std::uint32_t periodFrames);
    // The next `count` openings of a PCM node fail (0: all of them) with a positive errno.
    void failOpenings(int error, unsigned count);
    void clearFailures();
    // What the microphone hears from the next start of a recording: a generator ("sweep",
    // "tone:1000", "clicks", "noise", "ramp", "silence") or a media file. `done` gets an error line
    // (empty on success) on the loop's thread, perhaps at once.
    using Finished = std::function<void(const std::string& error)>;
    void hear(const std::string& source, const Finished& done);
    // What is played goes to a WAV file, the times of the periods to a table beside it (.csv).
    // An error line; empty when it has begun.
    std::string startRecording(const std::string& path);
    using Recorded = std::function<void(const std::string& error, const std::string& path,
                                        std::uint64_t frames)>;
    void stopRecording(const Recorded& done);  // when the files are finished

    // Told of what its microphone hears or its output plays; null: nobody. Must outlive this or be
    // taken back.
    void setWatcher(Watcher* watcher, wire::ViewCard card);

    SoundFigures figures(bool playback) const;
    unsigned openHandles() const;  // descriptors that clients hold, unplugged ones included

  private:
    class Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace board
