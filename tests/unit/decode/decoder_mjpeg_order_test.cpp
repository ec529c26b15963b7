// The MJPEG decoder's two workers, finishing in any order.
#include "tests/unit/decode/mjpegdecoder.h"

#include <atomic>
#include <random>
#include <thread>

TEST_F(MjpegDecoder, TheOlderOfTwoFramesThatFinishInReverseIsNotShown) {
    open();
    fake.holdOutputs(true);
    const Printed printed = bothPrintedBy([&] {
        decoder->receive_handler(compressedFrame(1.0, 11), 0);
        decoder->receive_handler(compressedFrame(2.0, 22), 0);
        ASSERT_TRUE(fake.waitForHeld(2)) << "both are decoded at once";
        fake.letGo(22);
        ASSERT_TRUE(comesOnScreen(1));
        fake.letGo(11);
        EXPECT_TRUE(comesTrue([&] { return fake.callsOf("enqueue output") == 2; }));
    });
    EXPECT_EQ(printed.err, "");
    ASSERT_EQ(ready(), 1);
    const Shown shown = takeShown(*screen);
    EXPECT_EQ(shown.pts, 2.0);
    EXPECT_EQ(shown.luma, 22);
}

TEST_F(MjpegDecoder, InAnyOrderTheScreenNeverGoesBackAndNoSlotIsGivenTwice) {
    constexpr int pairs = 300;
    open();
    fake.holdOutputs(true);
    DisplayDrmTestAccess::setDequeueWait(screen->display, 0);
    std::mt19937 random(7);
    double last = 0;
    int shownFrames = 0;
    bothPrintedBy([&] {
        const auto takeAll = [&] {
            while (ready() > 0) {
                const Shown shown = takeShown(*screen);
                ASSERT_GT(shown.pts, last);
                last = shown.pts;
                // A picture's colour goes with its time stamp.
                ASSERT_EQ(shown.luma, 2 + static_cast<int>(shown.pts) % 200) << shown.pts;
                ++shownFrames;
            }
        };
        for (int pair = 0; pair < pairs; ++pair) {
            const int first = 2 * pair + 1;
            const auto colourOf = [](int pts) { return static_cast<unsigned char>(2 + pts % 200); };
            for (int pts = first; pts < first + 2; ++pts) {
                decoder->receive_handler(compressedFrame(pts, colourOf(pts)), 0);
            }
            ASSERT_TRUE(fake.waitForHeld(static_cast<std::size_t>(first) + 1));
            const bool reverse = random() % 2 != 0;
            fake.letGo(colourOf(reverse ? first + 1 : first));
            if (random() % 2 != 0) {  // else both at once
                ASSERT_TRUE(comesTrue([&] { return fake.callsOf("enqueue output") > 2 * pair; }));
            }
            fake.letGo(colourOf(reverse ? first : first + 1));
            ASSERT_TRUE(comesTrue([&] { return fake.callsOf("enqueue output") == 2 * pair + 2; }));
            takeAll();
        }
    });
    EXPECT_EQ(last, 2 * pairs) << "the newest of the last pair";
    EXPECT_GE(shownFrames, pairs);
    EXPECT_LE(shownFrames, 2 * pairs);
}
