// What is at the other end of a card's streams: the microphone's surroundings, the listener. Loop
// thread only.
#pragma once

#include "board/daemon/jobworker.h"
#include "board/daemon/sound/pcmstream.h"
#include "board/daemon/sound/soundrecorder.h"
#include "board/daemon/sound/soundsource.h"
#include "board/daemon/sound/soundtap.h"

#include <functional>
#include <memory>
#include <string>

namespace board {

// Fills a recording from a source. Every stream hears it from its own start on.
class Voice : public SoundEnd {
  public:
    // All must outlive the voice.
    Voice(Board& board, JobWorker& worker) : board_(board), worker_(worker), tap_(board) {}
    SoundTap& tap() { return tap_; }

    // A generator's name or a media file, from the next start on. `done` gets an error line (empty
    // on success), at once or later.
    void hear(const std::string& name, const std::function<void(const std::string&)>& done);

    void prepare(const SoundFormat& format) override;
    void begin(const SoundFormat& format) override;
    void move(std::uint8_t* frames, std::uint32_t count) override;
    void skip(std::uint64_t frames) override { frame_ += frames; }
    void event(const char* what, std::int64_t /*board_ns*/, std::int64_t /*left*/) override {
        tap_.event(what);
    }

  private:
    using Loaded = std::function<void(const std::string& error)>;
    void load(const std::string& path, std::uint32_t rate_Hz, const Loaded& done);

    Board& board_;
    JobWorker& worker_;
    SoundTap tap_;
    std::shared_ptr<const SoundSource> generator_ = makeGenerator("sweep");  // null: the file
    std::string path_;
    std::shared_ptr<const SoundSource> clip_;  // path_ at clipRate_Hz_; null while it is read
    std::uint32_t clipRate_Hz_ = 0;
    std::shared_ptr<bool> living_ = std::make_shared<bool>(true);

    std::shared_ptr<const SoundSource> source_;  // of the running stream; null: silence so far
    SoundFormat format_;
    std::uint64_t frame_ = 0;
};

// Takes what is played.
class Ear : public SoundEnd {
  public:
    Ear(Board& board, JobWorker& worker) : recorder_(board.loop(), worker), tap_(board) {}
    SoundTap& tap() { return tap_; }
    SoundRecorder& recorder() { return recorder_; }

    void prepare(const SoundFormat& /*format*/) override {}
    void begin(const SoundFormat& format) override {
        format_ = format;
        recorder_.format(format);
    }
    void move(std::uint8_t* frames, std::uint32_t count) override {
        recorder_.frames(frames, count);
        tap_.moved(format_, frames, count);
    }
    void skip(std::uint64_t /*frames*/) override {}
    void event(const char* what, std::int64_t board_ns, std::int64_t left) override {
        recorder_.event(what, board_ns, left);
        tap_.event(what);
    }

  private:
    SoundRecorder recorder_;
    SoundTap tap_;
    SoundFormat format_;
};

}  // namespace board
