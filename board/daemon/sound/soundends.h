// What is at the other end of a card's streams: the microphone's surroundings, the listener.
#pragma once

#include "board/daemon/sound/pcmstream.h"
#include "board/daemon/sound/soundsource.h"

#include <memory>

namespace board {

// Fills a recording from a source. Every stream hears it from its start on.
class Voice : public SoundEnd {
  public:
    void setSource(std::shared_ptr<const SoundSource> source) { next_ = std::move(source); }

    void begin(const SoundFormat& format) override;
    void move(std::uint8_t* frames, std::uint32_t count, std::int64_t left) override;
    void skip(std::uint64_t frames) override { frame_ += frames; }
    void event(const char* /*what*/) override {}

  private:
    std::shared_ptr<const SoundSource> next_, source_;
    SoundFormat format_;
    std::uint64_t frame_ = 0;
};

// Takes what is played.
class Ear : public SoundEnd {
  public:
    void begin(const SoundFormat& /*format*/) override {}
    void move(std::uint8_t* /*frames*/, std::uint32_t /*count*/, std::int64_t /*left*/) override {}
    void skip(std::uint64_t /*frames*/) override {}
    void event(const char* /*what*/) override {}
};

}  // namespace board
