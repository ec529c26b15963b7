// How soon the task starts, answers and ends, whatever it is doing.
#include "control/camera/obsbot.h"
#include "tests/support/environment.h"
#include "tests/unit/camera/fakerig.h"
#include "tests/unit/task/waiting.h"

#include <iostream>
#include <limits>
#include <random>

namespace {

double bound(double milliseconds) {
    return milliseconds * support::timeFactor();
}

// With sleeps that last as long as asked.
class Lifecycle : public testing::Test {
  protected:
    void SetUp() override {
        ObsBot::dormantStatus = 0;
        rig.patient = true;
        testing::internal::CaptureStdout();
    }
    void TearDown() override {
        EXPECT_EQ(rig.openDescriptors(), 0U);
        ObsBot::dormantStatus = 0;
        if (capturing) {
            testing::internal::GetCapturedStdout();
        }
    }
    void start() { bot = std::make_unique<ObsBot>(cameraNode); }
    // The shortest of several: a busy machine makes any one of them long.
    template <typename Prepare>
    double quickestEnd(const Prepare& prepare) {
        double quickest = std::numeric_limits<double>::max();
        for (int attempt = 0; attempt < 5 && !HasFatalFailure(); ++attempt) {
            prepare();
            // At the beginning of a pause, which is the worst moment.
            const unsigned pauses = rig.pauses;
            EXPECT_TRUE(comesTrue([&] { return rig.pauses != pauses; }, deadline));
            const auto begin = Clock::now();
            bot.reset();
            quickest = std::min(quickest, millisecondsSince(begin));
        }
        return quickest;
    }
    std::string output() {
        capturing = false;
        return testing::internal::GetCapturedStdout();
    }

    FakeRig rig;
    std::unique_ptr<ObsBot> bot;
    bool capturing = true;
};

TEST_F(Lifecycle, EndsWhileItSearches) {
    unsigned searches = 0;
    EXPECT_LT(quickestEnd([&] {
                  start();
                  ASSERT_TRUE(rig.waitSearched(++searches));
              }),
              bound(200));
}

TEST_F(Lifecycle, EndsWhileItReads) {
    rig.plugReceiver(0);
    unsigned opened = 0;
    EXPECT_LT(quickestEnd([&] {
                  start();
                  ASSERT_TRUE(rig.waitOpened(++opened));
                  rig.press(0, KEY_W);
                  ASSERT_TRUE(rig.settle());
              }),
              bound(200));
}

TEST_F(Lifecycle, EndsAfterTheSleepKey) {
    rig.plugReceiver(0);
    unsigned opened = 0;
    EXPECT_LT(quickestEnd([&] {
                  start();
                  ASSERT_TRUE(rig.waitOpened(++opened));
                  rig.press(0, KEY_L);
                  ASSERT_TRUE(rig.waitTold(opened));
              }),
              bound(200));
    EXPECT_EQ(ObsBot::dormantStatus, 1);  // toggled five times
}

// Keys that come faster than they can be dealt with do not keep it from ending.
TEST_F(Lifecycle, EndsInAFloodOfKeys) {
    rig.plugReceiver(0);
    std::atomic<bool> enough{false};
    std::thread flood([&] {
        while (!enough) {
            rig.press(0, KEY_W);
        }
    });
    start();
    EXPECT_TRUE(rig.waitTold(100));
    const auto begin = Clock::now();
    bot.reset();
    EXPECT_LT(millisecondsSince(begin), bound(2000));
    enough = true;
    flood.join();
}

// A camera that takes its time to say that it has no such unit: 255 of them would take a minute.
TEST_F(Lifecycle, EndsWhileUnitsAreSoughtAndLeavesTheStateAlone) {
    rig.plugReceiver(0);
    rig.extensionUnit = -1;
    rig.unitAnswer = std::chrono::milliseconds(250);
    start();
    ASSERT_TRUE(rig.waitOpened(1));
    rig.press(0, KEY_L);
    ASSERT_TRUE(comesTrue([&] { return rig.unitReads(0, 4) == 1; }, deadline));
    const auto begin = Clock::now();
    bot.reset();
    EXPECT_LT(millisecondsSince(begin), bound(2000));
    EXPECT_EQ(ObsBot::dormantStatus, 0);
    EXPECT_TRUE(rig.told().empty());
}

// From the key to the camera: a poll period and what the machine adds.
TEST_F(Lifecycle, AKeyReachesTheCameraWithinAPollPeriod) {
    rig.plugReceiver(0);
    start();
    ASSERT_TRUE(rig.waitOpened(1));
    std::vector<double> delays;
    for (std::size_t i = 1; i <= 41; ++i) {
        const auto begin = Clock::now();
        rig.press(0, KEY_W);
        ASSERT_TRUE(rig.waitTold(i));
        delays.push_back(std::chrono::duration<double, std::milli>(rig.lastTold() - begin).count());
        ASSERT_TRUE(rig.settle());  // it sleeps from now on: the longest wait
    }
    bot.reset();
    output();
    std::sort(delays.begin(), delays.end());
    std::cout << "key to camera: median " << delays[20] << " ms, longest " << delays.back()
              << " ms\n";
    EXPECT_LT(delays[20], bound(100));
}

TEST_F(Lifecycle, EndsWithoutAThread) {
    rig.noThreads = true;
    start();
    EXPECT_EQ(bot->thr_count(), 0U);
    bot.reset();
    EXPECT_EQ(output().find("normal stop"), std::string::npos);
}

TEST_F(Lifecycle, SaysThatItEnds) {
    ObsBot::dormantStatus = 1;
    start();
    EXPECT_TRUE(rig.waitSearched(1));
    bot.reset();
    EXPECT_EQ(output(), "ObsBotsvc normal stop!\n");
}

// Made, driven, unplugged and ended at any moment; another thread looks at the state meanwhile.
TEST_F(Lifecycle, StartsAndEndsAtAnyMoment) {
    rig.patient = false;
    std::mt19937 random(1);
    const auto begin = Clock::now();
    // On a slow machine everything takes its time: else no receiver is there, and no task lives,
    // until a key has reached the camera.
    const auto slowness = [&] {
        return 1 + static_cast<unsigned>(millisecondsSince(begin) / 1000);
    };
    std::atomic<bool> enough{false};
    std::thread supervisor([&] {
        while (!enough) {
            if (ObsBot::dormantStatus == 1) {
                ObsBot::dormantStatus = 0;  // as if no camera was there any more
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    });
    std::thread user([&] {
        std::mt19937 keys(2);
        const int codes[] = {KEY_W, KEY_S, KEY_A, KEY_D, KEY_I, KEY_O, KEY_R, KEY_T, KEY_L, KEY_X};
        while (!enough) {
            rig.plugReceiver(0);
            for (unsigned i = keys() % (20 * slowness()); i > 0; --i) {
                std::this_thread::sleep_for(std::chrono::microseconds(keys() % 2000));
                rig.press(0, codes[keys() % std::size(codes)]);
            }
            rig.unplugReceiver(0, keys() % 2 == 0);
        }
    });
    unsigned lives = 0;
    while ((lives < 100 || rig.told().size() < 10) && Clock::now() - begin < deadline) {
        start();
        for (unsigned i = slowness() * slowness(); i > 0; --i) {
            std::this_thread::sleep_for(std::chrono::microseconds(random() % 10000));
        }
        bot.reset();
        ++lives;
    }
    enough = true;
    supervisor.join();
    user.join();
    output();
    EXPECT_GE(lives, 100U);
    EXPECT_GE(rig.told().size(), 10U);
}

}  // namespace
