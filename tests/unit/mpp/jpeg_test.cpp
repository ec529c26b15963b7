// MJPEG pictures, good and bad, through task mode.
#include <gtest/gtest.h>

#include <algorithm>
#include <ostream>
#include <random>
#include <string>

#include "tests/unit/mpp/client.h"
#include "tests/unit/mpp/coded.h"

using client::Mjpeg;
using client::Shown;
using coded::Bytes;
using coded::Jpeg;

namespace {

constexpr std::size_t roomy = 4U << 20;

void expectSame(const Shown& shown, const coded::Picture& expected, double least = 45) {
    ASSERT_EQ(shown.errinfo, 0U);
    ASSERT_TRUE(shown.hasBuffer);
    EXPECT_EQ(static_cast<int>(shown.width), expected.width);
    EXPECT_EQ(static_cast<int>(shown.height), expected.height);
    EXPECT_EQ(shown.horStride, (shown.width + 15) / 16 * 16);
    EXPECT_EQ(shown.verStride, (shown.height + 15) / 16 * 16);
    EXPECT_GE(coded::psnr(shown.picture.y, expected.y), least);
    ASSERT_EQ(shown.picture.u.size(), expected.u.size());
    if (!expected.u.empty()) {
        EXPECT_GE(coded::psnr(shown.picture.u, expected.u), least);
        EXPECT_GE(coded::psnr(shown.picture.v, expected.v), least);
    }
}

void expectRefused(const Shown& shown) {
    EXPECT_NE(shown.errinfo, 0U);
    EXPECT_FALSE(shown.hasBuffer);
}

struct Sampling {
    const char* name;
    int across, down, lumaFactor;
    MppFrameFormat format;
};

void PrintTo(const Sampling& one, std::ostream* out) {
    *out << one.name;
}

const std::vector<Sampling> samplings = {
    {"s420", 2, 2, 0, MPP_FMT_YUV420SP},     {"s422", 2, 1, 0, MPP_FMT_YUV422SP},
    {"s422high", 2, 1, 2, MPP_FMT_YUV422SP}, {"s444", 1, 1, 0, MPP_FMT_YUV444SP},
    {"s440", 1, 2, 0, MPP_FMT_YUV440SP},     {"s411", 4, 1, 0, MPP_FMT_YUV411SP},
    {"s400", 0, 0, 0, MPP_FMT_YUV400},
};

class MjpegSampling : public testing::TestWithParam<Sampling> {};

}  // namespace

TEST_P(MjpegSampling, PictureIsTheReferenceDecoders) {
    const Sampling& sampling = GetParam();
    Mjpeg decoder(roomy);
    const int sizes[][2] = {{176, 144}, {182, 94}, {64, 8}, {17, 33}, {1, 1}, {33, 120}};
    for (const auto& size : sizes) {
        SCOPED_TRACE(std::to_string(size[0]) + "x" + std::to_string(size[1]));
        Jpeg how;
        how.width = size[0];
        how.height = size[1];
        how.across = sampling.across;
        how.down = sampling.down;
        how.lumaFactor = sampling.lumaFactor;
        const Bytes jpeg = coded::encode(how);
        const Shown shown = decoder.decode(jpeg);
        EXPECT_EQ(shown.format, sampling.format);
        expectSame(shown, coded::decodeJpeg(jpeg));
    }
}

TEST(Mjpeg, WidthOfManyDisplays) {
    Jpeg how;
    how.width = 1366;
    how.height = 62;
    Mjpeg decoder(roomy);
    for (const int down : {1, 2}) {
        how.down = down;
        const Bytes jpeg = coded::encode(how);
        expectSame(decoder.decode(jpeg), coded::decodeJpeg(jpeg));
    }
}

INSTANTIATE_TEST_SUITE_P(Table, MjpegSampling, testing::ValuesIn(samplings),
                         [](const auto& info) { return std::string(info.param.name); });

namespace {

Bytes usual(int width = 160, int height = 120) {
    Jpeg how;
    how.width = width;
    how.height = height;
    return coded::encode(how);
}

// The decoder must be as good as new after anything.
void expectGoodNext(Mjpeg& decoder) {
    const Bytes good = usual();
    expectSame(decoder.decode(good), coded::decodeJpeg(good));
}

}  // namespace

TEST(Mjpeg, MissingHuffmanTablesAreTheStandardOnes) {
    Mjpeg decoder(roomy);
    const Bytes whole = usual();
    const Bytes bare = coded::withoutSegments(whole, 0xc4);
    ASSERT_LT(bare.size(), whole.size());
    expectSame(decoder.decode(bare), coded::decodeJpeg(whole));
}

TEST(Mjpeg, TablesOfOnePictureAreNotUsedForTheNext) {
    Mjpeg decoder(roomy);
    Jpeg own;
    own.ownTables = true;
    own.quality = 50;
    const Bytes other = coded::encode(own);
    const Bytes whole = usual();
    const Bytes bare = coded::withoutSegments(whole, 0xc4);
    expectSame(decoder.decode(other), coded::decodeJpeg(other));
    expectSame(decoder.decode(bare), coded::decodeJpeg(whole));
    expectRefused(decoder.decode(coded::withoutSegments(whole, 0xdb)));  // no quantisation either
}

TEST(Mjpeg, BytesAroundThePictureDoNotMatter) {
    Mjpeg decoder(roomy);
    const Bytes whole = usual();
    Bytes padded(37, 0x00);
    padded[5] = 0xff;
    padded[6] = 0xd8;
    padded.insert(padded.end(), whole.begin(), whole.end());
    padded.insert(padded.end(), 5000, 0xaa);
    expectSame(decoder.decode(padded), coded::decodeJpeg(whole));
    const Bytes withoutEnd(whole.begin(), whole.end() - 2);
    expectSame(decoder.decode(withoutEnd), coded::decodeJpeg(whole));
}

TEST(Mjpeg, RestartIntervalsAreRead) {
    Mjpeg decoder(roomy);
    Jpeg how;
    how.restart = 1;
    const Bytes jpeg = coded::encode(how);
    expectSame(decoder.decode(jpeg), coded::decodeJpeg(jpeg));
}

TEST(Mjpeg, CutShortIsAnErrorWithoutPicture) {
    Mjpeg decoder(roomy);
    const Bytes whole = usual();
    for (std::size_t size = 0; size < whole.size() * 3 / 4; size += whole.size() / 23) {
        SCOPED_TRACE("cut at " + std::to_string(size));
        expectRefused(decoder.decode(Bytes(whole.begin(), whole.begin() + size)));
    }
    expectGoodNext(decoder);
}

TEST(Mjpeg, FewMissingBytesAreForgiven) {
    Mjpeg decoder(roomy);
    const Bytes whole = usual();
    const Shown shown = decoder.decode(Bytes(whole.begin(), whole.end() - 12));
    EXPECT_EQ(shown.errinfo, 0U);
    const coded::Picture expected = coded::decodeJpeg(whole);
    // All lines but those of the last blocks.
    const auto lines = static_cast<std::ptrdiff_t>(160) * (120 - 16);
    EXPECT_GE(coded::psnr(Bytes(shown.picture.y.begin(), shown.picture.y.begin() + lines),
                          Bytes(expected.y.begin(), expected.y.begin() + lines)),
              45);
}

TEST(Mjpeg, NothingAtAllIsAnError) {
    Mjpeg decoder(roomy);
    expectRefused(decoder.decode({}));
    expectRefused(decoder.decode(Bytes(5000, 0)));
    expectRefused(decoder.decode(Bytes(5000, 0xff)));
    expectRefused(decoder.decode({0xff, 0xd8, 0xff}));
    expectRefused(decoder.decode({0xff, 0xd8, 0xff, 0xd9}));
    expectGoodNext(decoder);
}

TEST(Mjpeg, WrongSizeInTheHeaderIsAnError) {
    const Bytes whole = usual();
    std::size_t frame = 2;
    while (whole[frame + 1] != 0xc0) {
        frame += 2 + whole[frame + 2] * 256U + whole[frame + 3];
    }
    Mjpeg decoder(roomy);
    const int sizes[][2] = {{160, 480}, {320, 120}, {1280, 720},    {16, 16},
                            {160, 64},  {0, 0},     {65500, 65500}, {160, 0}};
    for (const auto& size : sizes) {
        SCOPED_TRACE(std::to_string(size[0]) + "x" + std::to_string(size[1]));
        Bytes wrong = whole;
        wrong[frame + 5] = static_cast<std::uint8_t>(size[1] >> 8);
        wrong[frame + 6] = static_cast<std::uint8_t>(size[1]);
        wrong[frame + 7] = static_cast<std::uint8_t>(size[0] >> 8);
        wrong[frame + 8] = static_cast<std::uint8_t>(size[0]);
        expectRefused(decoder.decode(wrong));
    }
    expectGoodNext(decoder);
}

TEST(Mjpeg, LargerThanTheBufferIsAnErrorAndWritesNothing) {
    const std::size_t exact = 160 * 128 * 3 / 2;  // 120 lines lie on 128
    const Bytes jpeg = usual();
    {
        Mjpeg decoder(exact);
        expectSame(decoder.decode(jpeg), coded::decodeJpeg(jpeg));
    }
    Mjpeg decoder(exact - 1);
    auto* memory = static_cast<std::uint8_t*>(mpp_buffer_get_ptr(decoder.frameBuffer));
    std::fill(memory, memory + exact - 1, std::uint8_t{0x5a});
    expectRefused(decoder.decode(jpeg));
    EXPECT_TRUE(std::all_of(memory, memory + exact - 1, [](int value) { return value == 0x5a; }));
}

TEST(Mjpeg, WhatTheHardwareDoesNotTakeIsAnError) {
    Mjpeg decoder(roomy);
    Jpeg progressive;
    progressive.progressive = true;
    const Shown first = decoder.decode(coded::encode(progressive));
    expectRefused(first);
    EXPECT_EQ(first.errinfo, MPP_FRAME_ERR_UNSUPPORT);
    Jpeg rgb;
    rgb.rgb = true;
    rgb.across = 1;
    rgb.down = 1;
    EXPECT_EQ(decoder.decode(coded::encode(rgb)).errinfo, MPP_FRAME_ERR_UNSUPPORT);
    Jpeg quarter;
    quarter.across = 4;
    quarter.down = 2;
    EXPECT_EQ(decoder.decode(coded::encode(quarter)).errinfo, MPP_FRAME_ERR_UNSUPPORT);
    expectGoodNext(decoder);
}

TEST(Mjpeg, FlippedBitsNeverCrash) {
    Mjpeg decoder(160 * 128 * 4);
    const Bytes whole = usual();
    std::minstd_rand random(20);
    int refused = 0;
    for (int round = 0; round < 600; ++round) {
        Bytes damaged = whole;
        const unsigned flips = 1 + random() % 8;
        for (unsigned i = 0; i < flips; ++i) {
            damaged[random() % damaged.size()] ^= static_cast<std::uint8_t>(1U << random() % 8);
        }
        const Shown shown = decoder.decode(damaged);
        EXPECT_EQ(shown.errinfo != 0, !shown.hasBuffer);
        refused += shown.errinfo != 0 ? 1 : 0;
    }
    EXPECT_GT(refused, 100);
    expectGoodNext(decoder);
}
