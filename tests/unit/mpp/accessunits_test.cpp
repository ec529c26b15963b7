// Cutting a stream into access units, packet ends or not.
#include "engine/mpp/accessunits.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "tests/unit/mpp/coded.h"

using coded::Bytes;
using mpp::AccessUnit;
using mpp::AccessUnits;

namespace {

std::vector<Bytes> stream() {
    coded::Avc how;
    how.bFrames = 2;
    how.slices = 3;
    how.keyDistance = 4;
    how.more = "aud=1";
    return coded::encode(how);
}

std::vector<Bytes> takeAll(AccessUnits& units) {
    std::vector<Bytes> taken;
    AccessUnit unit;
    while (units.next(unit)) {
        EXPECT_TRUE(unit.hasSlice);
        taken.push_back(unit.bytes);
    }
    return taken;
}

}  // namespace

TEST(AvcUnits, AreFoundWhereverPacketsEnd) {
    const std::vector<Bytes> expected = stream();
    Bytes all;
    for (const Bytes& unit : expected) {
        all.insert(all.end(), unit.begin(), unit.end());
    }
    for (std::size_t piece = 1; piece < 40; ++piece) {
        SCOPED_TRACE("pieces of " + std::to_string(piece));
        AccessUnits units;
        for (std::size_t at = 0; at < all.size(); at += piece) {
            units.push(all.data() + at, std::min(piece, all.size() - at), 0, true);
        }
        units.end();
        EXPECT_EQ(takeAll(units), expected);
    }
}

TEST(AvcUnits, OfWholePacketsAreGivenOutAtOnceAfterTheFirstThree) {
    const std::vector<Bytes> expected = stream();
    AccessUnits units;
    std::size_t given = 0;
    for (std::size_t i = 0; i < expected.size(); ++i) {
        units.push(expected[i].data(), expected[i].size(), 0, true);
        given += takeAll(units).size();
        EXPECT_EQ(given, i < 2 ? i : i + 1) << "after packet " << i;
    }
    // One that begins in the middle: the packets' ends say nothing again.
    const Bytes& last = expected.back();
    units.push(last.data() + 9, last.size() - 9, 0, true);
    EXPECT_TRUE(takeAll(units).empty());
    units.push(last.data(), last.size(), 0, true);
    EXPECT_EQ(takeAll(units).size(), 1U);
}

TEST(AvcUnits, ArePacketsWhereThatWasSaid) {
    const std::vector<Bytes> expected = stream();
    AccessUnits units;
    for (const Bytes& unit : expected) {
        units.push(unit.data(), unit.size(), 0, false);
    }
    EXPECT_EQ(takeAll(units), expected);
}

TEST(AvcUnits, CarryTheStampOfThePacketTheyBeginIn) {
    const std::vector<Bytes> expected = stream();
    AccessUnits units;
    Bytes rest;
    for (std::size_t i = 0; i < expected.size(); ++i) {
        // Every packet holds the end of the unit before and most of its own.
        Bytes packet = rest;
        const auto middle =
            expected[i].begin() + static_cast<std::ptrdiff_t>(expected[i].size() / 2);
        packet.insert(packet.end(), expected[i].begin(), middle);
        rest.assign(middle, expected[i].end());
        units.push(packet.data(), packet.size(), static_cast<std::int64_t>(i), true);
    }
    units.push(rest.data(), rest.size(), 77, true);
    units.end();
    AccessUnit unit;
    for (std::size_t i = 0; i < expected.size(); ++i) {
        ASSERT_TRUE(units.next(unit));
        EXPECT_EQ(unit.bytes, expected[i]);
        EXPECT_EQ(unit.pts, static_cast<std::int64_t>(i));
    }
}

TEST(AvcUnits, DoNotGrowWithoutEnd) {
    AccessUnits units;
    const Bytes noise(3 << 20, 0x55);
    for (int i = 0; i < 7; ++i) {
        units.push(noise.data(), noise.size(), 0, true);
    }
    units.end();
    AccessUnit unit;
    ASSERT_TRUE(units.next(unit));
    EXPECT_LE(unit.bytes.size(), AccessUnits::largestUnit);
    EXPECT_FALSE(units.next(unit));
}
