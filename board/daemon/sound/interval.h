// Arithmetic of the ranges in which the kernel's sound interface keeps a hardware parameter: from
// min to max, either end open or not, whole numbers only or not. Products and quotients are the
// narrowest such range that holds every possible result; what exceeds 32 bits stays at the limit.
#pragma once

#include <sound/asound.h>

#include <cstdint>

namespace board {

using Interval = snd_interval;

Interval anyInterval();
Interval exactly(std::uint32_t value);
Interval between(std::uint32_t least, std::uint32_t most);  // whole numbers
bool isEmpty(const Interval& interval);
bool isSingle(const Interval& interval);              // holds one whole number
std::uint32_t singleValue(const Interval& interval);  // of a single one
bool holds(const Interval& interval, std::uint32_t value);

Interval product(const Interval& a, const Interval& b);
Interval quotient(const Interval& a, const Interval& b);
Interval productOver(const Interval& a, const Interval& b, std::uint32_t k);   // a * b / k
Interval productUnder(const Interval& a, std::uint32_t k, const Interval& b);  // a * k / b

// Narrows `interval` to what it has in common with `other`. Whether it changed; afterwards it may
// be empty.
bool narrow(Interval& interval, const Interval& other);
// The smallest or the largest whole number of it alone.
bool narrowToFirst(Interval& interval);
bool narrowToLast(Interval& interval);

}  // namespace board
