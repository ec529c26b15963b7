// Tells a watcher what passes through one end of a card. Loop thread only.
#pragma once

#include "board/daemon/board.h"
#include "board/daemon/sound/hardwarespace.h"
#include "board/daemon/watcher.h"

#include <cstdint>
#include <cstring>

namespace board {

class SoundTap {
  public:
    explicit SoundTap(Board& board) : board_(board) {}

    void setWatcher(Watcher* watcher, wire::ViewCard card) {
        watcher_ = watcher;
        card_ = card;
    }

    void moved(const SoundFormat& format, const std::uint8_t* frames, std::uint32_t count) {
        const std::uint64_t first = count_;
        count_ += count;
        if (watcher_ == nullptr)
            return;
        wire::ViewSound about{};
        about.card = card_;
        about.rate_Hz = format.rate_Hz;
        about.channels = format.channels;
        about.format = std::uint32_t(format.format);
        about.frames = count;
        about.first = first;
        about.time_ns = board_.clock().now_ns();
        watcher_->soundMoved(about, frames, std::size_t(count) * format.frameBytes());
    }
    // `what`: as SoundEnd::event has it.
    void event(const char* what) {
        if (watcher_ != nullptr && std::strcmp(what, "period") != 0)
            watcher_->soundStopped(card_);
    }

  private:
    Board& board_;
    Watcher* watcher_ = nullptr;
    wire::ViewCard card_ = wire::ViewCard::microphone;
    std::uint64_t count_ = 0;  // frames over the card's life
};

}  // namespace board
