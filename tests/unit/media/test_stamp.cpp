#include "board/media/stamp.h"

#include <gtest/gtest.h>

extern "C" {
#include <libswscale/swscale.h>
}

#include <algorithm>
#include <ostream>
#include <random>
#include <vector>

namespace {

using board::readStamp;
using board::Stamp;

struct Size {
    std::uint32_t width, height;
};

void PrintTo(const Size& one, std::ostream* out) {
    *out << one.width << "x" << one.height;
}

// A luma plane with noise around the mark, as a picture has.
std::vector<std::uint8_t> stampedLuma(Size size, const Stamp& stamp) {
    std::vector<std::uint8_t> luma(std::size_t(size.width) * size.height);
    std::mt19937 random(7);
    for (auto& sample : luma)
        sample = std::uint8_t(16 + random() % 220);
    board::drawStampLuma(luma.data(), 1, size.width, size.width, stamp);
    return luma;
}

std::vector<std::uint8_t> scaled(const std::vector<std::uint8_t>& yuyv, Size from, Size to) {
    SwsContext* scaler =
        sws_getContext(int(from.width), int(from.height), AV_PIX_FMT_YUYV422, int(to.width),
                       int(to.height), AV_PIX_FMT_NV12, SWS_BICUBIC, nullptr, nullptr, nullptr);
    std::vector<std::uint8_t> nv12(std::size_t(to.width) * to.height * 3 / 2);
    const std::uint8_t* source[] = {yuyv.data()};
    const int sourceStride[] = {int(from.width) * 2};
    std::uint8_t* target[] = {nv12.data(), nv12.data() + std::size_t(to.width) * to.height};
    const int targetStride[] = {int(to.width), int(to.width)};
    sws_scale(scaler, source, sourceStride, 0, int(from.height), target, targetStride);
    sws_freeContext(scaler);
    return nv12;
}

TEST(Stamp, ReadsBackWhatWasDrawn) {
    const Size size{640, 480};
    for (const Stamp stamp :
         {Stamp{0, 0}, Stamp{1, 2}, Stamp{0xffffff, 0xffffffff}, Stamp{0x123456, 0x89abcdef}}) {
        const auto luma = stampedLuma(size, stamp);
        const auto read = readStamp(luma.data(), 1, size.width, size.width, size.height);
        ASSERT_TRUE(read);
        EXPECT_EQ(read->frame, stamp.frame);
        EXPECT_EQ(read->time_100us, stamp.time_100us);
    }
}

TEST(Stamp, FrameNumberWrapsAt24Bits) {
    const auto luma = stampedLuma({640, 480}, {0x1000005, 9});
    const auto read = readStamp(luma.data(), 1, 640, 640, 480);
    ASSERT_TRUE(read);
    EXPECT_EQ(read->frame, 5u);
}

TEST(Stamp, YuyvMarkHasNeutralChromaAndLeavesTheRest) {
    const std::uint32_t width = 640, height = 480;
    std::vector<std::uint8_t> picture(width * height * 2, 77);
    board::drawStampYuyv(picture.data(), width * 2, width, {3, 4});
    EXPECT_TRUE(readStamp(picture.data(), 2, width * 2, width, height));
    const std::uint32_t cell = board::stampCell(width);
    for (std::uint32_t y = 0; y < height; ++y) {
        for (std::uint32_t x = 0; x < width; ++x) {
            const std::size_t at = (y * width + x) * 2;
            const bool inside = x < 16 * cell && y < 4 * cell;
            ASSERT_EQ(picture[at + 1], inside ? 128 : 77) << x << "," << y;
            if (!inside) {
                ASSERT_EQ(picture[at], 77) << x << "," << y;
            }
        }
    }
}

TEST(Stamp, OneCellTurnedIsRejected) {
    const std::uint32_t width = 640, height = 480, cell = board::stampCell(width);
    for (unsigned row = 0; row < board::stampRows; ++row) {
        for (unsigned column = 0; column < board::stampColumns; ++column) {
            auto luma = stampedLuma({width, height}, {0x00abcd, 0x12345678});
            for (std::uint32_t y = row * cell; y < (row + 1) * cell; ++y)
                for (std::uint32_t x = column * cell; x < (column + 1) * cell; ++x)
                    luma[y * width + x] = std::uint8_t(251 - luma[y * width + x]);
            EXPECT_FALSE(readStamp(luma.data(), 1, width, width, height)) << row << "," << column;
        }
    }
}

// Where a frame was lost, a decoder adds the change that leads from one picture to the next to
// another picture.
TEST(Stamp, NoMixtureOfMarksInALoopIsAMark) {
    const std::uint32_t width = 64, height = 4;  // cells of one pixel
    std::vector<std::vector<std::uint8_t>> marks;
    for (std::uint32_t place = 0; place < 600; ++place) {
        marks.emplace_back(width * height);
        board::drawStampLuma(marks.back().data(), 1, width, width, {place, board::stampInLoop});
        const auto read = readStamp(marks.back().data(), 1, width, width, height);
        ASSERT_TRUE(read);
        ASSERT_EQ(read->frame, place);
        ASSERT_EQ(read->time_100us, board::stampInLoop);
    }
    std::vector<std::uint8_t> mixed(width * height);
    for (std::uint32_t other = 0; other < marks.size(); ++other) {
        for (std::uint32_t place = 1; place < marks.size(); place += 5) {
            if (place == other || place - 1 == other)
                continue;
            for (std::size_t i = 0; i < mixed.size(); ++i)
                mixed[i] = std::uint8_t(
                    std::clamp(marks[other][i] + marks[place][i] - marks[place - 1][i], 0, 255));
            const auto read = readStamp(mixed.data(), 1, width, width, height);
            // One with a time of its own is not the stream's, as the board knows; one that no
            // change could touch stands for the picture that was shown already.
            ASSERT_FALSE(read && read->time_100us == board::stampInLoop && read->frame != other)
                << read->frame << " out of " << other << " and the change to " << place;
        }
    }
}

TEST(Stamp, PicturesWithoutAMarkHaveNone) {
    const std::uint32_t width = 640, height = 480;
    for (const int even : {0, 16, 126, 235, 255}) {
        const std::vector<std::uint8_t> luma(width * height, std::uint8_t(even));
        EXPECT_FALSE(readStamp(luma.data(), 1, width, width, height)) << even;
    }
    std::vector<std::uint8_t> stripes(width * height);
    for (std::size_t i = 0; i < stripes.size(); ++i)
        stripes[i] = i % width / 80 % 2 ? 235 : 16;
    EXPECT_FALSE(readStamp(stripes.data(), 1, width, width, height));
}

TEST(Stamp, TooSmallAPictureIsNotReadOutside) {
    const std::vector<std::uint8_t> luma(32 * 8, 235);
    EXPECT_FALSE(readStamp(luma.data(), 1, 32, 32, 8));
    EXPECT_FALSE(readStamp(luma.data(), 1, 0, 0, 0));
    const std::vector<std::uint8_t> flat(640 * 4, 16);
    EXPECT_FALSE(readStamp(flat.data(), 1, 640, 640, 4));
}

class ScaledStamp : public testing::TestWithParam<std::tuple<Size, Size>> {};

TEST_P(ScaledStamp, SurvivesScalingAndConversion) {
    const auto [from, to] = GetParam();
    std::mt19937 random(11);
    std::vector<std::uint8_t> yuyv(std::size_t(from.width) * from.height * 2);
    for (auto& sample : yuyv)
        sample = std::uint8_t(16 + random() % 220);
    for (const Stamp stamp :
         {Stamp{0, 0}, Stamp{0x5555aa, 0xaaaa5555}, Stamp{0xfffffe, 0xfedcba98}}) {
        board::drawStampYuyv(yuyv.data(), from.width * 2, from.width, stamp);
        const auto nv12 = scaled(yuyv, from, to);
        const auto read = readStamp(nv12.data(), 1, to.width, to.width, to.height);
        ASSERT_TRUE(read) << from.width << "x" << from.height << " -> " << to.width << "x"
                          << to.height;
        EXPECT_EQ(read->frame, stamp.frame);
        EXPECT_EQ(read->time_100us, stamp.time_100us);
    }
}

std::string pairName(const testing::TestParamInfo<std::tuple<Size, Size>>& info) {
    const auto [from, to] = info.param;
    return std::to_string(from.width) + "x" + std::to_string(from.height) + "_to_" +
           std::to_string(to.width) + "x" + std::to_string(to.height);
}

INSTANTIATE_TEST_SUITE_P(
    Sizes, ScaledStamp,
    testing::Combine(testing::Values(Size{320, 240}, Size{352, 288}, Size{424, 240}, Size{640, 480},
                                     Size{800, 600}, Size{1280, 720}, Size{1920, 1080},
                                     Size{3840, 2160}),
                     testing::Values(Size{320, 180}, Size{640, 480}, Size{1024, 768},
                                     Size{1280, 1024}, Size{1366, 768}, Size{1680, 1050},
                                     Size{1920, 1080}, Size{2560, 1080}, Size{3840, 2160})),
    pairName);

}  // namespace
