// What a client of the sound hears while foreign programs record and play.

#include <gtest/gtest.h>
#include <sound/asound.h>

#include <algorithm>
#include <csignal>
#include <filesystem>

#include "tests/board/views/viewclient.h"
#include "tests/support/client.h"

namespace {

using support::Board;
using support::Milliseconds;
using views::Packet;
using views::ViewClient;
namespace wire = board::wire;

// All samples of a WAV file.
std::vector<std::uint8_t> samplesOf(const std::string& path) {
    const std::string file = support::readFile(path);
    const std::size_t at = file.find("data");
    if (file.compare(0, 4, "RIFF") != 0 || at == std::string::npos)
        throw std::runtime_error(path + ": no WAV file");
    return {file.begin() + std::ptrdiff_t(at) + 8, file.end()};
}

class SoundView : public testing::Test {
  protected:
    SoundView() : folder_(support::makeTemporaryFolder("views-")) {
        support::writeFile(folder_ + "/scenario.json", R"({"name": "sound", "camera": null,
            "display": null, "hears": "noise", "microphone": "synthetic-microphone",
            "output": "synthetic-output"})");
        board_ = std::make_unique<Board>(folder_ + "/scenario.json");
    }
    ~SoundView() override { std::filesystem::remove_all(folder_); }

    // Takes packets until so many frames have come; all of one stream, without a gap.
    void listen(ViewClient& client, wire::ViewCard card, std::uint64_t frames) {
        while (frames_ < frames) {
            const auto packet = client.receive();
            ASSERT_TRUE(packet) << "after " << frames_ << " frames of " << frames;
            const auto sound = packet->as<wire::ViewSound>();
            EXPECT_EQ(sound.card, card);
            EXPECT_EQ(sound.rate_Hz, 48000u);
            EXPECT_EQ(sound.channels, 2u);
            EXPECT_EQ(sound.format, std::uint32_t(SNDRV_PCM_FORMAT_S16_LE));
            EXPECT_EQ(sound.first, frames_);
            EXPECT_GE(sound.time_ns, time_ns_);
            ASSERT_EQ(packet->bytes().size(), sizeof sound + sound.frames * 4);
            samples_.insert(samples_.end(), packet->bytes().begin() + sizeof sound,
                            packet->bytes().end());
            frames_ += sound.frames;
            time_ns_ = sound.time_ns;
        }
    }

    std::string folder_;
    std::unique_ptr<Board> board_;
    std::vector<std::uint8_t> samples_;
    std::uint64_t frames_ = 0;
    std::int64_t time_ns_ = 0;
};

TEST_F(SoundView, MicrophoneIsWhatAProgramRecords) {
    ViewClient client(board_->folder(), wire::ViewKind::sound);
    const std::string path = folder_ + "/recorded.wav";
    const auto result =
        support::runClient(*board_, {"arecord", "-q", "-D", "hw:1,0", "-f", "S16_LE", "-r", "48000",
                                     "-c", "2", "-s", "24000", path});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    listen(client, wire::ViewCard::microphone, board_->sound("microphone").frames);
    const std::vector<std::uint8_t> recorded = samplesOf(path);
    ASSERT_GE(recorded.size(), 24000u * 4);
    ASSERT_GE(samples_.size(), recorded.size());
    EXPECT_TRUE(std::equal(recorded.begin(), recorded.end(), samples_.begin()));
    EXPECT_NE(std::count(recorded.begin(), recorded.end(), 0), std::ptrdiff_t(recorded.size()));
}

TEST_F(SoundView, OutputIsWhatARecordingOfItHolds) {
    // Noise to play, from the board's own microphone.
    const std::string noise = folder_ + "/noise.wav", played = folder_ + "/played.wav";
    ASSERT_EQ(support::runClient(*board_, {"arecord", "-q", "-D", "hw:1,0", "-f", "S16_LE", "-r",
                                           "48000", "-c", "2", "-s", "24000", noise})
                  .exitCode,
              0);
    ViewClient client(board_->folder(), wire::ViewKind::sound);
    board_->recordSound(played);
    const auto result = support::runClient(*board_, {"aplay", "-q", "-D", "hw:0,0", noise});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    const std::uint64_t frames = board_->stopSound();
    listen(client, wire::ViewCard::output, frames);
    EXPECT_EQ(frames_, frames);
    EXPECT_EQ(samples_, samplesOf(played));
    const std::vector<std::uint8_t> given = samplesOf(noise);
    ASSERT_GE(samples_.size(), given.size());
    EXPECT_TRUE(std::equal(given.begin(), given.end(), samples_.begin()));
    EXPECT_FALSE(client.receive(Milliseconds(0)));
}

TEST_F(SoundView, WhatAFullSocketDoesNotTakeIsAGap) {
    ViewClient client(board_->folder(), wire::ViewKind::sound);
    const auto program =
        support::startClient(*board_, {"arecord", "-q", "-D", "hw:1,0", "-f", "S16_LE", "-r",
                                       "48000", "-c", "2", "--period-size=480", "/dev/null"});
    // More than the socket takes.
    ASSERT_TRUE(board_->waitForSound(
        "microphone", [](const auto& now) { return now.frames >= 4 * 48000; },
        Milliseconds(30000)));
    std::uint64_t next = 0, gaps = 0;
    while (gaps == 0) {
        const auto packet = client.receive();
        ASSERT_TRUE(packet) << "after frame " << next;
        const auto sound = packet->as<wire::ViewSound>();
        ASSERT_GE(sound.first, next);
        gaps += sound.first > next ? 1 : 0;
        next = sound.first + sound.frames;
        ASSERT_LT(next, 48000u * 60) << "nothing was ever left out";
    }
    program->signal(SIGINT);
    EXPECT_TRUE(program->waitForEnd(Milliseconds(10000)));
}

}  // namespace
