// Turning and mirroring against a plain loop.
#include <gtest/gtest.h>

#include <atomic>
#include <ostream>
#include <thread>

#include "tests/unit/engine/pictures.h"

using namespace pictures;

namespace {

constexpr int width = 48;
constexpr int height = 32;

struct Turn {
    const char* name;
    int code;
    bool quarter;  // sides change places
    // Where the destination's (x, y) comes from.
    void (*origin)(int x, int y, int& sourceX, int& sourceY);
};

void PrintTo(const Turn& one, std::ostream* out) {
    *out << one.name;
}

const std::vector<Turn> turns = {
    {"none", 0, false, [](int x, int y, int& sx, int& sy) { sx = x, sy = y; }},
    {"flip_h", HAL_TRANSFORM_FLIP_H, false,
     [](int x, int y, int& sx, int& sy) { sx = width - 1 - x, sy = y; }},
    {"flip_v", HAL_TRANSFORM_FLIP_V, false,
     [](int x, int y, int& sx, int& sy) { sx = x, sy = height - 1 - y; }},
    {"rot_180", HAL_TRANSFORM_ROT_180, false,
     [](int x, int y, int& sx, int& sy) { sx = width - 1 - x, sy = height - 1 - y; }},
    {"flip_h_v", HAL_TRANSFORM_FLIP_H_V, false,
     [](int x, int y, int& sx, int& sy) { sx = width - 1 - x, sy = height - 1 - y; }},
    {"rot_90", HAL_TRANSFORM_ROT_90, true,
     [](int x, int y, int& sx, int& sy) { sx = y, sy = height - 1 - x; }},
    {"rot_270", HAL_TRANSFORM_ROT_270, true,
     [](int x, int y, int& sx, int& sy) { sx = width - 1 - y, sy = x; }},
    {"flip_h_rot_90", HAL_TRANSFORM_FLIP_H | HAL_TRANSFORM_ROT_90, true,
     [](int x, int y, int& sx, int& sy) { sx = width - 1 - y, sy = height - 1 - x; }},
};

class RgaTurn : public testing::TestWithParam<Turn> {
  protected:
    RockchipRga engine;
};

}  // namespace

TEST_P(RgaTurn, MovesEverySample) {
    const Turn& turn = GetParam();
    for (const Code& from : sources) {
        if (!halvesChromaLines(from.code)) {
            continue;
        }
        for (const Code& to : destinations) {
            if (!isYuv(to.code)) {
                continue;
            }
            SCOPED_TRACE(std::string(from.name) + " to " + to.name);
            Picture source(from.code, width, height);
            Picture destination(to.code, turn.quarter ? height : width,
                                turn.quarter ? width : height);
            source.fillRandom(9);
            rga_info_t src = source.info();
            rga_info_t dst = destination.info();
            src.rotation = turn.code;
            ASSERT_EQ(engine.RkRgaBlit(&src, &dst, nullptr), 0);
            for (int y = 0; y < destination.height(); ++y) {
                for (int x = 0; x < destination.width(); ++x) {
                    int sx = 0, sy = 0;
                    turn.origin(x, y, sx, sy);
                    ASSERT_EQ(destination.at(x, y), source.at(sx, sy)) << x << "," << y;
                }
            }
        }
    }
}

// The corners tell where a picture went, also where rounding and halved chroma forbid equality.
TEST_P(RgaTurn, BringsCornersToTheirPlaceInEveryPairAndScaled) {
    const Turn& turn = GetParam();
    for (const Code& from : sources) {
        for (const Code& to : destinations) {
            SCOPED_TRACE(std::string(from.name) + " to " + to.name);
            Picture source(from.code, width, height);
            for (int y = 0; y < height; ++y) {
                for (int x = 0; x < width; ++x) {
                    source.put(x, y,
                               x < width / 2 ? (y < height / 2 ? red : green)(from.code)
                                             : blue(from.code));
                }
            }
            Picture destination(to.code, (turn.quarter ? height : width) * 2,
                                (turn.quarter ? width : height) * 2);
            rga_info_t src = source.info();
            rga_info_t dst = destination.info();
            dst.rotation = turn.code;
            ASSERT_EQ(engine.RkRgaBlit(&src, &dst, nullptr), 0);
            for (const int x : {4, destination.width() - 5}) {
                for (const int y : {4, destination.height() - 5}) {
                    int sx = 0, sy = 0;
                    turn.origin(x / 2, y / 2, sx, sy);
                    const auto colour = sx < width / 2 ? (sy < height / 2 ? red : green) : blue;
                    EXPECT_LE(distance(destination.at(x, y), colour(to.code)), 2)
                        << x << "," << y << ": " << describe(destination.at(x, y));
                }
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(All, RgaTurn, testing::ValuesIn(turns),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(RgaRotation, AngleHelperKnowsQuarterTurns) {
    rga_info_t info{};
    info.rotation = 55;
    rga_set_rotation(&info, 45);
    EXPECT_EQ(info.rotation, 55);
    rga_set_rotation(&info, 90);
    EXPECT_EQ(info.rotation, 4);
    rga_set_rotation(&info, 180);
    EXPECT_EQ(info.rotation, 3);
    rga_set_rotation(&info, 270);
    EXPECT_EQ(info.rotation, 7);
}

// One engine object serves all decoder threads at once, each with its own sizes.
TEST(RgaThreads, ShareOneEngine) {
    RockchipRga engine;
    std::atomic<int> wrong{0};
    const auto work = [&engine, &wrong](int number) {
        const int code = sources[static_cast<std::size_t>(number)].code;
        Picture source(code, 160 + 16 * number, 96);
        source.fillRandom(static_cast<unsigned>(number));
        Picture first(RK_FORMAT_YCrCb_420_SP, 200, 120 + 8 * number);
        Picture again(RK_FORMAT_YCrCb_420_SP, 200, 120 + 8 * number);
        rga_info_t src = source.info();
        rga_info_t dst = first.info();
        wrong += engine.RkRgaBlit(&src, &dst, nullptr) != 0;
        for (int round = 0; round < 50; ++round) {
            again.fillBytes(0);
            dst = again.info();
            wrong += engine.RkRgaBlit(&src, &dst, nullptr) != 0;
            wrong +=
                !std::equal(again.memory().data(), again.memory().data() + again.memory().size(),
                            first.memory().data());
        }
    };
    std::vector<std::thread> threads;
    for (int number = 0; number < 8; ++number) {
        threads.emplace_back(work, number);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(wrong, 0);
}
