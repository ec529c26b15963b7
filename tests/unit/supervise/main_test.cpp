// What the entry sets up before anything else runs.
#include "tests/unit/supervise/fakeworld.h"

#include <gtest/gtest.h>
#include <signal.h>

int applicationMain(int argc, char** argv);  // main, under another name

namespace {

void (*handlerOf(int number))(int) {
    struct sigaction action {};
    sigaction(number, nullptr, &action);
    return action.sa_handler;
}

// The supervisor's thread is not started here, so main comes back.
TEST(Main, IsNotEndedByPipesOrLateNotifications) {
    world = FakeWorld();
    EXPECT_EQ(applicationMain(0, nullptr), 0);
    EXPECT_EQ(world.sleeps_ms, std::vector<long>{1000});  // it made a supervisor
    EXPECT_TRUE(world.bookkeepingCameFirst) << "the version lines are the first of the log";
    EXPECT_EQ(handlerOf(SIGPIPE), SIG_IGN);
    EXPECT_EQ(handlerOf(SIGIO), SIG_IGN);
    sigset_t blocked;
    ASSERT_EQ(pthread_sigmask(SIG_BLOCK, nullptr, &blocked), 0);
    EXPECT_EQ(sigismember(&blocked, SIGIO), 1);
    // A service manager's request still ends it.
    EXPECT_EQ(handlerOf(SIGTERM), SIG_DFL);
    EXPECT_EQ(sigismember(&blocked, SIGTERM), 0);
}

}  // namespace
