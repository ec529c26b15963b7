#include "board/daemon/display/modetiming.h"

#include "tests/board/display/displayrig.h"

#include <gtest/gtest.h>

namespace board {
namespace {

using test::mode1080p60;

TEST(ModeTiming, refreshRespectsInterlaceDoublescanAndVscan) {
    drm_mode_modeinfo mode = toModeInfo(mode1080p60());
    EXPECT_DOUBLE_EQ(refresh_Hz(mode), 60.0);
    mode.flags = DRM_MODE_FLAG_INTERLACE;
    EXPECT_DOUBLE_EQ(refresh_Hz(mode), 120.0);
    mode.flags = DRM_MODE_FLAG_DBLSCAN;
    EXPECT_DOUBLE_EQ(refresh_Hz(mode), 30.0);
    mode.flags = 0;
    mode.vscan = 3;
    EXPECT_DOUBLE_EQ(refresh_Hz(mode), 20.0);
}

TEST(ModeTiming, doesNotDrift) {
    DisplayMode description = mode1080p60();
    description.clock_kHz = 148352;  // 59.94 Hz
    const drm_mode_modeinfo mode = toModeInfo(description);
    const VblankTiming timing(mode, 1000);
    // 148352 periods last exactly 2200 * 1125 seconds / 1000.
    EXPECT_EQ(timing.time_ns(148352), 1000 + 2475ll * 1000000000);
    EXPECT_EQ(timing.time_ns(148352ull * 1000), 1000 + 2475000ll * 1000000000);
}

TEST(ModeTiming, indexIsTheLastVblankAtOrBefore) {
    const VblankTiming timing(toModeInfo(mode1080p60()), 5000);
    EXPECT_EQ(timing.indexAt(0), 0u);
    EXPECT_EQ(timing.indexAt(5000), 0u);
    for (const std::uint64_t index : {1ull, 2ull, 59ull, 60ull, 1000003ull, 123456789ull}) {
        const std::int64_t time = timing.time_ns(index);
        EXPECT_EQ(timing.indexAt(time), index);
        EXPECT_EQ(timing.indexAt(time - 1), index - 1);
    }
}

TEST(ModeTiming, indexHoldsAtEveryBoundary) {
    DisplayMode description = mode1080p60();
    description.clock_kHz = 148352;
    const VblankTiming timing(toModeInfo(description), 12345);
    // From the first hours, and from a time that a double cannot tell to the nanosecond.
    for (const std::uint64_t from : {1ull, 10000000000ull}) {
        for (std::uint64_t index = from; index < from + 300000; index += 7) {
            const std::int64_t time = timing.time_ns(index);
            ASSERT_EQ(timing.indexAt(time), index);
            ASSERT_EQ(timing.indexAt(time - 1), index - 1);
        }
    }
}

TEST(ModeTiming, interlacedFieldsComeTwiceAsOften) {
    drm_mode_modeinfo mode = toModeInfo(mode1080p60());
    mode.flags |= DRM_MODE_FLAG_INTERLACE;
    EXPECT_EQ(VblankTiming(mode, 0).time_ns(120), 1000000000);
}

TEST(ModeTiming, refusesWhatNoCrtcCanRun) {
    const drm_mode_modeinfo good = toModeInfo(mode1080p60());
    EXPECT_TRUE(isUsableMode(good));
    const auto broken = [&](auto change) {
        drm_mode_modeinfo mode = good;
        change(mode);
        return !isUsableMode(mode);
    };
    EXPECT_TRUE(broken([](drm_mode_modeinfo& mode) { mode.clock = 0; }));
    EXPECT_TRUE(broken([](drm_mode_modeinfo& mode) { mode.clock = 0xffffffff; }));
    EXPECT_TRUE(broken([](drm_mode_modeinfo& mode) { mode.clock = 1; }));
    EXPECT_TRUE(broken([](drm_mode_modeinfo& mode) { mode.hdisplay = 0; }));
    EXPECT_TRUE(broken([](drm_mode_modeinfo& mode) { mode.htotal = 0; }));
    EXPECT_TRUE(broken([](drm_mode_modeinfo& mode) { mode.vsync_end = 1; }));
    EXPECT_TRUE(broken([](drm_mode_modeinfo& mode) { mode.vscan = 0xffff; }));
}

TEST(ModeTiming, nameDoesNotChangeTheTiming) {
    drm_mode_modeinfo a = toModeInfo(mode1080p60()), b = a;
    b.name[0] = 'x';
    b.vrefresh = 59;
    EXPECT_TRUE(sameTiming(a, b));
    b.clock += 1;
    EXPECT_FALSE(sameTiming(a, b));
}

}  // namespace
}  // namespace board
