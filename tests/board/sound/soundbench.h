// A board for streams without clients: its loop runs while a test waits.
#pragma once

#include "board/daemon/board.h"
#include "board/daemon/sound/pcmstream.h"

#include <sound/asound.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace soundbench {

class Bench : public board::Board {
  public:
    explicit Bench(std::uint32_t speed = 1);

    board::EventLoop& loop() override { return loop_; }
    const board::BoardClock& clock() const override { return clock_; }
    void addNode(const std::string&, unsigned, unsigned, board::Device&) override {}
    void removeNode(const std::string&) override {}
    void setHandleState(std::uint32_t, std::uint32_t) override {}
    void log(const std::string&) override {}

    // Runs the loop until `done` holds; false after five (scaled) seconds.
    bool runUntil(const std::function<bool()>& done);
    void runFor(std::int64_t board_ns);

  private:
    board::EventLoop loop_;
    board::BoardClock clock_;
};

// Notes what a stream tells its other end; hears 1, 2, 3, ... in stereo S16.
class Notes : public board::SoundEnd {
  public:
    void prepare(const board::SoundFormat&) override {}
    void begin(const board::SoundFormat& format) override { frameBytes = format.frameBytes(); }
    void move(std::uint8_t* frames, std::uint32_t count) override;
    void skip(std::uint64_t frames) override { next += std::uint32_t(frames); }
    void event(const char* what, std::int64_t board_ns, std::int64_t) override {
        events.emplace_back(what);
        times.push_back(board_ns);
    }
    std::size_t countOf(const std::string& event) const;

    bool hears = false;  // capture: fills; playback: keeps
    std::uint32_t next = 0, frameBytes = 4;
    std::vector<std::uint8_t> played;
    const std::uint8_t *lowest = nullptr, *highest = nullptr;  // of all frames that were moved
    std::vector<std::string> events;
    std::vector<std::int64_t> times;
};

// Everything possible; then one parameter after the other is set.
snd_pcm_hw_params anyParameters();
void setFormat(snd_pcm_hw_params& params, int format);
void set(snd_pcm_hw_params& params, int parameter, std::uint32_t least, std::uint32_t most);
inline void set(snd_pcm_hw_params& params, int parameter, std::uint32_t value) {
    set(params, parameter, value, value);
}

constexpr std::uint32_t period = 480;

// A stream of stereo S16 at 48 kHz with periods of 480 frames (10 ms). Many of them, where a busy
// machine must not make an under-run.
struct Rig {
    explicit Rig(bool playback, std::uint32_t speed = 1, bool resume = true);
    void prepare(std::uint32_t periods = 100);
    std::int64_t write(std::size_t frames) {
        std::vector<std::uint8_t> data(frames * 4, 7);
        return stream->transfer(data.data(), frames, false);
    }
    std::int64_t read(std::size_t frames) {
        heard.assign(frames * 4, 0);
        return stream->transfer(heard.data(), frames, false);
    }
    bool readable(short events) const;  // what the client's descriptor says

    Bench bench;
    board::CardClock clock;
    Notes notes;
    board::StreamFigures figures;
    board::HardwareSpace space;
    std::uint32_t bits = 0;
    std::uint32_t buffer = 0;  // frames
    std::vector<std::uint8_t> heard;
    std::unique_ptr<board::PcmStream> stream;
};

}  // namespace soundbench
