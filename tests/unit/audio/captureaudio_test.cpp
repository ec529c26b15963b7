// The microphone's task on a device inside the test process.
#include "control/audio/captureaudio.h"

#include "control/task/msgaudio.h"
#include "tests/unit/audio/fakealsa.h"
#include "tests/unit/capture/output.h"
#include "tests/unit/task/waiting.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <random>

namespace {

const audioInfo stereo{"hw:1,0", SND_PCM_FORMAT_S16_LE, 48000, 2};

// Keeps what a microphone hands on.
class Listener final : public Receive_handler {
  public:
    int receive_handler(void* msg, unsigned int /*arg*/) override {
        const std::lock_guard<std::mutex> guard(lock_);
        messages_.emplace_back(static_cast<msgAudio*>(msg));
        return 1;
    }
    bool queueAllow_angler() override { return false; }  // is never asked

    std::size_t count() const {
        const std::lock_guard<std::mutex> guard(lock_);
        return messages_.size();
    }
    const msgAudio& at(std::size_t index) const { return *messages_.at(index); }

  private:
    mutable std::mutex lock_;
    std::vector<std::unique_ptr<msgAudio>> messages_;
};

class Microphone : public testing::Test {
  protected:
    // Makes it, starts it, waits until the device runs.
    void run() {
        capture = std::make_unique<Captureaudio>(stereo);
        capture->linkPlaybackReceiveHandler(&listener);
        capture->activate(1);
        ASSERT_TRUE(fake.waitFor("start"));
    }

    const BlockedNotification blocked;
    FakePcm fake;
    Listener listener;
    std::unique_ptr<Captureaudio> capture;
};

TEST_F(Microphone, AsksForItsParametersInOrder) {
    const Output output = outputOf([&] { Captureaudio microphone(stereo); });
    const std::vector<std::string> expected = {"open hw:1,0 capture",
                                               "hw_params_any",
                                               "set_access 3",
                                               "set_format 2",
                                               "set_channels 2",
                                               "set_rate_near 48000 0",
                                               "get_buffer_time_max",
                                               "set_buffer_time_near 341328",
                                               "set_period_time_near 21333",
                                               "hw_params",
                                               "async_add_pcm_handler",
                                               "dump",
                                               "drain",
                                               "close"};
    EXPECT_EQ(fake.calls(), expected);
    EXPECT_EQ(output.out,
              "init audio capture\nmax buffer_time : 1000000\nset buffer_time : 341328\n"
              "bits_per_sample : 16\nbits_per_frame : 32\nperiod_bytes : 4096\n"
              "buffer_bytes : 65536\n");
    EXPECT_EQ(fake.openHandles(), 0);
}

TEST_F(Microphone, TakesASmallerBufferWhereTheDeviceHasNoMore) {
    fake.bufferTimeMax = 100000;
    outputOf([&] { Captureaudio microphone(stereo); });
    EXPECT_EQ(fake.count("set_buffer_time_near 100000"), 1U);
}

TEST_F(Microphone, SaysWhichStepFailedAndStaysSilent) {
    const std::vector<std::pair<std::string, std::string>> steps = {
        {"open", " Error snd_pcm_open hw:1,0\n"},
        {"hw_params_any", " Error snd_pcm_hw_params_any\n"},
        {"set_access", " Error snd_pcm_hw_params_set_access\n"},
        {"set_format", " Error snd_pcm_hw_params_set_format\n"},
        {"set_channels", " Error snd_pcm_hw_params_set_channels\n"},
        {"set_rate_near", " Error snd_pcm_hw_params_set_rate_near\n"},
        {"get_buffer_time_max", " Error snd_pcm_hw_params_get_buffer_time_max\n"},
        {"set_buffer_time_near", " Error snd_pcm_hw_params_set_buffer_time_near\n"},
        {"set_period_time_near", " Error snd_pcm_hw_params_set_period_time_near\n"},
        {"hw_params", " Error snd_pcm_hw_params(handle, params)\n"},
        {"async_add_pcm_handler", " Error snd_async_add_pcm_handler(handle, params)\n"}};
    for (const auto& [step, line] : steps) {
        fake.fail(step, EINVAL);
        const Output output = outputOf([&] {
            Captureaudio microphone(stereo);
            microphone.activate(1);
            FakePcm::notify();
            EXPECT_TRUE(comesTrue([&] { return microphone.thr_count() == 1; }));
        });
        EXPECT_NE(output.out.find("\n" + line), std::string::npos) << step << ": " << output.out;
        const bool parameter = step != "open";
        EXPECT_EQ(output.out.find("\n Error set_snd_pcm_params hw:1,0\n") != std::string::npos,
                  parameter);
        EXPECT_NE(output.out.find("\nCaptureaudiosvc normal stop!\n"), std::string::npos);
        EXPECT_EQ(fake.openHandles(), 0) << step;
        fake.heal(step);
    }
    EXPECT_EQ(fake.count("start"), 0U);
    EXPECT_EQ(fake.count("avail_update"), 0U);
}

TEST_F(Microphone, RefusesASinglePeriod) {
    fake.periodSize = fake.bufferSize = 1024;
    const Output output = outputOf([&] { Captureaudio microphone(stereo); });
    EXPECT_NE(output.out.find("\n Can't use period equal to buffer size 1024 == 1024\n"
                              " Error set_snd_pcm_params hw:1,0\n"),
              std::string::npos);
    EXPECT_EQ(fake.openHandles(), 0);
}

TEST_F(Microphone, LabelsItsMessagesWithTheGrantedRate) {
    fake.grantedRate = 44100;
    const Output output = outputOf([&] {
        run();
        fake.deliver(3 * 1024);
        EXPECT_TRUE(comesTrue([&] { return listener.count() == 2; }));
        capture.reset();
    });
    EXPECT_NE(output.out.find("\nThe rate 48000 Hz is not supported by your hardware.\n"
                              "==> Using 44100 Hz instead.\n"),
              std::string::npos);
    EXPECT_EQ(listener.at(0).rate, 44100U);
    EXPECT_EQ(listener.at(0).channels, 2U);
    EXPECT_EQ(listener.at(0).format, SND_PCM_FORMAT_S16_LE);
    EXPECT_EQ(fake.count("set_period_time_near 23219"), 1U);
}

// A period is read only while strictly more than one is there; what is read is handed on in whole
// periods, in order.
TEST_F(Microphone, HandsOnPeriodAfterPeriod) {
    outputOf([&] {
        run();
        fake.deliver(1024);
        ASSERT_TRUE(fake.waitFor("avail_update"));
        fake.deliver(1);
        EXPECT_TRUE(comesTrue([&] { return listener.count() == 1; }));
        fake.deliver(2 * 1024);
        EXPECT_TRUE(comesTrue([&] { return listener.count() == 3; }));
        capture.reset();
    });
    EXPECT_EQ(listener.count(), 3U);
    for (std::size_t i = 0; i < 3; ++i) {
        ASSERT_EQ(listener.at(i).length[0], 4096U);
        std::uint32_t first = 0;
        std::memcpy(&first, listener.at(i).data[0], sizeof first);
        EXPECT_EQ(first, i * 1024);
    }
    EXPECT_EQ(fake.count("readi"), 3U);
}

TEST_F(Microphone, WithoutAReceiverEveryPeriodIsFreed) {
    outputOf([&] {
        Captureaudio microphone(stereo);
        microphone.activate(1);
        ASSERT_TRUE(fake.waitFor("start"));
        fake.deliver(5 * 1024);
        EXPECT_TRUE(fake.waitFor("readi", 4));
        EXPECT_TRUE(comesTrue([&] { return microphone.getPcmRemainLength() == 0; }));
    });
}

// A card with loose limits grants periods longer than the usual scratch buffer.
TEST_F(Microphone, LongPeriodsFit) {
    fake.periodSize = 5461;
    fake.bufferSize = 16383;
    outputOf([&] {
        run();
        fake.deliver(5462);
        EXPECT_TRUE(comesTrue([&] { return listener.count() == 1; }));
        capture.reset();
    });
    EXPECT_EQ(listener.at(0).length[0], 21844U);
}

// At once, not when somebody finds it standing still.
void expectStartedAfterPrepared(const FakePcm& fake) {
    const std::vector<std::string> calls = fake.calls();
    const auto prepared = std::find(calls.begin(), calls.end(), "prepare");
    ASSERT_LT(prepared + 1, calls.end());
    EXPECT_EQ(prepared[1], "start");
}

TEST_F(Microphone, AnOverrunIsToldAndTheDeviceStartsAgain) {
    const Output output = outputOf([&] {
        run();
        fake.fail("readi", EPIPE);
        fake.deliver(2000);
        ASSERT_TRUE(fake.waitFor("start", 2));
        fake.heal("readi");
        fake.notify();
        EXPECT_TRUE(comesTrue([&] { return listener.count() == 1; }));
        capture.reset();
    });
    EXPECT_NE(output.out.find("\nSNDWAV_ReadPcm <<<<<<<<<<<<<<< Buffer Underrun >>>>>>>>>>>>>>>\n"),
              std::string::npos);
    EXPECT_EQ(fake.count("prepare"), 1U);
    expectStartedAfterPrepared(fake);
}

TEST_F(Microphone, AnOverrunFoundBeforeTheReadStartsItAgain) {
    const Output output = outputOf([&] {
        run();
        fake.fail("avail_update", EPIPE);
        fake.deliver(2000);
        ASSERT_TRUE(fake.waitFor("start", 2));
        fake.heal("avail_update");
        fake.notify();
        EXPECT_TRUE(comesTrue([&] { return listener.count() == 1; }));
        capture.reset();
    });
    EXPECT_NE(output.out.find("\n0.avail error = -32\n"), std::string::npos);
    expectStartedAfterPrepared(fake);
}

TEST_F(Microphone, ALastingErrorEndsTheLoop) {
    const Output output = outputOf([&] {
        run();
        fake.fail("readi", EIO);
        for (unsigned i = 1; i <= 3; ++i) {
            fake.deliver(2000);
            ASSERT_TRUE(fake.waitFor("readi", i));
        }
        fake.heal("readi");
        fake.notify();
        EXPECT_TRUE(comesTrue([&] { return listener.count() >= 1; }));
        capture.reset();
    });
    std::size_t lines = 0;
    for (std::size_t at = 0; (at = output.out.find("ret error = -5\n", at)) != std::string::npos;
         ++at) {
        ++lines;
    }
    EXPECT_GE(lines, 1U);
    EXPECT_LE(lines, 3U);
}

TEST_F(Microphone, ADeviceThatIsGoneIsNotSpokenOf) {
    const Output output = outputOf([&] {
        run();
        fake.fail("readi", ENODEV);
        fake.deliver(2000);
        ASSERT_TRUE(fake.waitFor("readi"));
        capture.reset();
    });
    EXPECT_EQ(output.out.find("error"), std::string::npos);
    EXPECT_EQ(output.out.find("Underrun"), std::string::npos);
}

// Nobody would hear of a device that never started.
TEST_F(Microphone, AStartThatFailsIsToldOnceAndTriedAgain) {
    const Output output = outputOf([&] {
        fake.fail("start", EIO);
        run();
        ASSERT_TRUE(fake.waitFor("start", 3));
        fake.heal("start");
        EXPECT_TRUE(comesTrue([&] { return fake.state() == SND_PCM_STATE_RUNNING; }));
        capture.reset();
    });
    EXPECT_EQ(output.err, "Cannot start 'hw:1,0': 5, Input/output error\n");
}

TEST_F(Microphone, AnOverrunWithoutNotificationIsFound) {
    outputOf([&] {
        run();
        ASSERT_TRUE(comesTrue([&] { return fake.state() == SND_PCM_STATE_RUNNING; }));
        fake.setState(SND_PCM_STATE_XRUN);
        EXPECT_TRUE(fake.waitFor("start", 2));
        capture.reset();
    });
    EXPECT_EQ(fake.count("prepare"), 1U);
}

// A notification of somebody else's descriptor is not taken for the microphone's.
TEST_F(Microphone, ForeignNotificationsAreLeftAlone) {
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
    fcntl(ends[0], F_SETSIG, SIGIO);
    fcntl(ends[0], F_SETOWN, getpid());
    fcntl(ends[0], F_SETFL, O_ASYNC);
    outputOf([&] {
        run();
        ASSERT_EQ(write(ends[1], "x", 1), 1);
        fake.deliver(1, false);
        sigset_t pending;
        EXPECT_TRUE(comesTrue(
            [&] { return sigpending(&pending) == 0 && sigismember(&pending, SIGIO) == 0; }));
        capture->close();
        EXPECT_EQ(fake.callbackRuns, 0U);
        capture.reset();
    });
    ::close(ends[0]);
    ::close(ends[1]);
}

TEST_F(Microphone, ASecondCloseDoesNothing) {
    outputOf([&] {
        run();
        capture->close();
        capture->close();
        capture.reset();
    });
    EXPECT_EQ(fake.count("close"), 1U);
    EXPECT_EQ(fake.count("drain"), 1U);
}

TEST_F(Microphone, GivesOnlyWhatIsBuffered) {
    outputOf([&] {
        Captureaudio microphone(stereo);
        const unsigned char bytes[] = {1, 2, 3};
        microphone.pushPcmData(bytes, 3);
        unsigned char out[8] = {};
        EXPECT_EQ(microphone.popPcmData(out, 2), 2U);
        EXPECT_EQ(microphone.popPcmData(out, 8), 1U);
        EXPECT_EQ(out[0], 3);
        EXPECT_EQ(microphone.getPcmRemainLength(), 0U);
    });
}

// No notification runs when the task is gone, whenever the signal is raised.
TEST_F(Microphone, LivesAndDiesUnderNotifications) {
    std::atomic<bool> stop{false};
    std::thread storm([&] {
        std::minstd_rand random(1);
        while (!stop) {
            FakePcm::notify();
            std::this_thread::sleep_for(std::chrono::microseconds(random() % 300));
        }
    });
    std::minstd_rand random(2);
    outputOf([&] {
        for (int cycle = 0; cycle < 1000; ++cycle) {
            Captureaudio microphone(stereo);
            microphone.activate(1);
            fake.deliver(random() % 3000);
            std::this_thread::sleep_for(std::chrono::microseconds(random() % 1000));
            microphone.close();
            const unsigned runs = fake.callbackRuns;
            FakePcm::notify();
            std::this_thread::yield();
            EXPECT_EQ(fake.callbackRuns, runs);
        }
    });
    stop = true;
    storm.join();
    EXPECT_EQ(fake.openHandles(), 0);
}

TEST(SoundFormats, HaveAlsasNumbers) {
    const char* const names[] = {"S8",         "U8",      "S16_LE",   "S16_BE",   "U16_LE",
                                 "U16_BE",     "S24_LE",  "S24_BE",   "S32_LE",   "S32_BE",
                                 "U32_LE",     "U32_BE",  "FLOAT_LE", "FLOAT_BE", "FLOAT64_LE",
                                 "FLOAT64_BE", "S24_3LE", "S24_3BE",  "U24_3LE",  "U24_3BE"};
    for (const char* name : names) {
        EXPECT_EQ(Captureaudio::getFormatsByStr(name), snd_pcm_format_value(name)) << name;
    }
    for (const char* name : {"", "s16_le", "S16_LE ", "S16", "U24_LE", "SPECIAL", "0x20"}) {
        EXPECT_EQ(Captureaudio::getFormatsByStr(name), -1) << name;
    }
}

}  // namespace
