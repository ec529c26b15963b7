// That delays happen, show a race, and leave other programs alone.

#include <gtest/gtest.h>
#include <cstdio>
#include <filesystem>
#include <string>

#include "tests/support/environment.h"
#include "tests/support/process.h"

namespace {

struct Seen {
    int late = -1, delays = -1;
};

Seen run(const std::string& program) {
    support::Process::Start start;
    start.command = {program};
    start.environment = {{"LD_PRELOAD", DELAYS_LIBRARY}, {"TEST_DELAYS", "report"}};
    support::Process process(start);
    EXPECT_EQ(process.waitForEnd(support::Milliseconds(60000)).value_or(-1), 0);
    Seen seen;
    EXPECT_EQ(std::sscanf(process.out().text().c_str(), "late: %d", &seen.late), 1);
    EXPECT_EQ(std::sscanf(process.err().text().c_str(), "delays: %d", &seen.delays), 1);
    return seen;
}

TEST(Delays, ShowARace) {
    const Seen seen = run(DELAYED_PROGRAM);
    EXPECT_GT(seen.delays, 0);
    EXPECT_GT(seen.late, 0);
}

TEST(Delays, LeaveProgramsOfOthersAlone) {
    const std::string folder = support::makeTemporaryFolder("delays-");
    std::filesystem::copy_file(DELAYED_PROGRAM, folder + "/race");
    EXPECT_EQ(run(folder + "/race").delays, 0);
    std::filesystem::remove_all(folder);
}

}  // namespace
