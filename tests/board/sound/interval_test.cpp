// Ranges against all pairs of numbers in them.
#include "board/daemon/sound/interval.h"

#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <random>
#include <vector>

namespace {

using board::Interval;

// An end and whether it belongs to the range, on a grid of eighths: fine enough to stand between
// any two whole numbers.
constexpr int grid = 8;

bool contains(const Interval& interval, double value) {
    if (board::isEmpty(interval))
        return false;
    if (interval.integer && value != double(std::int64_t(value)))
        return false;
    const bool aboveLow = interval.openmin ? value > interval.min : value >= interval.min;
    const bool belowHigh = interval.openmax ? value < interval.max : value <= interval.max;
    return aboveLow && belowHigh;
}

std::vector<double> pointsOf(const Interval& interval) {
    std::vector<double> points;
    for (int at = int(interval.min) * grid; at <= int(interval.max) * grid; ++at)
        if (contains(interval, double(at) / grid))
            points.push_back(double(at) / grid);
    return points;
}

Interval randomInterval(std::mt19937& random) {
    Interval interval{};
    interval.min = 1 + random() % 20;  // no parameter is ever 0
    interval.max = interval.min + random() % 10;
    interval.integer = random() % 3 == 0;
    interval.openmin = !interval.integer && random() % 2 == 0;
    interval.openmax = !interval.integer && random() % 2 == 0;
    return interval;
}

// Holds every result, and its ends are the whole numbers around the outermost ones.
template <typename Operation>
void check(const Interval& result, const Interval& a, const Interval& b, bool divides,
           Operation operation) {
    for (const double x : pointsOf(a))
        for (const double y : pointsOf(b)) {
            const double value = operation(x, y);
            ASSERT_TRUE(value > result.min || (value == result.min && !result.openmin)) << value;
            ASSERT_TRUE(value < result.max || (value == result.max && !result.openmax)) << value;
        }
    EXPECT_EQ(double(result.min), std::floor(operation(a.min, divides ? b.max : b.min)));
    EXPECT_EQ(double(result.max), std::ceil(operation(a.max, divides ? b.min : b.max)));
}

TEST(Intervals, ResultsHoldEveryCombination) {
    std::mt19937 random(1);
    unsigned checked = 0;
    for (int round = 0; round < 1000; ++round) {
        const Interval a = randomInterval(random), b = randomInterval(random);
        if (board::isEmpty(a) || board::isEmpty(b))
            continue;
        ++checked;
        check(board::product(a, b), a, b, false, [](double x, double y) { return x * y; });
        check(board::productOver(a, b, 7), a, b, false,
              [](double x, double y) { return x * y / 7; });
        check(board::quotient(a, b), a, b, true, [](double x, double y) { return x / y; });
        check(board::productUnder(a, 8, b), a, b, true,
              [](double x, double y) { return x * 8 / y; });
    }
    EXPECT_GT(checked, 500u);
}

TEST(Intervals, WholeOperandsGiveTheNarrowestRange) {
    const Interval product = board::product(board::between(3, 5), board::between(7, 9));
    EXPECT_EQ(product.min, 21u);
    EXPECT_EQ(product.max, 45u);
    EXPECT_TRUE(product.integer);
    // 10 / 3 lies between 3 and 4, neither of which it is.
    const Interval third = board::quotient(board::exactly(10), board::exactly(3));
    EXPECT_EQ(third.min, 3u);
    EXPECT_TRUE(third.openmin);
    EXPECT_EQ(third.max, 4u);
    EXPECT_TRUE(third.openmax);
    const Interval half = board::quotient(board::exactly(10), board::exactly(2));
    EXPECT_TRUE(board::isSingle(half));
    EXPECT_EQ(board::singleValue(half), 5u);
    EXPECT_FALSE(half.openmin || half.openmax);
}

TEST(Intervals, PeriodTimeOfUsualSizes) {
    const Interval time = board::productUnder(board::exactly(1024), 1000000, board::exactly(48000));
    EXPECT_EQ(time.min, 21333u);
    EXPECT_TRUE(time.openmin);
    EXPECT_EQ(time.max, 21334u);
    const Interval back = board::productOver(time, board::exactly(48000), 1000000);
    EXPECT_TRUE(board::holds(back, 1024));
    EXPECT_FALSE(board::holds(back, 1023));
}

TEST(Intervals, LimitsStay) {
    const Interval huge = board::product(board::between(1, UINT_MAX), board::between(1, UINT_MAX));
    EXPECT_EQ(huge.max, UINT_MAX);
    const Interval byNothing = board::quotient(board::exactly(5), board::between(0, 2));
    EXPECT_EQ(byNothing.max, UINT_MAX);
    EXPECT_FALSE(byNothing.openmax);
    EXPECT_TRUE(board::isEmpty(board::product(board::between(2, 1), board::exactly(3))));
}

TEST(Intervals, NarrowingKeepsWhatBothHave) {
    std::mt19937 random(2);
    for (int round = 0; round < 3000; ++round) {
        Interval a = randomInterval(random);
        const Interval b = randomInterval(random), before = a;
        const bool changed = board::narrow(a, b);
        bool differs = false;
        for (int at = 0; at <= 40 * grid; ++at) {
            const double value = double(at) / grid;
            const bool expected = contains(before, value) && contains(b, value);
            ASSERT_EQ(contains(a, value), expected)
                << value << " of " << before.min << ".." << before.max << " and " << b.min << ".."
                << b.max;
            differs = differs || expected != contains(before, value);
        }
        EXPECT_TRUE(changed || !differs);
    }
}

TEST(Intervals, FirstAndLast) {
    Interval first = board::between(3, 9), last = first;
    EXPECT_TRUE(board::narrowToFirst(first));
    EXPECT_TRUE(board::narrowToLast(last));
    EXPECT_EQ(board::singleValue(first), 3u);
    EXPECT_EQ(board::singleValue(last), 9u);
    EXPECT_FALSE(board::narrowToFirst(first));
    Interval open{};
    open.min = 3;
    open.max = 9;
    open.openmin = open.openmax = 1;
    Interval openLast = open;
    board::narrowToFirst(open);
    EXPECT_EQ(board::singleValue(open), 4u);
    board::narrowToLast(openLast);
    EXPECT_EQ(board::singleValue(openLast), 8u);
}

}  // namespace
