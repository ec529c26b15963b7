// A stream of sound: its states, its pointers, what moves them. Every function that stands for an
// ioctl returns 0 (or what the ioctl returns) or -errno, and never waits: -EAGAIN says that the
// client shall wait for its descriptor and try again. Loop thread only.
#pragma once

#include "board/daemon/board.h"
#include "board/daemon/sound/cardclock.h"
#include "board/daemon/sound/hardwarespace.h"
#include "board/daemon/sound/pcmsignal.h"
#include "board/daemon/sound/soundring.h"

#include <sound/asound.h>

#include <cstdint>
#include <functional>
#include <memory>

namespace board {

// What a stream counted; outlives it.
struct StreamFigures {
    std::uint64_t frames = 0;   // played or recorded
    std::uint64_t periods = 0;  // whole ones
    std::uint64_t starts = 0;
    std::uint64_t xruns = 0;    // under-runs or over-runs, also those by order
    std::uint64_t missing = 0;  // frames that the card had to play and nobody had written
};

// The world at the other end of a stream: what is heard, or what listens.
class SoundEnd {
  public:
    virtual ~SoundEnd() = default;
    virtual void prepare(const SoundFormat& format) = 0;  // chosen: the stream may start soon
    virtual void begin(const SoundFormat& format) = 0;    // the stream starts
    // Capture: the next frames are wanted. Playback: these were played.
    virtual void move(std::uint8_t* frames, std::uint32_t count) = 0;
    virtual void skip(std::uint64_t frames) = 0;  // frames that nobody will see
    // "start", "period" (a whole one has passed), and what ends it: "xrun", "drained", "drop", ...
    // `left`: frames that are written and not yet played.
    virtual void event(const char* what, std::int64_t board_ns, std::int64_t left) = 0;
};

class PcmStream {
  public:
    // All must outlive the stream. `stateChanged` gets the bits of the client's state word.
    struct Parts {
        Board& board;
        CardClock& clock;
        SoundEnd& end;
        StreamFigures& figures;
        const HardwareSpace& space;
        std::function<void(std::uint32_t bits)> stateChanged;
    };
    PcmStream(const Parts& parts, bool playback);  // throws std::system_error
    ~PcmStream();
    PcmStream(const PcmStream&) = delete;
    PcmStream& operator=(const PcmStream&) = delete;

    bool playback() const { return playback_; }
    int state() const { return state_; }
    const SoundFormat& format() const { return format_; }
    int clientDescriptor() const { return signal_.clientDescriptor(); }

    // Frames between the client and the card: written and not played, or recorded and not read.
    std::uint64_t queued() const;

    void catchUp();  // pointers, state and figures are those of this moment

    int setHardware(snd_pcm_hw_params& params);
    int freeHardware();
    int setSoftware(snd_pcm_sw_params& params);
    int setTimestamps(std::int32_t type);
    int prepare();
    int reset();
    int start();
    int drop();
    int drain();
    int pause(bool on);
    int resume();
    int overrun();  // the ioctl that stops a stream as an under-run does
    int synchronise();
    int delay(snd_pcm_sframes_t& frames);
    void status(snd_pcm_status& status);
    int pointers(snd_pcm_sync_ptr& pointers);
    int channel(snd_pcm_channel_info& info) const;
    std::int64_t rewind(snd_pcm_uframes_t frames);
    std::int64_t forward(snd_pcm_uframes_t frames);
    // Frames moved, as many as can be at once. `blocking`: the client waits when it is told to.
    std::int64_t transfer(std::uint8_t* data, std::uint64_t frames, bool blocking);

    // The ring, while there is a set-up; mappings keep it from being changed.
    const SoundRing* ring() const { return ring_.get(); }
    void mapped(int change) { mappings_ += change; }

    // What happens to a card.
    void suspend();
    void wake();      // a suspended stream goes on as it was
    void breakOff();  // an under-run or over-run now
    void disconnect();
    void clockChanging();  // called before and
    void clockChanged();   // after the card's clock is set

    // Whether the card sleeps: nothing starts again until it is awake.
    bool asleep = false;

  private:
    using Frames = snd_pcm_uframes_t;

    bool running() const {
        return state_ == SNDRV_PCM_STATE_RUNNING ||
               (state_ == SNDRV_PCM_STATE_DRAINING && playback_);
    }
    Frames available() const;
    std::int64_t written() const {
        return std::int64_t(format_.bufferFrames) - std::int64_t(available());
    }
    int accessible() const;
    int usable() const;
    void update();
    void advance(std::int64_t frames);
    void moveThroughRing(std::int64_t frames);
    void passOver(std::int64_t frames);
    void pastPeriod();
    void report(const char* what);
    void checkBounds();
    void become(int state);
    void run();
    void stop(int state, const char* why);
    void arm();
    void interrupt();
    void refresh();
    bool pollReady() const;
    void fillStatus(snd_pcm_mmap_status& status) const;
    std::int64_t moveChunk(std::uint8_t* data, std::uint64_t frames);
    std::int64_t shift(snd_pcm_uframes_t frames, std::int64_t possible, int sign);
    std::int64_t now_ns() const;

    Parts parts_;
    const bool playback_;
    PcmSignal signal_;
    std::unique_ptr<SoundRing> ring_;
    int mappings_ = 0;
    int state_ = SNDRV_PCM_STATE_OPEN;
    int suspendedState_ = SNDRV_PCM_STATE_OPEN;
    SoundFormat format_;

    Frames hardware_ = 0, application_ = 0;  // modulo boundary_
    Frames boundary_ = 0, availMin_ = 0, startThreshold_ = 1, stopThreshold_ = 0;
    Frames wakeAt_ = 0;  // a blocked transfer waits for so many; 0: none
    Frames mostAvailable_ = 0;
    int timestampMode_ = SNDRV_PCM_TSTAMP_NONE;
    int timestampType_ = SNDRV_PCM_TSTAMP_TYPE_GETTIMEOFDAY;
    std::int64_t triggered_ns_ = 0, updated_ns_ = 0;

    // Position since the stream ran last: baseFrames_ at the card's time base_ns_.
    std::int64_t base_ns_ = 0, baseFrames_ = 0;
    std::int64_t done_ = 0;           // frames since the start
    std::int64_t nextInterrupt_ = 0;  // in the same count
    EventLoop::TimerId timer_ = 0;
    std::int64_t lastInterrupt_ns_ = 0;  // the machine's clock
    std::uint32_t told_ = 0;             // bits that the client knows
};

}  // namespace board
