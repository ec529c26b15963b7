// H.264 streams with something missing or broken.
#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <random>
#include <string>

#include "tests/unit/mpp/client.h"
#include "tests/unit/mpp/coded.h"

using client::Shown;
using coded::Bytes;

namespace {

// Stamped with the number of their unit, so that pictures tell which one they are.
std::vector<Shown> decode(const std::vector<Bytes>& units) {
    client::Avc decoder;
    for (std::size_t i = 0; i < units.size(); ++i) {
        decoder.feed(units[i], static_cast<RK_S64>(i));
        decoder.drain();
    }
    decoder.finish();
    return decoder.shown;
}

coded::Avc usual() {
    coded::Avc how;
    how.frames = 24;
    how.keyDistance = 8;
    return how;
}

bool exact(const Shown& shown, const coded::Picture& expected) {
    return shown.picture.y == expected.y && shown.picture.u == expected.u &&
           shown.picture.v == expected.v;
}

}  // namespace

// A picture without error information is exactly the camera's.
TEST(AvcDamage, LostPicturesAreToldUntilTheNextKeyFrame) {
    const coded::Avc how = usual();
    const std::vector<Bytes> units = coded::encode(how);
    const std::vector<coded::Picture> expected = coded::decodeAvc(units);
    for (std::size_t lost = 1; lost < units.size(); lost += 2) {
        SCOPED_TRACE("lost " + std::to_string(lost));
        std::vector<Bytes> rest = units;
        rest[lost].clear();
        const std::vector<Shown> shown = decode(rest);
        std::size_t good = 0;
        for (const Shown& one : shown) {
            if (one.errinfo == 0) {
                EXPECT_TRUE(exact(one, expected[static_cast<std::size_t>(one.pts)])) << one.pts;
                ++good;
            }
        }
        const std::size_t group = static_cast<std::size_t>(how.keyDistance);
        EXPECT_EQ(good, units.size() - (group - lost % group)) << "and no others";
    }
}

// One less than a group: the next picture has the number of the last one that came.
TEST(AvcDamage, ANumberThatComesTwiceIsALossToo) {
    coded::Avc how = usual();
    how.frames = 32;
    const std::vector<Bytes> units = coded::encode(how);
    const std::vector<coded::Picture> expected = coded::decodeAvc(units);
    const std::size_t group = static_cast<std::size_t>(how.keyDistance);
    for (std::size_t first = 2; first < group; ++first) {
        SCOPED_TRACE("lost from " + std::to_string(first));
        std::vector<Bytes> rest = units;
        std::for_each(rest.begin() + static_cast<std::ptrdiff_t>(first),
                      rest.begin() + static_cast<std::ptrdiff_t>(first + group - 1),
                      [](Bytes& unit) { unit.clear(); });
        std::size_t good = 0;
        for (const Shown& one : decode(rest)) {
            if (one.errinfo == 0) {
                EXPECT_TRUE(exact(one, expected[static_cast<std::size_t>(one.pts)])) << one.pts;
                ++good;
            }
        }
        EXPECT_EQ(good, first + 2 * group) << "and no others";
    }
}

TEST(AvcDamage, PicturesThatNobodyRefersToMayBeMissing) {
    coded::Avc how = usual();
    how.bFrames = 1;
    how.more = "b-pyramid=none";
    const std::vector<Bytes> units = coded::encode(how);
    std::vector<Bytes> rest = units;
    std::size_t lost = 0;
    for (Bytes& unit : rest) {
        // A slice of a picture that is not for reference, where every second is one.
        if (unit.size() > 4 && (unit[unit[2] == 1 ? 3 : 4] & 0x7f) == 0x01) {
            unit.clear();
            ++lost;
        }
    }
    ASSERT_GT(lost, 5U);
    const std::vector<Shown> shown = decode(rest);
    EXPECT_EQ(shown.size(), units.size() - lost);
    for (const Shown& one : shown) {
        EXPECT_EQ(one.errinfo, 0U) << one.pts;
    }
}

TEST(AvcDamage, AStreamThatBeginsInTheMiddleIsMarked) {
    const std::vector<Bytes> units = coded::encode(usual());
    // The parameter sets stand before the first picture's slice.
    const Bytes startOfKey = {0, 0, 1, 0x65};
    const auto slice =
        std::search(units[0].begin(), units[0].end(), startOfKey.begin(), startOfKey.end());
    ASSERT_NE(slice, units[0].end());
    std::vector<Bytes> rest(units.begin() + 3, units.end());
    rest.front().insert(rest.front().begin(), units[0].begin(), slice - 1);
    const std::vector<Shown> shown = decode(rest);
    ASSERT_EQ(shown.size(), rest.size());
    for (std::size_t i = 0; i < shown.size(); ++i) {
        EXPECT_EQ(shown[i].discard, i < 5 ? 1U : 0U) << i;
        EXPECT_EQ(shown[i].errinfo != 0, i < 5) << i;
    }
}

TEST(AvcDamage, ErrorInformationCanBeTurnedOff) {
    std::vector<Bytes> units = coded::encode(usual());
    units[3].clear();
    client::Avc decoder;
    RK_U32 on = 1;
    EXPECT_EQ(decoder.mpi->control(decoder.ctx, MPP_DEC_SET_DISABLE_ERROR, &on), MPP_OK);
    for (const Bytes& unit : units) {
        decoder.feed(unit);
    }
    decoder.finish();
    EXPECT_EQ(decoder.shown.size(), units.size() - 1);
    for (const Shown& one : decoder.shown) {
        EXPECT_EQ(one.errinfo, 0U);
    }
}

TEST(AvcDamage, RubbishGivesNothing) {
    client::Avc decoder;
    std::minstd_rand random(5);
    for (int i = 0; i < 50; ++i) {
        Bytes rubbish(random() % 3000);
        for (std::uint8_t& byte : rubbish) {
            byte = static_cast<std::uint8_t>(random() % 4 == 0 ? 0 : random());
        }
        decoder.feed(rubbish);
    }
    decoder.finish();
    EXPECT_TRUE(decoder.shown.empty());
}

TEST(AvcDamage, FlippedBitsNeverCrashAndTheNextKeyFrameIsGood) {
    coded::Avc how = usual();
    how.frames = 12;
    how.keyDistance = 6;
    how.bFrames = 1;
    const std::vector<Bytes> units = coded::encode(how);
    const std::vector<coded::Picture> expected = coded::decodeAvc(units);
    client::Avc decoder;
    std::minstd_rand random(20);
    std::size_t marked = 0;
    for (int round = 0; round < 120; ++round) {
        for (const Bytes& unit : units) {
            Bytes damaged = unit;
            const unsigned flips = random() % 4;
            for (unsigned i = 0; i < flips; ++i) {
                damaged[random() % damaged.size()] ^= static_cast<std::uint8_t>(1U << random() % 8);
            }
            if (random() % 16 == 0) {
                damaged.resize(random() % damaged.size());
            }
            decoder.feed(damaged);
            decoder.drain();
        }
        marked += static_cast<std::size_t>(
            std::count_if(decoder.shown.begin(), decoder.shown.end(),
                          [](const Shown& one) { return one.errinfo != 0; }));
        decoder.shown.clear();
    }
    EXPECT_GT(marked, 300U);
    // One group for what is held back and for packets that were taken for pieces; then all is well.
    for (int i = 0; i < 3; ++i) {
        for (const Bytes& unit : units) {
            decoder.feed(unit, i);
        }
    }
    decoder.finish();
    std::vector<Shown> last;
    std::copy_if(decoder.shown.begin(), decoder.shown.end(), std::back_inserter(last),
                 [](const Shown& one) { return one.pts == 2; });
    ASSERT_EQ(last.size(), expected.size());
    for (std::size_t i = 0; i < last.size(); ++i) {
        EXPECT_EQ(last[i].errinfo, 0U) << i;
        EXPECT_TRUE(exact(last[i], expected[i])) << i;
    }
}
