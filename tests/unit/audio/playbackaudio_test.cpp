// The output's two threads on a device inside the test process.
#include "control/audio/playbackaudio.h"

#include "control/task/msgaudio.h"
#include "tests/unit/audio/fakealsa.h"
#include "tests/unit/capture/output.h"
#include "tests/unit/task/waiting.h"

#include <cerrno>
#include <cstring>
#include <numeric>

namespace {

constexpr std::size_t periodBytes = 4096;

audioInfo s16(unsigned channels, unsigned rate) {
    return {"hw:1,0", SND_PCM_FORMAT_S16_LE, rate, static_cast<std::uint16_t>(channels)};
}

msgAudio* chunkOf(const std::vector<unsigned char>& bytes) {
    auto* message = new msgAudio;
    message->data[0] = new unsigned char[bytes.size()];
    std::copy(bytes.begin(), bytes.end(), message->data[0]);
    message->length[0] = static_cast<std::uint32_t>(bytes.size());
    return message;
}

std::vector<unsigned char> counted(std::size_t bytes, unsigned from = 0) {
    std::vector<unsigned char> data(bytes);
    for (std::size_t i = 0; i < bytes; ++i) {
        data[i] = static_cast<unsigned char>((from + i) % 251);
    }
    return data;
}

std::size_t linesOf(const std::string& text, const std::string& line) {
    std::size_t count = 0;
    for (std::size_t at = 0; (at = text.find(line + "\n", at)) != std::string::npos; ++at) {
        ++count;
    }
    return count;
}

class Playback : public testing::Test {
  protected:
    Playback() { fake.bufferSize = 3072; }

    // The output for 48 kHz stereo; `action` gets it while it runs.
    Output playing(const std::function<void(PlaybackAudio&)>& action) {
        return outputOf([&] {
            PlaybackAudio playback(s16(2, 48000), s16(2, 48000));
            action(playback);
        });
    }

    bool waitWritten(std::size_t bytes) {
        return comesTrue([&] { return fake.written().size() >= bytes; });
    }

    FakePcm fake;
};

TEST(PlaybackFormats, AreStereoOfSixteenBitAtThreeRates) {
    for (const unsigned rate : {44100U, 48000U, 32000U}) {
        EXPECT_TRUE(PlaybackAudio::isSupportedPlaybackFormat(s16(2, rate)));
        EXPECT_FALSE(PlaybackAudio::isSupportedPlaybackFormat(s16(1, rate)));
    }
    EXPECT_FALSE(PlaybackAudio::isSupportedPlaybackFormat(s16(2, 16000)));
    EXPECT_FALSE(PlaybackAudio::isSupportedPlaybackFormat({"", SND_PCM_FORMAT_S24_LE, 48000, 2}));
}

TEST_F(Playback, OpensTheBoardsOutputAndSaysWhatItGot) {
    const Output output = playing([](PlaybackAudio&) {});
    const std::vector<std::string> expected = {"open hw:0,0 playback",
                                               "hw_params_any",
                                               "set_access 3",
                                               "set_format 2",
                                               "set_channels 2",
                                               "set_rate_near 48000 0",
                                               "get_buffer_time_max",
                                               "set_buffer_time_near 63999",
                                               "set_period_time_near 21333",
                                               "hw_params",
                                               "dump",
                                               "nonblock",
                                               "drain",
                                               "close"};
    EXPECT_EQ(fake.calls(), expected);
    EXPECT_EQ(output.out.rfind("init audio playback\nmax buffer_time : 1000000\n"
                               "set buffer_time : 63999\nbits_per_sample : 16\n"
                               "bits_per_frame : 32\nperiod_bytes : 4096\nbuffer_bytes : 12288\n",
                               0),
              0U);
    EXPECT_EQ(linesOf(output.out, "PlaybackAudiosvc normal stop!"), 1U);
    EXPECT_EQ(linesOf(output.out, "PlaybackAudio resamplePlay normal stop!"), 1U);
}

TEST_F(Playback, BeginsWithTenPeriodsAndPassesBytesUnchanged) {
    const std::vector<unsigned char> sound = counted(10 * periodBytes);
    playing([&](PlaybackAudio& playback) {
        std::vector<unsigned char> most(sound.begin(), sound.end() - 4);
        playback.receive_handler(chunkOf(most), 0);
        ASSERT_TRUE(comesTrue([&] { return playback.getPcmRemainLength() == most.size(); }));
        // Any number of looks at the FIFO later it still waits.
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        EXPECT_EQ(fake.written().size(), 0U);
        playback.receive_handler(chunkOf({sound.end() - 4, sound.end()}), 0);
        EXPECT_TRUE(waitWritten(3 * periodBytes));
    });
    const std::vector<unsigned char> written = fake.written();
    EXPECT_TRUE(std::equal(sound.begin(), sound.begin() + 3 * periodBytes, written.begin()));
}

// Ten periods: the first three are taken whole, at seven and below one frame is repeated in each.
TEST_F(Playback, RepeatsAFrameAPeriodWhenTheLevelIsLow) {
    const std::vector<unsigned char> sound = counted(10 * periodBytes);
    playing([&](PlaybackAudio& playback) {
        playback.receive_handler(chunkOf(sound), 0);
        EXPECT_TRUE(waitWritten(10 * periodBytes));
        EXPECT_EQ(playback.getPcmRemainLength(), 7U * 4);
    });
    const std::vector<unsigned char> written = fake.written();
    ASSERT_EQ(written.size(), 10 * periodBytes);
    std::vector<unsigned char> expected(sound.begin(), sound.begin() + 3 * periodBytes);
    for (int period = 0; period < 7; ++period) {
        const auto from = sound.begin() + 3 * periodBytes + period * (int(periodBytes) - 4);
        expected.insert(expected.end(), from, from + periodBytes - 4);
        expected.insert(expected.end(), from + periodBytes - 8, from + periodBytes - 4);
    }
    EXPECT_EQ(written, expected);
}

TEST_F(Playback, FillsAShortWriteWithSilence) {
    playing([&](PlaybackAudio& playback) {
        std::vector<unsigned char> data(periodBytes, 7);
        EXPECT_EQ(playback.SNDWAV_WritePcm(data.data(), 1000), 1024);
    });
    std::vector<unsigned char> expected(4000, 7);
    expected.resize(periodBytes, 0);
    EXPECT_EQ(fake.written(), expected);
}

TEST_F(Playback, ToldOfAnUnderrunEvenWhenAllWasWritten) {
    int calls = 0;
    fake.onWrite = [&](snd_pcm_uframes_t frames) -> snd_pcm_sframes_t {
        ++calls;
        return calls == 1 ? 100 : calls == 2 ? -EPIPE : static_cast<snd_pcm_sframes_t>(frames);
    };
    const Output output = playing([&](PlaybackAudio& playback) {
        std::vector<unsigned char> data = counted(periodBytes);
        EXPECT_EQ(playback.SNDWAV_WritePcm(data.data(), 1024), -EPIPE);
    });
    EXPECT_EQ(fake.written(), counted(periodBytes));
    EXPECT_EQ(fake.count("prepare"), 1U);
    EXPECT_EQ(linesOf(output.out, "EAGAIN "), 1U);
}

TEST_F(Playback, AFailedWriteEndsItsPeriodOnly) {
    std::atomic<int> calls{0};
    fake.onWrite = [&](snd_pcm_uframes_t frames) -> snd_pcm_sframes_t {
        return ++calls <= 2 ? -EIO : static_cast<snd_pcm_sframes_t>(frames);
    };
    const Output output = playing([&](PlaybackAudio& playback) {
        playback.receive_handler(chunkOf(counted(10 * periodBytes)), 0);
        EXPECT_TRUE(waitWritten(periodBytes));
    });
    EXPECT_EQ(linesOf(output.out, "Error snd_pcm_writei: Input/output error"), 2U);
    const std::vector<unsigned char> third = counted(periodBytes, 2 * periodBytes);
    const std::vector<unsigned char> written = fake.written();
    EXPECT_TRUE(std::equal(third.begin(), third.end(), written.begin()));
}

// What comes while the device refuses is skipped: the sound is not later than before.
TEST_F(Playback, AFailedWriteLeavesTheDelayAsItWas) {
    std::atomic<PlaybackAudio*> running{nullptr};
    std::atomic<int> calls{0};
    fake.onWrite = [&](snd_pcm_uframes_t frames) -> snd_pcm_sframes_t {
        if (++calls > 1) {
            return static_cast<snd_pcm_sframes_t>(frames);
        }
        const std::vector<unsigned char> more = counted(2 * periodBytes, 10 * periodBytes);
        running.load()->pushPcmData(more.data(), static_cast<unsigned>(more.size()));
        return -EIO;
    };
    playing([&](PlaybackAudio& playback) {
        running = &playback;
        playback.receive_handler(chunkOf(counted(10 * periodBytes)), 0);
        EXPECT_TRUE(waitWritten(periodBytes));
    });
    // Ten periods were held: one is lost with the write, one skipped for the two that came.
    const std::vector<unsigned char> third = counted(periodBytes, 2 * periodBytes);
    const std::vector<unsigned char> written = fake.written();
    EXPECT_TRUE(std::equal(third.begin(), third.end(), written.begin()));
}

// However long it lasts, a device that refuses fills no log and takes no processor.
class PlaybackTrouble : public Playback, public testing::WithParamInterface<int> {};

TEST_P(PlaybackTrouble, IsMetAtMostFiftyTimesASecond) {
    std::atomic<unsigned> attempts{0};
    std::atomic<bool> healed{false};
    fake.periodSize = 64;
    fake.onWrite = [&](snd_pcm_uframes_t frames) -> snd_pcm_sframes_t {
        ++attempts;
        return healed ? static_cast<snd_pcm_sframes_t>(frames) : GetParam();
    };
    playing([&](PlaybackAudio& playback) {
        playback.receive_handler(chunkOf(counted(400 * 64 * 4)), 0);
        ASSERT_TRUE(comesTrue([&] { return attempts > 0; }));
        const auto start = Clock::now();
        const unsigned first = attempts;
        ASSERT_TRUE(comesTrue([&] { return attempts >= first + 10; }));
        EXPECT_GE(millisecondsSince(start), 10 * 20.0 - 30);
        healed = true;
        EXPECT_TRUE(waitWritten(1));
    });
}

INSTANTIATE_TEST_SUITE_P(Errors, PlaybackTrouble,
                         testing::Values(-EIO, -ENODEV, -EPIPE, -ESTRPIPE, -EAGAIN, 0));

TEST_F(Playback, ASuspendedDeviceIsNotResumed) {
    std::atomic<bool> suspended{true};
    fake.onWrite = [&](snd_pcm_uframes_t frames) -> snd_pcm_sframes_t {
        return suspended ? -ESTRPIPE : static_cast<snd_pcm_sframes_t>(frames);
    };
    const Output output = playing([&](PlaybackAudio& playback) {
        playback.receive_handler(chunkOf(counted(10 * periodBytes)), 0);
        ASSERT_TRUE(fake.waitFor("writei", 2));
        suspended = false;
        EXPECT_TRUE(waitWritten(periodBytes));
    });
    EXPECT_GE(linesOf(output.out, "<<<<<<<<<<<<<<< Need suspend >>>>>>>>>>>>>>>"), 1U);
    EXPECT_EQ(fake.count("prepare"), 0U);
}

// A blocking write would hold the thread for many seconds.
TEST_F(Playback, ADeviceThatStandsStillIsNotWrittenToAndHoldsNobody) {
    fake.onWait = [] {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        return 0;
    };
    fake.fail("drain", EAGAIN);
    auto start = Clock::now();
    playing([&](PlaybackAudio& playback) {
        playback.receive_handler(chunkOf(counted(11 * periodBytes)), 0);
        ASSERT_TRUE(comesTrue([&] { return playback.getPcmRemainLength() == 10 * periodBytes; }));
        start = Clock::now();
        playback.close();
    });
    EXPECT_EQ(fake.count("writei"), 0U);
    EXPECT_EQ(fake.count("drop"), 1U);
    EXPECT_EQ(fake.count("close"), 1U);
    EXPECT_GE(millisecondsSince(start), 260.0);  // buffer time and 200 ms
    EXPECT_LT(millisecondsSince(start), 1900.0);
}

TEST_F(Playback, WithoutADeviceTheSoundIsFreedAndBothThreadsStop) {
    fake.fail("set_channels", EINVAL);
    const Output output = playing([&](PlaybackAudio& playback) {
        EXPECT_EQ(fake.openHandles(), 0);
        for (int i = 0; i < 20; ++i) {
            playback.receive_handler(chunkOf(counted(periodBytes)), 0);
        }
        EXPECT_TRUE(comesTrue([&] { return playback.getqSize() == 0; }));
        EXPECT_EQ(playback.getPcmRemainLength(), 0U);
    });
    EXPECT_NE(output.out.find(" Error snd_pcm_hw_params_set_channels\n"
                              " Error set_snd_pcm_params hw:0,0\n"),
              std::string::npos);
    EXPECT_EQ(linesOf(output.out, "PlaybackAudiosvc normal stop!"), 1U);
    EXPECT_EQ(linesOf(output.out, "PlaybackAudio resamplePlay normal stop!"), 1U);
    EXPECT_EQ(fake.count("writei"), 0U);
    EXPECT_EQ(fake.count("drain"), 0U);
}

TEST_F(Playback, CloseFreesWhatIsQueuedAndMayComeTwice) {
    playing([&](PlaybackAudio& playback) {
        playback.close();
        for (int i = 0; i < 3; ++i) {
            playback.receive_handler(chunkOf(counted(100)), 0);
        }
        playback.pushPcmData(counted(10).data(), 10);
        EXPECT_EQ(playback.getqSize(), 3);
        playback.close();
        EXPECT_EQ(playback.getqSize(), 0);
        EXPECT_EQ(playback.getPcmRemainLength(), 0U);
    });
    EXPECT_EQ(fake.count("close"), 1U);
    EXPECT_EQ(fake.count("drain"), 1U);
}

TEST_F(Playback, NeverAsksTheProducerToHoldBack) {
    playing([](PlaybackAudio& playback) {
        EXPECT_TRUE(playback.queueAllow_angler());
        EXPECT_EQ(playback.receive_handler(chunkOf({}), 0), 1);
    });
}

TEST_F(Playback, SaysWhenNothingComes) {
    const Output output = playing([](PlaybackAudio& playback) {
        // It looks every 100 ms.
        comesTrue([&] { return playback.getqSize() > 0; }, std::chrono::milliseconds(350));
    });
    EXPECT_GE(linesOf(output.out, "PlaybackAudio getq timeout"), 1U);
}

// What a longer captured period leaves over waits for the next: no frame is lost, none made up.
TEST_F(Playback, LongPeriodsAreConvertedWhole) {
    outputOf([&] {
        PlaybackAudio playback(s16(1, 48000), s16(2, 48000));
        for (int i = 0; i < 3; ++i) {
            std::vector<unsigned char> mono(5461 * 2);
            for (std::size_t frame = 0; frame < 5461; ++frame) {
                const auto value = static_cast<std::int16_t>(i * 5461 + int(frame));
                std::memcpy(&mono[frame * 2], &value, 2);
            }
            playback.receive_handler(chunkOf(mono), 0);
        }
        EXPECT_TRUE(waitWritten(7 * periodBytes));
    });
    const std::vector<unsigned char> written = fake.written();
    for (int frame = 0; frame < 4 * 1024; ++frame) {
        std::int16_t left = 0, right = 0;
        std::memcpy(&left, &written[std::size_t(frame) * 4], 2);
        std::memcpy(&right, &written[std::size_t(frame) * 4 + 2], 2);
        ASSERT_NEAR(left, right, 1);
        ASSERT_NEAR(left, frame * 1.0, frame * 0.3 + 2) << frame;
    }
}

// A card may grant a period that no usual buffer holds.
TEST_F(Playback, LongDevicePeriodsFit) {
    fake.periodSize = 6000;
    fake.bufferSize = 18000;
    playing([&](PlaybackAudio& playback) {
        playback.receive_handler(chunkOf(counted(std::size_t{10} * 24000)), 0);
        EXPECT_TRUE(waitWritten(24000));
    });
}

TEST_F(Playback, GrantedRatesAreSaid) {
    fake.grantedRate = 44100;
    const Output output = playing([](PlaybackAudio&) {});
    EXPECT_NE(output.out.find("The rate 48000 Hz is not supported by your hardware.\n"
                              "==> Using 44100 Hz instead.\n"),
              std::string::npos);
}

}  // namespace
