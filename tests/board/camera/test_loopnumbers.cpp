// Which delivery a picture of a loop was.

#include "board/daemon/camera/loopnumbers.h"

#include <gtest/gtest.h>

namespace board {
namespace {

TEST(LoopNumbers, ThePlaceOfALoopSaysItsLastDelivery) {
    LoopNumbers numbers;
    numbers.note(5, {1005, 70});
    numbers.note(6, {1006, 80});
    numbers.note(5, {5101, 90});
    const auto latest = numbers.resolve({5, stampInLoop});
    ASSERT_TRUE(latest);
    EXPECT_EQ(latest->frame, 5101u);
    EXPECT_EQ(latest->time_100us, 90u);
    EXPECT_EQ(numbers.resolve({6, stampInLoop})->frame, 1006u);
    EXPECT_FALSE(numbers.resolve({7, stampInLoop})) << "was not delivered";
    numbers.clear();
    EXPECT_FALSE(numbers.resolve({5, stampInLoop}));
}

TEST(LoopNumbers, AMarkWithATimeOfItsOwnIsNoPictureOfALoop) {
    LoopNumbers numbers;
    ASSERT_TRUE(numbers.resolve({12, 34}));
    EXPECT_EQ(numbers.resolve({12, 34})->frame, 12u);
    EXPECT_EQ(numbers.resolve({12, 34})->time_100us, 34u);
    numbers.note(12, {1012, 56});
    EXPECT_FALSE(numbers.resolve({12, 34}));
    numbers.clear();
    EXPECT_TRUE(numbers.resolve({12, 34}));
}

}  // namespace
}  // namespace board
