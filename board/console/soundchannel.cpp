#include "board/console/soundchannel.h"

#include <algorithm>

namespace board::console {

namespace {

constexpr std::size_t kept_s = 2;

void append(std::string& text, std::uint32_t number, unsigned bytes) {
    for (unsigned i = 0; i < bytes; ++i)
        text += char(number >> (8 * i) & 0xff);
}

// Of a file whose length nobody knows.
std::string wavHead(std::uint32_t rate_Hz) {
    constexpr std::uint32_t unknown = 0xffffffff, channels = 2, sampleBytes = 2;
    std::string head = "RIFF";
    append(head, unknown, 4);
    head += "WAVEfmt ";
    append(head, 16, 4);
    append(head, 1, 2);  // PCM
    append(head, channels, 2);
    append(head, rate_Hz, 4);
    append(head, rate_Hz * channels * sampleBytes, 4);
    append(head, channels * sampleBytes, 2);
    append(head, sampleBytes * 8, 2);
    head += "data";
    append(head, unknown, 4);
    return head;
}

}  // namespace

SoundChannel::Listener::Listener(SoundChannel& channel) : channel_(channel) {
    const std::lock_guard<std::mutex> hold(channel_.lock_);
    piece_ = channel_.nextPiece_;
    ++channel_.listeners_;
}

SoundChannel::Listener::~Listener() {
    const std::lock_guard<std::mutex> hold(channel_.lock_);
    --channel_.listeners_;
}

std::optional<std::string> SoundChannel::Listener::next(std::chrono::milliseconds patience) {
    std::unique_lock<std::mutex> hold(channel_.lock_);
    channel_.changed_.wait_for(hold, patience, [this] { return piece_ < channel_.nextPiece_; });
    piece_ = std::max(piece_, channel_.nextPiece_ - channel_.pieces_.size());
    std::string bytes;
    for (; piece_ < channel_.nextPiece_; ++piece_) {
        const Piece& piece =
            channel_.pieces_[channel_.pieces_.size() - std::size_t(channel_.nextPiece_ - piece_)];
        if (rate_Hz_ == 0) {
            rate_Hz_ = piece.rate_Hz;
            bytes = wavHead(rate_Hz_);
        }
        if (rate_Hz_ != piece.rate_Hz)
            return bytes.empty() ? std::nullopt : std::optional<std::string>(bytes);
        for (const std::int16_t sample : piece.stereo)
            append(bytes, std::uint16_t(sample), 2);
    }
    return bytes;
}

void SoundChannel::publish(std::uint32_t rate_Hz, std::vector<std::int16_t> stereo) {
    const std::lock_guard<std::mutex> hold(lock_);
    if (listeners_ == 0 || stereo.empty())
        return;
    samples_ += stereo.size();
    pieces_.push_back({rate_Hz, std::move(stereo)});
    ++nextPiece_;
    while (samples_ > kept_s * 2 * std::max<std::size_t>(rate_Hz, 8000) && pieces_.size() > 1) {
        samples_ -= pieces_.front().stereo.size();
        pieces_.pop_front();
    }
    changed_.notify_all();
}

bool SoundChannel::hasListeners() const {
    const std::lock_guard<std::mutex> hold(lock_);
    return listeners_ > 0;
}

}  // namespace board::console
