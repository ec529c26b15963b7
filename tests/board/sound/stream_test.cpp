// A stream's states, pointers and clock, without a client.
#include "board/protocol/sharedpage.h"
#include "tests/board/sound/soundbench.h"

#include <gtest/gtest.h>
#include <poll.h>

#include <cerrno>
#include <climits>
#include <cstring>

namespace {

using soundbench::period;
using soundbench::Rig;

constexpr std::int64_t millisecond = 1000000;

TEST(CardClocks, ErrorsAndStandstill) {
    soundbench::Bench bench;
    board::CardClock clock(bench, 1000);
    const std::int64_t start = bench.clock().now_ns();
    const std::int64_t hour = 3600000000000;
    EXPECT_NEAR(double(clock.at(start + hour) - clock.at(start)), 1.001 * double(hour), 2);
    EXPECT_GE(clock.at(clock.toBoard(clock.at(start) + 12345)), clock.at(start) + 12345);
    clock.setStopped(true);
    const std::int64_t stood = clock.at(start + hour);
    EXPECT_EQ(clock.at(start + 2 * hour), stood);
    clock.setStopped(false);
    clock.setError(-100000);
    EXPECT_GE(clock.now_ns(), stood);
}

TEST(CardClocks, FramesAndTimes) {
    EXPECT_EQ(board::framesIn(1000000000, 44100), 44100);
    EXPECT_EQ(board::framesIn(999999999, 44100), 44099);
    for (const std::int64_t frames : {1, 7, 44099, 44100, 1000001})
        EXPECT_EQ(board::framesIn(board::lengthOf_ns(frames, 44100), 44100), frames);
    // Years do not overflow.
    EXPECT_EQ(board::framesIn(100000000LL * 1000000000, 192000), 192000LL * 100000000);
}

TEST(Capture, PeriodsComeAndAreRead) {
    Rig rig(false);
    rig.prepare();
    ASSERT_EQ(rig.stream->start(), 0);
    EXPECT_FALSE(rig.readable(POLLIN));
    ASSERT_TRUE(rig.bench.runUntil([&] { return rig.readable(POLLIN); }));
    EXPECT_EQ(rig.read(period), period);
    for (std::uint32_t i = 0; i < period; ++i) {
        std::uint32_t number = 0;
        std::memcpy(&number, rig.heard.data() + 4 * std::size_t(i), 4);
        ASSERT_EQ(number, i + 1);
    }
    // Readable only for whole periods: on a busy machine the next ones may have come meanwhile.
    while (rig.readable(POLLIN))
        ASSERT_EQ(rig.read(period), period);
    EXPECT_EQ(rig.notes.events.front(), "start");
    EXPECT_GE(rig.figures.periods, 1u);
}

TEST(Capture, ReadStartsIt) {
    Rig rig(false);
    rig.prepare();
    EXPECT_EQ(rig.read(10), -EAGAIN);
    EXPECT_EQ(rig.stream->state(), SNDRV_PCM_STATE_RUNNING);
}

TEST(Capture, UnreadPeriodsAreAnOverrun) {
    Rig rig(false);
    rig.prepare(4);
    ASSERT_EQ(rig.stream->start(), 0);
    ASSERT_TRUE(rig.bench.runUntil([&] { return rig.stream->state() == SNDRV_PCM_STATE_XRUN; }));
    EXPECT_EQ(rig.figures.xruns, 1u);
    EXPECT_EQ(rig.read(period), -EPIPE);
    EXPECT_NE(rig.bits & board::wire::handleFailed, 0u);
    EXPECT_TRUE(rig.readable(POLLIN));
    EXPECT_EQ(rig.stream->prepare(), 0);
    EXPECT_EQ(rig.bits & board::wire::handleFailed, 0u);
    EXPECT_EQ(rig.bits >> board::wire::handleFrameShift, 4u);
    EXPECT_EQ(rig.read(period), -EAGAIN);
    EXPECT_EQ(rig.stream->state(), SNDRV_PCM_STATE_RUNNING);
}

TEST(Capture, FreeRunningGoesOnWhenUnread) {
    Rig rig(false);
    rig.prepare(4);
    snd_pcm_sw_params software{};
    software.avail_min = period;
    software.start_threshold = 1;
    software.stop_threshold = LONG_MAX;
    ASSERT_EQ(rig.stream->setSoftware(software), 0);
    EXPECT_GT(software.boundary, snd_pcm_uframes_t(rig.buffer));
    ASSERT_EQ(rig.stream->start(), 0);
    ASSERT_TRUE(rig.bench.runUntil([&] { return rig.figures.periods >= 6; }));
    EXPECT_EQ(rig.stream->state(), SNDRV_PCM_STATE_RUNNING);
    EXPECT_EQ(rig.read(10), 10);
}

TEST(Playback, PlaysWhatIsWrittenAndNothingElse) {
    Rig rig(true);
    rig.prepare(4);
    EXPECT_EQ(rig.stream->start(), -EPIPE);  // nothing to play
    EXPECT_TRUE(rig.readable(POLLOUT));
    EXPECT_EQ(rig.write(2 * period), 2 * period);
    EXPECT_EQ(rig.stream->state(), SNDRV_PCM_STATE_RUNNING);
    ASSERT_TRUE(rig.bench.runUntil([&] { return rig.stream->state() == SNDRV_PCM_STATE_XRUN; }));
    EXPECT_EQ(rig.figures.frames, 2 * period);
    EXPECT_EQ(rig.notes.played, std::vector<std::uint8_t>(std::size_t(8) * period, 7));
    EXPECT_EQ(rig.figures.xruns, 1u);
    EXPECT_EQ(rig.notes.countOf("xrun"), 1u);
    EXPECT_EQ(rig.write(1), -EPIPE);
}

TEST(Playback, FullRingIsNotWritable) {
    Rig rig(true);
    rig.prepare();
    EXPECT_EQ(rig.write(rig.buffer + period), rig.buffer);
    EXPECT_FALSE(rig.readable(POLLOUT));
    ASSERT_TRUE(rig.bench.runUntil([&] { return rig.readable(POLLOUT); }));
    EXPECT_GE(rig.figures.periods, 1u);
}

TEST(Playback, StartThresholdHoldsTheStart) {
    Rig rig(true);
    rig.prepare();
    snd_pcm_sw_params software{};
    software.avail_min = period;
    software.start_threshold = rig.buffer;
    software.stop_threshold = rig.buffer;
    ASSERT_EQ(rig.stream->setSoftware(software), 0);
    EXPECT_EQ(rig.write(period), period);
    EXPECT_EQ(rig.stream->state(), SNDRV_PCM_STATE_PREPARED);
    EXPECT_EQ(rig.write(rig.buffer), rig.buffer - period);
    EXPECT_EQ(rig.stream->state(), SNDRV_PCM_STATE_RUNNING);
}

TEST(Playback, DrainPlaysToTheLastFrame) {
    Rig rig(true);
    rig.prepare();
    EXPECT_EQ(rig.write(period + 7), period + 7);
    EXPECT_EQ(rig.stream->drain(), -EAGAIN);
    EXPECT_EQ(rig.stream->state(), SNDRV_PCM_STATE_DRAINING);
    EXPECT_FALSE(rig.readable(POLLOUT));
    EXPECT_EQ(rig.write(1), -EBADFD);
    ASSERT_TRUE(rig.bench.runUntil([&] { return rig.readable(POLLOUT); }));
    EXPECT_EQ(rig.stream->drain(), 0);
    EXPECT_EQ(rig.stream->state(), SNDRV_PCM_STATE_SETUP);
    EXPECT_EQ(rig.figures.frames, period + 7);
    EXPECT_EQ(rig.figures.xruns, 0u);
}

TEST(Capture, DrainLeavesWhatWasHeard) {
    Rig rig(false);
    rig.prepare();
    ASSERT_EQ(rig.stream->start(), 0);
    ASSERT_TRUE(rig.bench.runUntil([&] { return rig.readable(POLLIN); }));
    EXPECT_EQ(rig.stream->drain(), 0);
    EXPECT_EQ(rig.stream->state(), SNDRV_PCM_STATE_DRAINING);
    EXPECT_GE(rig.read(rig.buffer), std::int64_t(period));
    EXPECT_EQ(rig.stream->state(), SNDRV_PCM_STATE_SETUP);
}

TEST(Playback, PauseStopsTheClockOfTheStream) {
    Rig rig(true);
    rig.prepare();
    rig.write(rig.buffer);
    ASSERT_TRUE(rig.bench.runUntil([&] { return rig.figures.periods >= 1; }));
    ASSERT_EQ(rig.stream->pause(true), 0);
    EXPECT_EQ(rig.stream->pause(true), -EBADFD);
    const std::uint64_t frames = rig.figures.frames;
    rig.bench.runFor(60 * millisecond);
    EXPECT_EQ(rig.figures.frames, frames);
    ASSERT_EQ(rig.stream->pause(false), 0);
    ASSERT_TRUE(rig.bench.runUntil([&] { return rig.figures.frames > frames; }));
    EXPECT_EQ(rig.figures.missing, 0u);
}

TEST(Streams, SuspendAndResume) {
    for (const bool able : {true, false}) {
        Rig rig(true, 1, able);
        rig.prepare();
        rig.write(rig.buffer);
        rig.stream->suspend();
        EXPECT_EQ(rig.write(1), -ESTRPIPE);
        snd_pcm_sframes_t delay = 0;
        EXPECT_EQ(rig.stream->delay(delay), -ESTRPIPE);
        EXPECT_EQ(rig.stream->resume(), able ? 0 : -ENOSYS);
        EXPECT_EQ(rig.stream->state(), able ? SNDRV_PCM_STATE_RUNNING : SNDRV_PCM_STATE_SUSPENDED);
        EXPECT_EQ(rig.stream->prepare(), able ? -EBUSY : 0);
    }
}

TEST(Streams, StatesRefuseWhatTheyCannot) {
    Rig rig(true);
    EXPECT_EQ(rig.write(1), -EBADFD);
    EXPECT_EQ(rig.stream->prepare(), -EBADFD);
    EXPECT_EQ(rig.stream->start(), -EBADFD);
    EXPECT_EQ(rig.stream->drop(), -EBADFD);
    EXPECT_EQ(rig.stream->drain(), -EBADFD);
    EXPECT_EQ(rig.stream->synchronise(), -EBADFD);
    EXPECT_EQ(rig.stream->freeHardware(), -EBADFD);
    snd_pcm_channel_info channel{};
    EXPECT_EQ(rig.stream->channel(channel), -EBADFD);
    rig.prepare();
    rig.write(period);
    EXPECT_EQ(rig.stream->prepare(), -EBUSY);
    snd_pcm_hw_params params = soundbench::anyParameters();
    EXPECT_EQ(rig.stream->setHardware(params), -EBADFD);
    channel.channel = 2;
    EXPECT_EQ(rig.stream->channel(channel), -EINVAL);
    EXPECT_EQ(rig.stream->drop(), 0);
    EXPECT_EQ(rig.stream->freeHardware(), 0);
    rig.stream->disconnect();
    EXPECT_EQ(rig.stream->prepare(), -ENODEV);
    EXPECT_EQ(rig.write(1), -ENODEV);
    EXPECT_NE(rig.bits & board::wire::handleGone, 0u);
}

TEST(Streams, MappingsHoldTheRing) {
    Rig rig(true);
    rig.prepare();
    rig.stream->mapped(1);
    snd_pcm_hw_params params = soundbench::anyParameters();
    EXPECT_EQ(rig.stream->setHardware(params), -EBADFD);
    EXPECT_EQ(rig.stream->freeHardware(), -EBADFD);
    rig.stream->mapped(-1);
    EXPECT_EQ(rig.stream->freeHardware(), 0);
}

TEST(Streams, RewindAndForward) {
    Rig rig(true);
    rig.prepare();
    snd_pcm_sw_params software{};
    software.avail_min = period;
    software.start_threshold = LONG_MAX;
    software.stop_threshold = rig.buffer;
    ASSERT_EQ(rig.stream->setSoftware(software), 0);
    rig.write(3 * period);
    EXPECT_EQ(rig.stream->rewind(period), period);
    EXPECT_EQ(rig.stream->rewind(10 * rig.buffer), 2 * period);
    EXPECT_EQ(rig.stream->forward(10 * rig.buffer), rig.buffer);
    snd_pcm_sframes_t delay = 0;
    EXPECT_EQ(rig.stream->delay(delay), 0);
    EXPECT_EQ(delay, rig.buffer);
}

TEST(Streams, TimesOfPeriodsFollowTheCardsClock) {
    Rig rig(false, 10);
    rig.prepare();
    rig.clock.setError(20000);
    snd_pcm_sw_params software{};
    software.avail_min = period;
    software.stop_threshold = LONG_MAX;
    ASSERT_EQ(rig.stream->setSoftware(software), 0);
    ASSERT_EQ(rig.stream->start(), 0);
    ASSERT_TRUE(rig.bench.runUntil([&] { return rig.figures.periods >= 50; }));
    const auto& times = rig.notes.times;
    for (std::size_t i = 2; i < 50; ++i)
        EXPECT_NEAR(double(times[i] - times[i - 1]), 10e6 / 1.02, 30);
}

TEST(Streams, StandstillAndChangeOfClock) {
    Rig rig(true);
    rig.prepare();
    rig.write(rig.buffer);
    ASSERT_TRUE(rig.bench.runUntil([&] { return rig.figures.frames >= period; }));
    rig.stream->clockChanging();
    rig.clock.setStopped(true);
    rig.stream->clockChanged();
    const std::uint64_t stood = rig.figures.frames;
    rig.bench.runFor(60 * millisecond);
    EXPECT_EQ(rig.figures.frames, stood);
    EXPECT_EQ(rig.stream->state(), SNDRV_PCM_STATE_RUNNING);
    rig.stream->clockChanging();
    rig.clock.setStopped(false);
    rig.stream->clockChanged();
    ASSERT_TRUE(rig.bench.runUntil([&] { return rig.figures.frames >= stood + period; }));
    EXPECT_EQ(rig.figures.missing, 0u);
}

}  // namespace
