// The ring of frames between a producer and the page flips.
#include "control/display/displaydrm.h"

#include "tests/unit/display/displayaccess.h"
#include "tests/unit/task/printed.h"
#include "tests/unit/task/waiting.h"

#include <gtest/gtest.h>
#include <future>
#include <thread>

namespace {

using Access = DisplayDrmTestAccess;

class FrameRing : public testing::Test {
  protected:
    unsigned char* put(double pts, int waitLimit = 10) {
        unsigned char* buffer = nullptr;
        EXPECT_TRUE(display.enQueue(&buffer, 64, 48, pts, waitLimit));
        display.enQueueEnd();
        return buffer;
    }
    void fill() {
        for (int i = 0; i < Access::slots; ++i) {
            put(i);
        }
    }
    // The oldest frame's time stamp, or -2 when there is none.
    double take() {
        int index = 0;
        unsigned width = 0, height = 0;
        double pts = 0;
        if (!display.deQueue(&index, &width, &height, &pts)) {
            return -2;
        }
        EXPECT_TRUE(display.release());
        return pts;
    }

    DisplayWithMemory holder{64, 48, 64};
    DisplayDrm& display = holder.display;
};

}  // namespace

TEST_F(FrameRing, AFrameIsSeenOnlyWhenItIsFinished) {
    Access::setDequeueWait(display, 0);
    unsigned char* buffer = nullptr;
    display.enQueue(&buffer, 60, 40, 12.5, 10);
    EXPECT_EQ(buffer, holder.memory[0].data());
    int index = 7;
    unsigned width = 0, height = 0;
    double pts = 0;
    EXPECT_FALSE(display.deQueue(&index, &width, &height, &pts));
    EXPECT_EQ(index, 7);
    display.enQueueEnd();
    for (int look = 0; look < 2; ++look) {  // looking does not take it
        ASSERT_TRUE(display.deQueue(&index, &width, &height, &pts));
        EXPECT_EQ(index, 0);
        EXPECT_EQ(width, 60U);
        EXPECT_EQ(height, 40U);
        EXPECT_EQ(pts, 12.5);
    }
    display.release();
    EXPECT_FALSE(display.deQueue(&index, &width, &height, &pts));
}

TEST_F(FrameRing, GoesRoundInOrder) {
    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(put(i), holder.memory[static_cast<std::size_t>(i % Access::slots)].data());
        EXPECT_EQ(take(), i);
    }
}

TEST_F(FrameRing, OverflowKeepsTheOldestAndGivesTheSlotAfterIt) {
    for (int i = 0; i < 5; ++i) {  // so that the oldest is not in slot 0
        put(i);
        take();
    }
    fill();
    EXPECT_EQ(Access::readyCount(display), 36);
    unsigned char* buffer = nullptr;
    const auto start = Clock::now();
    const std::string out =
        printedBy([&] { EXPECT_TRUE(display.enQueue(&buffer, 64, 48, 100.0, 10)); });
    const double waited = millisecondsSince(start);
    EXPECT_EQ(out, "clean queue buff\n");
    EXPECT_GE(waited, 9.0);
    EXPECT_LT(waited, 2000.0);
    EXPECT_EQ(Access::readyCount(display), 1);
    EXPECT_TRUE(Access::ready(display, 5));
    EXPECT_EQ(buffer, holder.memory[6].data());
    display.enQueueEnd();
    EXPECT_EQ(take(), 0.0) << "the oldest of the full ring";
    EXPECT_EQ(take(), 100.0);
    Access::setDequeueWait(display, 0);
    EXPECT_EQ(take(), -2.0);
}

TEST_F(FrameRing, WithoutALimitTheProducerWaitsForARelease) {
    fill();
    auto producer =
        std::async(std::launch::async, [this] { return printedBy([this] { put(100.0, 0); }); });
    EXPECT_EQ(producer.wait_for(std::chrono::milliseconds(200)), std::future_status::timeout);
    display.release();
    ASSERT_EQ(producer.wait_for(std::chrono::seconds(10)), std::future_status::ready);
    EXPECT_EQ(producer.get(), "");
    EXPECT_EQ(Access::readyCount(display), 36);
}

TEST_F(FrameRing, ARaceWithTheConsumerDropsNothing) {
    fill();
    std::string out;
    std::future<unsigned char*> producer;
    Access::whileReadLocked(display, [&] {
        producer = std::async(std::launch::async, [this] {
            unsigned char* buffer = nullptr;
            display.enQueue(&buffer, 64, 48, 100.0, 1);
            return buffer;
        });
        testing::internal::CaptureStdout();
        // The producer gives up waiting and stands before the lock; meanwhile a slot gets free.
        EXPECT_EQ(producer.wait_for(std::chrono::milliseconds(100)), std::future_status::timeout);
        Access::releaseUnlocked(display);
    });
    EXPECT_EQ(producer.get(), holder.memory[0].data());
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(Access::readyCount(display), 35);
}

TEST_F(FrameRing, CleaningStartsAgainAtSlotZero) {
    for (int i = 0; i < 7; ++i) {
        put(i);
    }
    take();
    display.cleanQueue();
    EXPECT_EQ(Access::readyCount(display), 0);
    EXPECT_EQ(Access::writeIndex(display), 0);
    EXPECT_EQ(Access::readIndex(display), 0);
    EXPECT_EQ(put(50.0), holder.memory[0].data());
    EXPECT_EQ(take(), 50.0);
}

TEST_F(FrameRing, AnEmptyRingIsWaitedForThreeSecondsAndFiveMillisecondsWhenClosing) {
    auto start = Clock::now();
    EXPECT_EQ(take(), -2.0);
    const double open = millisecondsSince(start);
    EXPECT_GE(open, 2950.0);
    EXPECT_LT(open, 15000.0);
    display.stopWaiting();
    start = Clock::now();
    EXPECT_EQ(take(), -2.0);
    const double closing = millisecondsSince(start);
    EXPECT_GE(closing, 4.5);
    EXPECT_LT(closing, 1000.0);
}

TEST_F(FrameRing, ClosingEndsWaitsThatRun) {
    auto consumer = std::async(std::launch::async, [this] { return take(); });
    EXPECT_EQ(consumer.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
    const auto start = Clock::now();
    display.stopWaiting();
    EXPECT_EQ(consumer.get(), -2.0);
    EXPECT_LT(millisecondsSince(start), 1000.0);
    fill();
    auto producer = std::async(std::launch::async, [this] { put(100.0, 0); });
    EXPECT_EQ(producer.wait_for(std::chrono::seconds(10)), std::future_status::ready)
        << "a producer without a limit waits for a display that is being closed";
    if (producer.wait_for(std::chrono::seconds(0)) != std::future_status::ready) {
        display.release();
    }
}

TEST_F(FrameRing, ProducerAndConsumerOnTwoThreads) {
    constexpr int frames = 3000;
    std::thread producer([this] {
        for (int i = 1; i <= frames; ++i) {
            unsigned char* buffer = nullptr;
            display.enQueue(&buffer, 64, 48, i, 0);
            buffer[0] = static_cast<unsigned char>(i);
            buffer[64 * 48 - 1] = static_cast<unsigned char>(i);
            display.enQueueEnd();
        }
    });
    for (int i = 1; i <= frames; ++i) {
        int index = 0;
        unsigned width = 0, height = 0;
        double pts = 0;
        if (!display.deQueue(&index, &width, &height, &pts)) {
            ADD_FAILURE() << "no frame " << i;
            break;
        }
        const std::vector<unsigned char>& picture = holder.memory[static_cast<std::size_t>(index)];
        EXPECT_EQ(pts, i);
        EXPECT_EQ(picture[0], static_cast<unsigned char>(i));
        EXPECT_EQ(picture[64 * 48 - 1], static_cast<unsigned char>(i));
        display.release();
    }
    display.stopWaiting();
    producer.join();
}

TEST_F(FrameRing, AProducerThatOverrunsASlowConsumerLosesOnlyWholeFrames) {
    std::atomic<bool> done{false};
    testing::internal::CaptureStdout();
    std::thread producer([&] {
        for (int i = 1; i <= 2000; ++i) {
            put(i, 1);
        }
        done = true;
    });
    double last = 0;
    while (!done) {
        Access::setDequeueWait(display, 0);
        const double pts = take();
        if (pts != -2.0) {
            EXPECT_GT(pts, last);
            last = pts;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    producer.join();
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(out.find("clean queue buff\n"), 0U) << "the ring never overflowed";
    EXPECT_GT(last, 0);
}
