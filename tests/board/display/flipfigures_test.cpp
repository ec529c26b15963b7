#include "board/daemon/display/flipfigures.h"

#include <gtest/gtest.h>

namespace board {
namespace {

Stamp mark(std::uint32_t frame, std::uint32_t time_100us = 0) {
    Stamp stamp;
    stamp.frame = frame;
    stamp.time_100us = time_100us;
    return stamp;
}

TEST(FlipFigures, tellsNewRepeatedSkippedAndLatePictures) {
    FlipFigures figures;
    EXPECT_TRUE(figures.count(mark(10), 0).isNew);
    EXPECT_TRUE(figures.count(mark(11), 0).isNew);
    const FlipStep again = figures.count(mark(11), 0);
    EXPECT_FALSE(again.isNew);
    EXPECT_TRUE(again.repeated);
    const FlipStep far = figures.count(mark(15), 0);
    EXPECT_TRUE(far.isNew);
    EXPECT_FALSE(far.repeated);
    EXPECT_EQ(far.skipped, 3u);
    const FlipStep late = figures.count(mark(14), 0);
    EXPECT_TRUE(late.isNew);
    EXPECT_EQ(late.skipped, 0u);
    EXPECT_FALSE(figures.count(std::nullopt, 0).isNew);
    const DisplayFigures result = figures.figures();
    EXPECT_EQ(result.flips, 6u);
    EXPECT_EQ(result.shown, 5u);
    EXPECT_EQ(result.repeated, 1u);
    EXPECT_EQ(result.skipped, 3u);
    EXPECT_EQ(result.outOfOrder, 1u);
    EXPECT_EQ(result.lastFrame, 14u);
}

TEST(FlipFigures, picturesDrawnOverAreCounted) {
    FlipFigures figures;
    figures.count(mark(10), 0);
    figures.count(mark(46), 0, true);
    figures.count(mark(12), 0);
    figures.count(std::nullopt, 0, true);
    EXPECT_EQ(figures.figures().overwritten, 2u);
    EXPECT_EQ(figures.figures().outOfOrder, 1u);
}

TEST(FlipFigures, frameNumbersWrap) {
    FlipFigures figures;
    figures.count(mark(0xffffff), 0);
    figures.count(mark(1), 0);
    EXPECT_EQ(figures.figures().skipped, 1u);
    EXPECT_EQ(figures.figures().outOfOrder, 0u);
}

TEST(FlipFigures, latencyIsOfNewPicturesAndWraps) {
    FlipFigures figures;
    figures.count(mark(1, 0xfffffff0u), 0x10);  // 3.2 ms across the wrap
    figures.count(mark(1, 0xfffffff0u), 0x1000);
    EXPECT_DOUBLE_EQ(figures.figures().latencyMedian_ms, 3.2);
    EXPECT_DOUBLE_EQ(figures.figures().latencyP99_ms, 3.2);
    figures.count(mark(2, 500), 400);  // from the future: no sample
    EXPECT_DOUBLE_EQ(figures.figures().latencyP99_ms, 3.2);
}

TEST(FlipFigures, percentilesAreOfTheLastWindow) {
    FlipFigures figures;
    for (std::uint32_t i = 0; i < 100; ++i)
        figures.count(mark(i, 0), (i + 1) * 10);
    EXPECT_DOUBLE_EQ(figures.figures().latencyMedian_ms, 50);
    EXPECT_DOUBLE_EQ(figures.figures().latencyP95_ms, 95);
    EXPECT_DOUBLE_EQ(figures.figures().latencyP99_ms, 99);
    const auto window = std::uint32_t(FlipFigures::window);
    for (std::uint32_t i = 0; i < 2 * window; ++i)
        figures.count(mark(100 + i, 0), i < window ? 90 : 20);
    EXPECT_DOUBLE_EQ(figures.figures().latencyP99_ms, 2);
}

TEST(FlipFigures, resetForgetsEverything) {
    FlipFigures figures;
    figures.count(mark(5), 10);
    figures.reset();
    EXPECT_EQ(figures.figures().flips, 0u);
    figures.count(mark(1), 10);
    EXPECT_EQ(figures.figures().outOfOrder, 0u);
}

}  // namespace
}  // namespace board
