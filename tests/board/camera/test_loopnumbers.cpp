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

class HeldUpLoop : public testing::Test {
  protected:
    static constexpr std::uint32_t length = 600;

    void deliver(std::uint32_t upTo) {
        for (; next < upTo; ++next)
            numbers.note(next % length, {next, next});
    }
    std::uint32_t shown(std::uint32_t number) {
        return numbers.resolve({number % length, stampInLoop}).value().frame;
    }

    LoopNumbers numbers;
    std::uint32_t next = 0;
};

TEST_F(HeldUpLoop, PicturesMoreThanALoopOldKeepTheirNumbers) {
    deliver(100);
    EXPECT_EQ(shown(99), 99u);
    deliver(1600);  // all places of 100 and more twice, some three times
    for (std::uint32_t number = 100; number < 1600; number += 7)
        EXPECT_EQ(shown(number), number);
    deliver(2000);
    EXPECT_EQ(shown(1999), 1999u);
}

TEST_F(HeldUpLoop, AnotherLoopsPlacesAreItsOwn) {
    deliver(100);
    EXPECT_EQ(shown(80), 80u);
    numbers.changeLoop(100);
    numbers.note(0, {100, 100});
    numbers.note(1, {101, 101});
    EXPECT_EQ(shown(99), 99u) << "still under way";
    EXPECT_EQ(shown(0), 100u);
    EXPECT_EQ(shown(1), 101u);
}

TEST_F(HeldUpLoop, GoingBackIsNotHidden) {
    deliver(700);
    for (const std::uint32_t number : {650u, 614u, 651u, 524u, 690u})
        EXPECT_EQ(shown(number), number) << "within what may be under way";
    EXPECT_EQ(shown(300), 300u) << "far back";
    EXPECT_EQ(shown(691), 691u);
    deliver(1500);
    EXPECT_EQ(shown(1000), 1000u);
    EXPECT_EQ(shown(1300), 1300u);
    EXPECT_EQ(shown(1264), 1264u) << "where the place was delivered before";
    EXPECT_EQ(shown(1301), 1301u);
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
