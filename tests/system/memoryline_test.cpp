// Five minutes of play, ten times as fast: the supervisor reports its memory once.

#include <gtest/gtest.h>

#include "tests/support/application.h"
#include "tests/support/scenarios.h"

namespace {

using support::Milliseconds;

TEST(MemoryLine, ComesAfterSixThousandHealthyRounds) {
    support::Board board(support::benchScenario("tiny"), 4);
    support::Application application(board);
    const std::size_t next = application.expectPlaying();
    const auto began = support::Clock::now();
    const std::string form = R"(^hw memory\[\d+\]$)";
    const auto line = application.out().waitForMatch(form, Milliseconds(150000), next);
    ASSERT_TRUE(line.has_value()) << application.out().text();
    // 6000 rounds of 50 ms at four times the speed are 75 s; a round takes a little more than its
    // sleep.
    const double waited_s = std::chrono::duration<double>(support::Clock::now() - began).count();
    EXPECT_GE(waited_s, 70);
    EXPECT_FALSE(application.out().waitForMatch("^statue: ", Milliseconds(0), next).has_value());
}

}  // namespace
