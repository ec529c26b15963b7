// Colours and exactness of every pair of source and destination.
#include <gtest/gtest.h>

#include <ostream>

#include "tests/unit/engine/pictures.h"

using namespace pictures;

namespace {

struct Pair {
    Code source;
    Code destination;
};

void PrintTo(const Pair& one, std::ostream* out) {
    *out << one.source.name << " to " << one.destination.name;
}

std::vector<Pair> pairs() {
    std::vector<Pair> all;
    for (const Code& source : sources) {
        for (const Code& destination : destinations) {
            all.push_back({source, destination});
        }
    }
    return all;
}

// A conversion between RGB and YUV rounds: exactness is asked of the others.
std::vector<Pair> yuvPairs() {
    std::vector<Pair> some;
    for (const Pair& pair : pairs()) {
        if (isYuv(pair.source.code) && isYuv(pair.destination.code)) {
            some.push_back(pair);
        }
    }
    return some;
}

std::string nameOf(const testing::TestParamInfo<Pair>& info) {
    return std::string(info.param.source.name) + "_to_" + info.param.destination.name;
}

class RgaPair : public testing::TestWithParam<Pair> {
  protected:
    int from = GetParam().source.code;
    int to = GetParam().destination.code;
    RockchipRga engine;
};

class RgaYuvPair : public RgaPair {};

void expectField(Picture& picture, const Sample& wanted, int tolerance) {
    for (int y = 0; y < picture.height(); ++y) {
        for (int x = 0; x < picture.width(); ++x) {
            const Sample found = picture.at(x, y);
            ASSERT_LE(distance(found, wanted), tolerance)
                << "at " << x << "," << y << " " << describe(found) << " instead of "
                << describe(wanted);
        }
    }
}

}  // namespace

TEST_P(RgaPair, KeepsRedGreenAndBlue) {
    for (const auto colour : {red, green, blue}) {
        for (const int size : {48, 64, 130, 20}) {
            Picture source(from, 64, 64);
            Picture destination(to, size, size);
            source.fill(colour(from));
            destination.fillRandom(1);
            rga_info_t src = source.info();
            rga_info_t dst = destination.info();
            ASSERT_EQ(engine.RkRgaBlit(&src, &dst, nullptr), 0);
            expectField(destination, colour(to), 2);
        }
    }
}

TEST_P(RgaYuvPair, UnscaledKeepsEverySampleThatTheDestinationHas) {
    Picture source(from, 96, 50);
    Picture destination(to, 96, 50);
    source.fillRandom(7);
    rga_info_t src = source.info();
    rga_info_t dst = destination.info();
    ASSERT_EQ(engine.RkRgaBlit(&src, &dst, nullptr), 0);
    for (int y = 0; y < 50; ++y) {
        for (int x = 0; x < 96; ++x) {
            Sample wanted = source.at(x, y);
            int tolerance = 0;
            if (!halvesChromaLines(from)) {
                const Sample above = source.at(x, y & ~1);
                const Sample below = source.at(x, y | 1);
                wanted.b = (above.b + below.b + 1) / 2;
                wanted.c = (above.c + below.c + 1) / 2;
                tolerance = 1;
            }
            const Sample found = destination.at(x, y);
            ASSERT_EQ(found.a, wanted.a) << "luma at " << x << "," << y;
            ASSERT_LE(distance(found, wanted), tolerance) << "chroma at " << x << "," << y;
        }
    }
}

TEST_P(RgaPair, OddSizesStayWithinTheirMemory) {
    for (const int width : {1, 2, 3, 7, 33, 65}) {
        for (const int height : {1, 2, 5, 31}) {
            for (const int target : {1, 3, 9, 66}) {
                Picture source(from, width, height);
                Picture destination(to, target, target + 2);
                source.fillRandom(3);
                rga_info_t src = source.info();
                rga_info_t dst = destination.info();
                ASSERT_EQ(engine.RkRgaBlit(&src, &dst, nullptr), 0);
            }
        }
    }
}

TEST_P(RgaPair, LastCornerOfOddStridesStaysWithinItsMemory) {
    for (const int stride : {5, 6, 7}) {
        for (const int length : {1, 2, 3}) {
            const int offset = stride - length;
            Picture source(from, stride, stride);
            Picture destination(to, stride, stride);
            rga_info_t src = source.info(offset, offset, length, length);
            rga_info_t dst = destination.info(offset, offset, length, length);
            ASSERT_EQ(engine.RkRgaBlit(&src, &dst, nullptr), 0);
            dst = destination.info();
            ASSERT_EQ(engine.RkRgaBlit(&src, &dst, nullptr), 0);
        }
    }
}

TEST_P(RgaPair, WritesNothingOutsideTheRectangle) {
    const int x = 8, y = 4, width = 30, height = 20;
    for (const int sourceSize : {40, 90}) {
        Picture source(from, 100, 100);
        Picture destination(to, 64, 48);
        source.fillRandom(5);
        destination.fillBytes(0xa5);
        Picture before(to, 64, 48);
        before.fillBytes(0xa5);
        rga_info_t src = source.info(6, 2, sourceSize, sourceSize);
        rga_info_t dst = destination.info(x, y, width, height);
        ASSERT_EQ(engine.RkRgaBlit(&src, &dst, nullptr), 0);
        int changed = 0;
        for (int line = 0; line < 48; ++line) {
            for (int column = 0; column < 64; ++column) {
                const bool inside =
                    column >= x && column < x + width && line >= y && line < y + height;
                const bool same = destination.at(column, line) == before.at(column, line);
                changed += inside && !same;
                ASSERT_TRUE(inside || same) << "at " << column << "," << line;
            }
        }
        EXPECT_GT(changed, width * height * 9 / 10);
    }
}

TEST_P(RgaPair, ReadsOnlyTheRectangle) {
    Picture source(from, 100, 80);
    source.fill(blue(from));
    for (int y = 10; y < 50; ++y) {
        for (int x = 20; x < 60; ++x) {
            source.put(x, y, red(from));
        }
    }
    for (const int size : {40, 24, 100}) {
        Picture destination(to, size, size);
        rga_info_t src = source.info(20, 10, 40, 40);
        rga_info_t dst = destination.info();
        ASSERT_EQ(engine.RkRgaBlit(&src, &dst, nullptr), 0);
        expectField(destination, red(to), 2);
    }
}

INSTANTIATE_TEST_SUITE_P(All, RgaPair, testing::ValuesIn(pairs()), nameOf);
INSTANTIATE_TEST_SUITE_P(All, RgaYuvPair, testing::ValuesIn(yuvPairs()), nameOf);

TEST(RgaConversion, SwappedPlanarToSwappedPairsCopiesTheBytes) {
    Picture source(RK_FORMAT_YCrCb_420_P, 64, 32);
    Picture destination(RK_FORMAT_YCrCb_420_SP, 64, 32);
    source.fillRandom(11);
    rga_info_t src = source.info();
    rga_info_t dst = destination.info();
    RockchipRga engine;
    ASSERT_EQ(engine.RkRgaBlit(&src, &dst, nullptr), 0);
    const std::uint8_t* in = source.memory().data();
    const std::uint8_t* out = destination.memory().data();
    for (int i = 0; i < 64 * 32; ++i) {
        ASSERT_EQ(out[i], in[i]);
    }
    for (int i = 0; i < 32 * 16; ++i) {
        ASSERT_EQ(out[64 * 32 + 2 * i], in[64 * 32 + i]);
        ASSERT_EQ(out[64 * 32 + 2 * i + 1], in[64 * 40 + i]);
    }
}

// A decoder's picture has 16-aligned strides; its padding must not reach the screen.
TEST(RgaConversion, PaddingOfTheSourceIsLeftOut) {
    for (const Code& code : sources) {
        Picture source(code.code, 1920, 1088);
        source.fill(blue(code.code));
        for (int y = 0; y < 1080; ++y) {
            for (int x = 0; x < 1920; ++x) {
                source.put(x, y, green(code.code));
            }
        }
        Picture destination(RK_FORMAT_YCrCb_420_SP, 1920, 1080);
        rga_info_t src = source.info(0, 0, 1920, 1080);
        rga_info_t dst = destination.info();
        RockchipRga engine;
        ASSERT_EQ(engine.RkRgaBlit(&src, &dst, nullptr), 0);
        SCOPED_TRACE(code.name);
        expectField(destination, green(RK_FORMAT_YCrCb_420_SP), 2);
    }
}

TEST(RgaConversion, OddPictureIntoItsOwnStridesKeepsTheLuma) {
    Picture source(RK_FORMAT_YCrCb_420_P, 5, 3);
    Picture destination(RK_FORMAT_YCrCb_420_SP, 5, 3);
    source.fillRandom(2);
    rga_info_t src = source.info();
    rga_info_t dst = destination.info();
    RockchipRga engine;
    ASSERT_EQ(engine.RkRgaBlit(&src, &dst, nullptr), 0);
    for (int y = 0; y < 3; ++y) {
        for (int x = 0; x < 5; ++x) {
            EXPECT_EQ(destination.at(x, y), source.at(x, y)) << x << "," << y;
        }
    }
}

// The destination has no room for the last chroma column and line: the others are copied, not
// squeezed.
TEST(RgaConversion, OddPictureFromWiderStridesKeepsTheChromaThatFits) {
    for (const Code& from : sources) {
        if (!halvesChromaLines(from.code)) {
            continue;
        }
        for (const Code& to : destinations) {
            if (!isYuv(to.code)) {
                continue;
            }
            SCOPED_TRACE(std::string(from.name) + " to " + to.name);
            Picture source(from.code, 16, 16);
            Picture destination(to.code, 9, 7);
            source.fillRandom(4);
            rga_info_t src = source.info(0, 0, 9, 7);
            rga_info_t dst = destination.info();
            RockchipRga engine;
            ASSERT_EQ(engine.RkRgaBlit(&src, &dst, nullptr), 0);
            for (int y = 0; y < 6; ++y) {
                for (int x = 0; x < 8; ++x) {
                    ASSERT_EQ(destination.at(x, y), source.at(x, y)) << x << "," << y;
                }
            }
        }
    }
}

TEST(RgaConversion, TwoLinesOfFullChromaAreAveraged) {
    Picture source(RK_FORMAT_YCbCr_422_SP, 8, 2);
    Picture destination(RK_FORMAT_YCbCr_420_SP, 8, 2);
    source.fill({100, 40, 200});
    for (int x = 0; x < 8; ++x) {
        source.put(x, 1, {100, 80, 100});
    }
    rga_info_t src = source.info();
    rga_info_t dst = destination.info();
    RockchipRga engine;
    ASSERT_EQ(engine.RkRgaBlit(&src, &dst, nullptr), 0);
    EXPECT_LE(distance(destination.at(3, 0), {100, 60, 150}), 1) << describe(destination.at(3, 0));
}
