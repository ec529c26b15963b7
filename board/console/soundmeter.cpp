#include "board/console/soundmeter.h"

#include "board/daemon/jsonfields.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace board::console {

namespace {

constexpr auto window = std::chrono::milliseconds(300);
constexpr std::size_t mostPieces = 4096;
constexpr double silence_dB = -100;

std::string decibels(const double (&ratios)[2]) {
    char text[64];
    double values[2];
    for (int side = 0; side < 2; ++side)
        values[side] =
            ratios[side] > 0 ? std::max(20 * std::log10(ratios[side]), silence_dB) : silence_dB;
    std::snprintf(text, sizeof text, "[%.1f, %.1f]", values[0], values[1]);
    return text;
}

}  // namespace

void SoundMeter::dropOld(Clock::time_point now) {
    while (!pieces_.empty() && (pieces_.size() > mostPieces || pieces_.front().came < now - window))
        pieces_.pop_front();
}

void SoundMeter::take(const std::vector<std::int16_t>& stereo, Clock::time_point now) {
    Piece piece;
    piece.came = now;
    const std::size_t frames = stereo.size() / 2;
    piece.frames = double(frames);
    for (std::size_t i = 0; i < stereo.size(); ++i) {
        const double sample = stereo[i] / 32768.0;
        piece.squares[i % 2] += sample * sample;
        piece.peaks[i % 2] = std::max(piece.peaks[i % 2], std::fabs(sample));
    }
    const std::lock_guard<std::mutex> hold(lock_);
    pieces_.push_back(piece);
    dropOld(now);
}

std::string SoundMeter::json(Clock::time_point now) {
    const std::lock_guard<std::mutex> hold(lock_);
    dropOld(now);
    if (pieces_.empty())
        return "null";
    double frames = 0, rms[2] = {}, peaks[2] = {};
    for (const Piece& piece : pieces_) {
        frames += piece.frames;
        for (int side = 0; side < 2; ++side) {
            rms[side] += piece.squares[side];
            peaks[side] = std::max(peaks[side], piece.peaks[side]);
        }
    }
    for (double& value : rms)
        value = frames > 0 ? std::sqrt(value / frames) : 0;
    return JsonFields().addRaw("rms_dB", decibels(rms)).addRaw("peak_dB", decibels(peaks)).object();
}

}  // namespace board::console
