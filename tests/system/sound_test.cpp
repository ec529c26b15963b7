// The camera's sound through the shipped application: unchanged where the output takes it, at the
// right pitch and level where it has to be converted.

#include <gtest/gtest.h>

#include <cmath>

#include "tests/support/application.h"
#include "tests/system/soundbench.h"

namespace {

using support::Application;
using support::Board;
using support::MicrophoneKind;
using support::Milliseconds;

// Until the output has played so many more frames.
bool plays(Board& board, std::uint64_t frames) {
    const std::uint64_t before = board.sound("output").frames;
    return board.waitForSound(
        "output", [&](const auto& figures) { return figures.frames >= before + frames; },
        Milliseconds(20000 + frames / 16));  // no output here has less than 32 frames in 1 ms
}

bool has(Application& application, const std::string& line) {
    return application.out().count(line) > 0;
}

// What the output plays in the time of so many frames.
support::Recorded record(Board& board, std::uint64_t frames) {
    const std::string path = board.folder() + "/played.wav";
    board.recordSound(path);
    EXPECT_TRUE(plays(board, frames));
    board.stopSound();
    return support::readRecorded(path);
}

// Sample by sample; a frame is repeated at the end of a period only, and not in every period.
TEST(Sound, PassesUnchangedApartFromRepeatedFrames) {
    Board board(support::soundScenario({}, "ramp"));
    board.recordSound(board.folder() + "/played.wav");
    std::uint64_t xruns = 0;
    {
        Application application(board);
        application.expectPlaying();
        ASSERT_TRUE(plays(board, 48000 * (support::longRun() ? 60 : 3)));
        xruns = board.sound("output").xruns;
        EXPECT_EQ(board.sound("output").format, "S16_LE");
        EXPECT_EQ(board.sound("output").rate, 48000U);
        EXPECT_EQ(board.sound("microphone").periodFrames, 1024U);
        EXPECT_FALSE(has(application, "audio resample init succeed"));
        EXPECT_TRUE(has(application, "audio select first succeed"));
    }
    board.stopSound();
    const support::Recorded played = support::readRecorded(board.folder() + "/played.wav");
    ASSERT_EQ(played.channels, 2U);
    ASSERT_GE(played.frames(), 48000U);
    // The device's own silence after the last frame is not the application's.
    const support::Continuity seen = followRamp(played);
    std::printf("%zu frames played, %zu repeated, %zu jumps, %llu under-runs\n", played.frames(),
                seen.repeated, seen.jumps, (unsigned long long)xruns);
    EXPECT_LE(seen.jumps, 1U);
    for (const std::size_t at : seen.repeatedAt) {
        EXPECT_EQ(at % 1024, 1023U) << at;
    }
    EXPECT_LE(seen.repeated, played.frames() / 1024);
}

struct Source {
    unsigned rate, channels;
    bool plain;  // in the plain run too: every rate and every channel count once
};

std::ostream& operator<<(std::ostream& out, const Source& source) {
    return out << source.channels << " channels at " << source.rate << " Hz";
}

class SoundMatrix : public testing::TestWithParam<Source> {};

TEST_P(SoundMatrix, KeepsPitchAndLevel) {
    if (!GetParam().plain && !support::longRun()) {
        GTEST_SKIP() << "a long run";
    }
    MicrophoneKind kind;
    kind.rate = GetParam().rate;
    kind.channels = GetParam().channels;
    const unsigned wanted = kind.rate == 8000 ? 32000 : kind.rate == 16000 ? 44100 : kind.rate;
    Board board(support::soundScenario(kind, "tone:1000"));
    Application application(board);
    application.expectPlaying();
    ASSERT_TRUE(plays(board, wanted / 4));
    const support::Recorded played = record(board, wanted * 5 / 4);
    ASSERT_EQ(played.rate, wanted);
    ASSERT_EQ(played.channels, 2U);
    EXPECT_EQ(has(application, "audio resample init succeed"),
              !(kind.channels == 2 && kind.rate > 16000));
    for (const unsigned channel : {0U, 1U}) {
        const auto tone = measureTone(played, channel, 0, wanted);
        EXPECT_NEAR(tone.frequency_Hz, 1000.0, 1.0);
        EXPECT_NEAR(tone.amplitude, kind.channels == 1 ? 0.5 * M_SQRT1_2 : 0.5, 0.01);
    }
}

std::vector<Source> sources() {
    const unsigned plainChannels[] = {1, 2, 3, 8, 1};
    std::size_t place = 0;
    std::vector<Source> all;
    for (const unsigned rate : {48000U, 44100U, 32000U, 16000U, 8000U}) {
        for (const unsigned channels : {1U, 2U, 3U, 8U}) {
            all.push_back({rate, channels, channels == plainChannels[place]});
        }
        ++place;
    }
    return all;
}

INSTANTIATE_TEST_SUITE_P(Sources, SoundMatrix, testing::ValuesIn(sources()),
                         [](const testing::TestParamInfo<Source>& info) {
                             return std::to_string(info.param.rate) + "Hz" +
                                    std::to_string(info.param.channels) + "Channels";
                         });

TEST(Sound, FormatsThatNobodyTakesLeaveThePictureAlone) {
    MicrophoneKind kind;
    kind.format = "S24_3LE";
    Board board(support::soundScenario(kind, "tone:1000"));
    Application application(board);
    application.expectPlaying();
    EXPECT_TRUE(board.waitForDisplay([](const auto& figures) { return figures.shown > 10; },
                                     Milliseconds(10000)));
    EXPECT_TRUE(has(application, "audio select faild"));
    EXPECT_FALSE(has(application, "init audio capture"));
    EXPECT_FALSE(board.sound("output").open);
}

// Another rate and another period than asked for, the microphone's longer than 20000 bytes.
TEST(Sound, GrantedRatesAndPeriodsArePlayed) {
    Board board(support::soundScenario({}, "tone:1000"));
    board.grant("microphone", 44100, 5461);
    board.grant("output", 32000, 2048);
    Application application(board);
    application.expectPlaying();
    ASSERT_TRUE(plays(board, 32000));
    EXPECT_EQ(board.sound("microphone").periodFrames, 5461U);
    EXPECT_EQ(board.sound("output").periodFrames, 2048U);
    EXPECT_EQ(application.out().count("The rate 48000 Hz is not supported by your hardware."), 2U);
    EXPECT_TRUE(has(application, "==> Using 44100 Hz instead."));
    EXPECT_TRUE(has(application, "==> Using 32000 Hz instead."));
    EXPECT_TRUE(has(application, "period_bytes : 21844"));
}

TEST(Sound, SmallPeriodsArePlayedConverted) {
    if (!support::longRun()) {
        GTEST_SKIP() << "a long run";
    }
    MicrophoneKind kind;
    kind.channels = 1;
    Board board(support::soundScenario(kind, "tone:1000"));
    board.grant("microphone", 48000, 2048);
    board.grant("output", 48000, 512);
    Application application(board);
    application.expectPlaying();
    ASSERT_TRUE(plays(board, 12000));
    const support::Recorded played = record(board, 60000);
    // One frame in 512 may be a repeated one.
    EXPECT_NEAR(measureTone(played, 0, 0, 48000).frequency_Hz, 1000.0, 2.1);
}

}  // namespace
