// The supervisor's states, round by round.
#include "control/supervise/statuspoll.h"

#include "control/camera/obsbot.h"
#include "tests/unit/camera/fakeobsbot.h"
#include "tests/unit/supervise/fakeworld.h"

#include <gtest/gtest.h>

namespace {

constexpr char toOpen[] = "statue: STATUE_POLL_NODEVICE ==> STATUE_POOL_OPENDEVICE\n";
constexpr char toPlay[] = "statue: STATUE_POOL_OPENDEVICE ==> STATUE_POOL_PLAY\n";
constexpr char startFailed[] = "statue: STATUE_POOL_OPENDEVICE ==> STATUE_POOL_OPENFAID\n";
constexpr char captureFailed[] = "statue: STATUE_POOL_PLAY ==> STATUE_POOL_PLAYERR\n";
constexpr char pipelineGone[] = "statue: STATUE_POOL_PLAYERR ==> STATUE_POOL_OPENFAID\n";
constexpr char displayLost[] = "statue: STATUE_POOL_PLAY ==> STATUE_POOL_DISCONNECT\n";
constexpr char afterDisplay[] = "statue: STATUE_POOL_PLAYERR ==> STATUE_POLL_NODEVICE\n";
constexpr char unplugged[] = "statue: STATUE_POOL_OPENFAID ==> STATUE_POLL_NODEVICE\n";
constexpr char wokenUp[] = "statue: STATUE_POOL_OPENFAID ==> STATUE_POLL_NODEVICE(WAKE UP)\n";

using Sleeps = std::vector<long>;

class Supervisor : public testing::Test {
  protected:
    void SetUp() override {
        world = FakeWorld();
        obsBotLife = {};
        ObsBot::dormantStatus = 0;
        poll = std::make_unique<StatusPoll>();
    }
    void TearDown() override {
        // The destructor frees nothing: bring the machine to a state without pipeline and task.
        world.captureError = 1;
        world.nodes.clear();
        rounds(4);
        EXPECT_EQ(world.living, 0);
        EXPECT_EQ(obsBotLife.living, 0);
    }

    // What the next rounds print; afterwards world.sleeps_ms holds their waits.
    std::string rounds(int count) {
        world.sleeps_ms.clear();
        testing::internal::CaptureStdout();
        for (int round = 0; round < count; ++round) {
            poll->pollOnce();
        }
        return testing::internal::GetCapturedStdout();
    }
    // From play to a camera that was put to sleep: it stops streaming.
    void fallAsleep() {
        play();
        ObsBot::dormantStatus = 1;
        world.captureError = 1;
        ASSERT_EQ(rounds(2), std::string(captureFailed) + pipelineGone);
        world.captureError = 0;
    }
    // Brings the machine into play.
    void play() {
        world.nodes["/dev/video0"] = 10;
        ASSERT_EQ(rounds(2), std::string(toOpen) + toPlay);
    }

    std::unique_ptr<StatusPoll> poll;
};

TEST_F(Supervisor, GivesItsThreadASecond) {
    EXPECT_EQ(world.sleeps_ms, Sleeps{1000});
}

TEST_F(Supervisor, WaitsForACamera) {
    EXPECT_EQ(rounds(3), "");
    EXPECT_EQ(world.sleeps_ms, (Sleeps{50, 50, 50}));
    EXPECT_EQ(world.displayProbes, 0U);
    world.nodes["/dev/video30"] = 1;
    world.nodes["/dev/video"] = 2;
    EXPECT_EQ(rounds(3), "");
    EXPECT_EQ(poll->checkIsDeviceExist(), 0);
    world.nodes["/dev/video29"] = 3;
    EXPECT_EQ(rounds(1), toOpen);
    EXPECT_EQ(world.sleeps_ms, Sleeps{});
}

TEST_F(Supervisor, WaitsForADisplayWithoutOpeningTheCamera) {
    world.nodes["/dev/video0"] = 1;
    world.displayPresent = false;
    EXPECT_EQ(rounds(3), "");
    EXPECT_EQ(world.sleeps_ms, (Sleeps{50, 50, 50}));
    EXPECT_EQ(world.pipelines.size(), 0U);
    world.displayPresent = true;
    EXPECT_EQ(rounds(1), toOpen);
}

TEST_F(Supervisor, TakesTheLowestNumber) {
    world.nodes["/dev/video7"] = 1;
    world.nodes["/dev/video5"] = 2;
    world.nodes["/dev/video12"] = 3;
    rounds(2);
    EXPECT_EQ(world.pipelines, std::vector<std::string>{"/dev/video5"});
}

TEST_F(Supervisor, LetsTheCameraSettleBeforeItBuilds) {
    world.nodes["/dev/video0"] = 1;
    rounds(1);
    EXPECT_EQ(rounds(1), toPlay);
    EXPECT_EQ(world.sleeps_ms, Sleeps{1000});
    EXPECT_EQ(world.living, 1);
    EXPECT_EQ(rounds(2), "");
    EXPECT_EQ(world.sleeps_ms, (Sleeps{50, 50}));
}

TEST_F(Supervisor, AFailedStartIsNotTriedAgainUntilTheNodeGoes) {
    world.nodes["/dev/video0"] = 1;
    world.pipelineStarts = false;
    EXPECT_EQ(rounds(2), std::string(toOpen) + startFailed);
    EXPECT_EQ(world.living, 0);
    EXPECT_EQ(rounds(50), "");
    EXPECT_EQ(world.sleeps_ms, Sleeps(50, 50));
    EXPECT_EQ(world.pipelines.size(), 1U);
    world.nodes.clear();
    EXPECT_EQ(rounds(1), unplugged);
    world.nodes["/dev/video0"] = 2;
    world.pipelineStarts = true;
    EXPECT_EQ(rounds(2), std::string(toOpen) + toPlay);
}

TEST_F(Supervisor, AReplugFasterThanTheTeardownIsSeen) {
    play();
    world.captureError = 1;
    EXPECT_EQ(rounds(2), std::string(captureFailed) + pipelineGone);
    world.captureError = 0;
    world.nodes["/dev/video0"] = 11;
    EXPECT_EQ(rounds(3), std::string(unplugged) + toOpen + toPlay);
}

TEST_F(Supervisor, AReplugUnderAnotherNumberIsSeen) {
    play();
    world.captureError = 1;
    world.nodes = {{"/dev/video1", 11}};
    EXPECT_EQ(rounds(2), std::string(captureFailed) + pipelineGone);
    world.captureError = 0;
    EXPECT_EQ(rounds(3), std::string(unplugged) + toOpen + toPlay);
    EXPECT_EQ(world.pipelines.back(), "/dev/video1");
}

TEST_F(Supervisor, ASleepingCameraIsNotTakenForAReplug) {
    fallAsleep();
    world.nodes["/dev/video0"] = 11;
    EXPECT_EQ(rounds(3), "");
    world.nodes.clear();
    EXPECT_EQ(rounds(1), unplugged);
    EXPECT_EQ(ObsBot::dormantStatus, 1);
    EXPECT_EQ(obsBotLife.living, 1);
    rounds(1);
    EXPECT_EQ(ObsBot::dormantStatus, 0);
    EXPECT_EQ(obsBotLife.living, 0);
}

TEST_F(Supervisor, KeepsAControlTaskWhileTheCameraSleeps) {
    world.nodes["/dev/video3"] = 3;
    rounds(2);
    EXPECT_EQ(obsBotLife.made.size(), 0U);  // the pipeline has its own
    ObsBot::dormantStatus = 1;
    world.captureError = 1;
    EXPECT_EQ(rounds(2), std::string(captureFailed) + pipelineGone);
    EXPECT_EQ(rounds(1), "");
    EXPECT_EQ(obsBotLife.made, std::vector<std::string>{"/dev/video3"});
    EXPECT_EQ(world.sleeps_ms, Sleeps{});
    EXPECT_EQ(rounds(20), "");
    EXPECT_EQ(world.sleeps_ms, Sleeps(20, 50));
    EXPECT_EQ(obsBotLife.made.size(), 1U);
    EXPECT_EQ(world.pipelines.size(), 1U);
}

TEST_F(Supervisor, RebuildsAfterTheWakeUp) {
    fallAsleep();
    EXPECT_EQ(rounds(2), "");
    ASSERT_EQ(obsBotLife.living, 1);
    ObsBot::dormantStatus = 0;
    EXPECT_EQ(rounds(1), wokenUp);
    EXPECT_EQ(world.sleeps_ms, Sleeps{50});
    EXPECT_EQ(obsBotLife.living, 1);
    EXPECT_EQ(rounds(1), toOpen);
    EXPECT_EQ(obsBotLife.living, 0);
    EXPECT_EQ(rounds(1), toPlay);
    EXPECT_EQ(world.living, 1);
    EXPECT_EQ(obsBotLife.made.size(), 1U);
}

TEST_F(Supervisor, SleepsAndWakesAgainAndAgain) {
    play();
    for (int cycle = 1; cycle <= 10; ++cycle) {
        ObsBot::dormantStatus = 1;
        world.captureError = 1;
        EXPECT_EQ(rounds(3), std::string(captureFailed) + pipelineGone);
        world.captureError = 0;
        ObsBot::dormantStatus = 0;
        EXPECT_EQ(rounds(3), std::string(wokenUp) + toOpen + toPlay);
        EXPECT_EQ(obsBotLife.living, 0);
        EXPECT_EQ(static_cast<int>(obsBotLife.made.size()), cycle);
    }
}

// It re-enumerates: the node is new, the camera is not.
TEST_F(Supervisor, ACameraThatWakesAsANewNodeIsWokenUp) {
    fallAsleep();
    EXPECT_EQ(rounds(1), "");
    world.nodes["/dev/video0"] = 11;
    ObsBot::dormantStatus = 0;
    EXPECT_EQ(rounds(3), std::string(wokenUp) + toOpen + toPlay);
}

TEST_F(Supervisor, AWakeUpNeedsADisplayToo) {
    fallAsleep();
    EXPECT_EQ(rounds(1), "");
    world.displayPresent = false;
    ObsBot::dormantStatus = 0;
    EXPECT_EQ(rounds(1), wokenUp);
    EXPECT_EQ(rounds(3), "");
    EXPECT_EQ(obsBotLife.living, 0);
    world.displayPresent = true;
    EXPECT_EQ(rounds(2), std::string(toOpen) + toPlay);
}

// Woken and unplugged within one round: both lines, one after the other.
TEST_F(Supervisor, AWakeUpIsSaidOfACameraThatHasGone) {
    fallAsleep();
    EXPECT_EQ(rounds(1), "");
    world.nodes.clear();
    ObsBot::dormantStatus = 0;
    EXPECT_EQ(rounds(1), std::string(unplugged) + wokenUp);
    EXPECT_EQ(rounds(2), "");
    EXPECT_EQ(obsBotLife.living, 0);
}

// The way back is through the state without devices, where a camera counts as awake.
TEST_F(Supervisor, ADisplayThatGoesForgetsTheSleep) {
    play();
    ObsBot::dormantStatus = 1;
    world.captureError = 2;
    EXPECT_EQ(rounds(2), std::string(displayLost) + afterDisplay);
    EXPECT_EQ(ObsBot::dormantStatus, 1);
    world.captureError = 0;
    EXPECT_EQ(rounds(2), std::string(toOpen) + toPlay);
    EXPECT_EQ(ObsBot::dormantStatus, 0);
    EXPECT_EQ(obsBotLife.made.size(), 0U);
}

TEST_F(Supervisor, AFailedStartOfAnAwakeCameraMakesNoControlTask) {
    world.nodes["/dev/video0"] = 1;
    world.pipelineStarts = false;
    EXPECT_EQ(rounds(10), std::string(toOpen) + startFailed);
    EXPECT_EQ(obsBotLife.made.size(), 0U);
}

TEST_F(Supervisor, AnUnpluggedCameraEndsThePipeline) {
    play();
    world.captureError = 1;
    world.nodes.clear();
    EXPECT_EQ(rounds(1), captureFailed);
    EXPECT_EQ(world.living, 1);
    EXPECT_EQ(rounds(1), pipelineGone);
    EXPECT_EQ(world.living, 0);
    EXPECT_EQ(rounds(1), unplugged);
    EXPECT_EQ(rounds(2), "");
}

TEST_F(Supervisor, AnUnpluggedDisplayEndsThePipeline) {
    play();
    world.captureError = 2;
    world.displayPresent = false;
    EXPECT_EQ(rounds(1), displayLost);
    EXPECT_EQ(rounds(1), afterDisplay);
    EXPECT_EQ(world.living, 0);
    EXPECT_EQ(rounds(4), "");
    world.displayPresent = true;
    world.captureError = 0;
    EXPECT_EQ(rounds(2), std::string(toOpen) + toPlay);
}

TEST_F(Supervisor, ReportsItsMemoryEverySixThousandRounds) {
    play();
    EXPECT_EQ(rounds(5999), "");
    EXPECT_EQ(rounds(1).find("hw memory["), 0U);
    EXPECT_EQ(rounds(5999), "");
    EXPECT_EQ(rounds(1).find("hw memory["), 0U);
}

}  // namespace
