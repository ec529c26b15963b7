#include "board/media/payloaddamage.h"

#include "board/media/frameloop.h"
#include "tests/support/reference.h"

#include <gtest/gtest.h>
#include <linux/videodev2.h>

#include <algorithm>

namespace {

using board::damage;
using board::PayloadFault;
using support::Picture;
using support::ReferenceDecoder;

using Bytes = std::vector<std::uint8_t>;

constexpr std::size_t room = 300000;

Bytes goodPayload(std::uint32_t fourcc) {
    board::FrameLoopWish wish;
    wish.recording = "field:bars";
    wish.fourcc = fourcc;
    wish.width = 320;
    wish.height = 240;
    Bytes bytes(room);
    board::makeFrameLoop(
        wish, [] { return true; },
        [&](const auto& loop) {
            bytes.resize(loop->compose(0, {7, 8}, bytes.data(), bytes.size()));
        });
    return bytes;
}

Bytes damaged(PayloadFault fault, const Bytes& good, std::uint32_t fourcc = V4L2_PIX_FMT_MJPEG,
              unsigned seed = 1) {
    std::mt19937 random(seed);
    Bytes bytes = good;
    damage(fault, fourcc, room, random, bytes);
    return bytes;
}

Picture decoded(const Bytes& payload, std::uint32_t fourcc) {
    Picture seen;
    ReferenceDecoder decoder(fourcc, [&seen](const Picture& picture) { seen = picture; });
    EXPECT_TRUE(decoder.decode(payload));
    decoder.finish();
    return seen;
}

bool hasMarker(const Bytes& jpeg, std::uint8_t marker) {
    const Bytes wanted = {0xff, marker};
    return std::search(jpeg.begin(), jpeg.end(), wanted.begin(), wanted.end()) != jpeg.end();
}

TEST(PayloadDamage, EveryNameHasItsFault) {
    std::size_t found = 0;
    for (const char* name : {"truncate", "flip-bits", "no-huffman", "bytes-before", "bytes-after",
                             "wrong-size", "empty", "oversized", "error-flag"}) {
        const auto fault = board::payloadFaultNamed(name);
        ASSERT_TRUE(fault.has_value()) << name;
        EXPECT_EQ(std::size_t(*fault), found++);
        EXPECT_NE(board::payloadFaultNames().find(name), std::string::npos);
    }
    EXPECT_EQ(found, board::payloadFaultCount);
    EXPECT_FALSE(board::payloadFaultNamed("sour").has_value());
}

TEST(PayloadDamage, TablesAreMissingAndThePictureIsTheSame) {
    const Bytes good = goodPayload(V4L2_PIX_FMT_MJPEG);
    const Bytes bad = damaged(PayloadFault::noHuffman, good);
    EXPECT_TRUE(hasMarker(good, 0xc4));
    EXPECT_FALSE(hasMarker(bad, 0xc4));
    EXPECT_EQ(decoded(bad, V4L2_PIX_FMT_MJPEG).luma, decoded(good, V4L2_PIX_FMT_MJPEG).luma);
}

TEST(PayloadDamage, OversizedFillsTheBufferAndThePictureIsTheSame) {
    for (const std::uint32_t fourcc : {V4L2_PIX_FMT_MJPEG, V4L2_PIX_FMT_H264}) {
        const Bytes good = goodPayload(fourcc);
        const Bytes bad = damaged(PayloadFault::oversized, good, fourcc);
        EXPECT_LE(bad.size(), room);
        EXPECT_GE(bad.size(), room - 8);
        const Picture picture = decoded(bad, fourcc);
        EXPECT_FALSE(picture.luma.empty());
        EXPECT_EQ(picture.luma, decoded(good, fourcc).luma);
    }
}

TEST(PayloadDamage, HeaderSaysAnotherSize) {
    const Bytes good = goodPayload(V4L2_PIX_FMT_MJPEG);
    for (unsigned seed = 1; seed < 10; ++seed) {
        const Bytes bad = damaged(PayloadFault::wrongSize, good, V4L2_PIX_FMT_MJPEG, seed);
        ASSERT_EQ(bad.size(), good.size());
        unsigned different = 0;
        for (std::size_t i = 0; i < good.size(); ++i) {
            different += bad[i] != good[i] ? 1 : 0;
        }
        EXPECT_GE(different, 2u);
        EXPECT_LE(different, 4u);
    }
}

TEST(PayloadDamage, TheRestIsAsItsNameSays) {
    const Bytes good = goodPayload(V4L2_PIX_FMT_MJPEG);
    EXPECT_LT(damaged(PayloadFault::truncate, good).size(), good.size());
    EXPECT_TRUE(damaged(PayloadFault::empty, good).empty());
    EXPECT_EQ(damaged(PayloadFault::errorFlag, good), good);
    const Bytes flipped = damaged(PayloadFault::flipBits, good);
    EXPECT_EQ(flipped.size(), good.size());
    EXPECT_NE(flipped, good);
    EXPECT_EQ(flipped, damaged(PayloadFault::flipBits, good)) << "the seed decides";
    EXPECT_NE(flipped, damaged(PayloadFault::flipBits, good, V4L2_PIX_FMT_MJPEG, 2));
    const Bytes before = damaged(PayloadFault::bytesBefore, good);
    ASSERT_GT(before.size(), good.size());
    EXPECT_TRUE(std::equal(good.rbegin(), good.rend(), before.rbegin()));
    const Bytes after = damaged(PayloadFault::bytesAfter, good);
    ASSERT_GT(after.size(), good.size());
    EXPECT_TRUE(std::equal(good.begin(), good.end(), after.begin()));
}

// Whatever the payload was: it stays within the buffer and nothing is read outside.
TEST(PayloadDamage, TakesAnyBytes) {
    std::mt19937 random(3);
    for (int round = 0; round < 3000; ++round) {
        Bytes bytes(random() % 40);
        for (std::uint8_t& byte : bytes) {
            byte = random() % 3 == 0 ? 0xff : std::uint8_t(random());
        }
        const auto fault = PayloadFault(random() % board::payloadFaultCount);
        const std::size_t length = bytes.size() + random() % 100;
        damage(fault, round % 2 == 0 ? V4L2_PIX_FMT_MJPEG : V4L2_PIX_FMT_H264, length, random,
               bytes);
        EXPECT_LE(bytes.size(), length);
    }
}

}  // namespace
