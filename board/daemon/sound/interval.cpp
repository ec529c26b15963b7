#include "board/daemon/sound/interval.h"

#include <climits>

namespace board {

namespace {

struct Divided {
    std::uint32_t value;
    bool rest;
};

// numerator / denominator rounded down; infinite or too large: the limit, and exact.
Divided divide(std::uint64_t numerator, std::uint32_t denominator) {
    if (denominator == 0 || numerator / denominator > UINT_MAX)
        return {UINT_MAX, false};
    return {std::uint32_t(numerator / denominator), numerator % denominator != 0};
}

void setLow(Interval& interval, Divided low, bool open) {
    interval.min = low.value;
    interval.openmin = low.rest || open;
}

// The true upper end lies above the rounded one when there is a rest.
void setHigh(Interval& interval, Divided high, bool open) {
    const bool above = high.rest && high.value < UINT_MAX;
    interval.max = high.value + (above ? 1 : 0);
    interval.openmax = above || open;
}

Interval nothing() {
    Interval interval{};
    interval.empty = 1;
    return interval;
}

// Ends that are open mean the neighbours where only whole numbers count.
void settle(Interval& interval) {
    if (interval.integer) {
        if (interval.openmin && interval.min < UINT_MAX)
            ++interval.min;
        if (interval.openmax && interval.max > 0)
            --interval.max;
        interval.openmin = interval.openmax = 0;
    } else if (!interval.openmin && !interval.openmax && interval.min == interval.max) {
        interval.integer = 1;
    }
}

}  // namespace

Interval anyInterval() {
    Interval interval{};
    interval.max = UINT_MAX;
    return interval;
}

Interval between(std::uint32_t least, std::uint32_t most) {
    Interval interval{};
    interval.min = least;
    interval.max = most;
    interval.integer = 1;
    return interval;
}

Interval exactly(std::uint32_t value) {
    return between(value, value);
}

bool isEmpty(const Interval& interval) {
    return interval.empty || interval.min > interval.max ||
           (interval.min == interval.max && (interval.openmin || interval.openmax));
}

bool isSingle(const Interval& interval) {
    if (isEmpty(interval))
        return false;
    // Between two neighbours with one end open lies one whole number.
    return interval.min == interval.max ||
           (interval.min + 1 == interval.max && (interval.openmin || interval.openmax));
}

std::uint32_t singleValue(const Interval& interval) {
    return interval.openmin && !interval.openmax ? interval.max : interval.min;
}

bool holds(const Interval& interval, std::uint32_t value) {
    if (isEmpty(interval) || value < interval.min || value > interval.max)
        return false;
    return !(interval.openmin && value == interval.min) &&
           !(interval.openmax && value == interval.max);
}

Interval product(const Interval& a, const Interval& b) {
    Interval result = productOver(a, b, 1);
    result.integer = a.integer && b.integer;
    return result;
}

Interval quotient(const Interval& a, const Interval& b) {
    return productUnder(a, 1, b);
}

Interval productOver(const Interval& a, const Interval& b, std::uint32_t k) {
    if (isEmpty(a) || isEmpty(b))
        return nothing();
    Interval result{};
    setLow(result, divide(std::uint64_t(a.min) * b.min, k), a.openmin || b.openmin);
    setHigh(result, divide(std::uint64_t(a.max) * b.max, k), a.openmax || b.openmax);
    return result;
}

Interval productUnder(const Interval& a, std::uint32_t k, const Interval& b) {
    if (isEmpty(a) || isEmpty(b))
        return nothing();
    Interval result{};
    setLow(result, divide(std::uint64_t(a.min) * k, b.max), a.openmin || b.openmax);
    setHigh(result, divide(std::uint64_t(a.max) * k, b.min), b.min > 0 && (a.openmax || b.openmin));
    return result;
}

bool narrow(Interval& interval, const Interval& other) {
    const Interval before = interval;
    if (isEmpty(other)) {
        interval.empty = 1;
        return !before.empty;
    }
    if (interval.min < other.min) {
        interval.min = other.min;
        interval.openmin = other.openmin;
    } else if (interval.min == other.min && other.openmin) {
        interval.openmin = 1;
    }
    if (interval.max > other.max) {
        interval.max = other.max;
        interval.openmax = other.openmax;
    } else if (interval.max == other.max && other.openmax) {
        interval.openmax = 1;
    }
    if (other.integer)
        interval.integer = 1;
    settle(interval);
    if (isEmpty(interval))
        interval.empty = 1;
    return interval.min != before.min || interval.max != before.max ||
           interval.openmin != before.openmin || interval.openmax != before.openmax ||
           interval.integer != before.integer || interval.empty != before.empty;
}

bool narrowToFirst(Interval& interval) {
    if (isEmpty(interval) || isSingle(interval))
        return false;
    const std::uint32_t most = interval.max;
    // An open lower end is not in it: what follows up to the next whole number is.
    interval.max = interval.min + (interval.openmin ? 1 : 0);
    interval.openmax = interval.openmax && interval.max >= most;
    return true;
}

bool narrowToLast(Interval& interval) {
    if (isEmpty(interval) || isSingle(interval))
        return false;
    const std::uint32_t least = interval.min;
    interval.min = interval.max - (interval.openmax ? 1 : 0);
    interval.openmin = interval.openmin && interval.min <= least;
    return true;
}

}  // namespace board
