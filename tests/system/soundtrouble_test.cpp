// Whatever happens to microphone or output: little processor, flat memory, a short log, the picture
// goes on, the sound comes back where the card stayed.

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <functional>
#include <optional>
#include <thread>

#include "tests/support/application.h"
#include "tests/support/lateness.h"
#include "tests/system/soundbench.h"

namespace {

using support::Application;
using support::Board;
using support::MicrophoneKind;
using support::Milliseconds;
using support::threadTime_s;

const std::vector<std::string> soundThreads = {"Captureaudio", "PlaybackAudio", "resamplePlay"};
constexpr double mostLines_s = 50;

// One trouble and its end.
struct Step {
    const char* name;
    bool heals;  // sound is back after `end`
    std::function<void(Board&)> begin, end;
};

// One run of the application: troubles that it meets at its start, or while it plays.
struct Trouble {
    const char* name;
    const char* device;
    bool fromStart;  // before the application opens the card
    std::vector<Step> steps;
    std::string microphoneLimits, output;
};

std::ostream& operator<<(std::ostream& out, const Trouble& trouble) {
    return out << trouble.device << ' ' << trouble.name;
}

bool plays(Board& board, std::uint64_t frames) {
    const std::uint64_t before = board.sound("output").frames;
    return board.waitForSound(
        "output", [&](const auto& figures) { return figures.frames >= before + frames; },
        Milliseconds(20000));
}

class SoundTrouble : public testing::TestWithParam<Trouble> {
  protected:
    // Looks at the application for a while of trouble. Where a host takes the processors away, that
    // time is charged to whoever has them, and hardly a picture is shown: then, and only then, for
    // another while. Where they are away in all of them the cost is not judged.
    void measure(Board& board, Application& application) {
        Cost cost;
        bool inTime = false;
        double leastAway = 1;
        for (int attempt = 0; attempt < 10 && !cost.little() && !inTime && !HasFailure();
             ++attempt) {
            const support::LatenessProbe probe;
            cost = measureOnce(board, application);
            inTime = probe.worst_ms() <= support::tolerableLateness_ms;
            leastAway = std::min(leastAway, probe.away());
        }
        if (!cost.little() && leastAway >= support::unusableAway) {
            away_ = leastAway;
            return;
        }
        EXPECT_GT(cost.shown, 10U) << "the picture goes on";
        if (!support::sanitizedBuild()) {
            EXPECT_LT(cost.share, mostShare);
        }
    }

    std::optional<double> away_;  // where the cost was not judged

  private:
    static constexpr double mostShare = 0.05;

    struct Cost {
        double share = 1;  // of a core
        std::uint64_t shown = 0;
        bool little() const {
            return shown > 10 && (share < mostShare || support::sanitizedBuild());
        }
    };

    static Cost measureOnce(Board& board, Application& application) {
        const auto began = support::Clock::now();
        const std::uint64_t shown = board.display().shown;
        const double cpu = threadTime_s(application.process().pid(), soundThreads);
        const std::uint64_t memory = support::ownMemory_kB(application.process().pid());
        const std::size_t lines = application.out().size() + application.err().size();
        const Milliseconds window(support::longRun() ? 10000 : 1000);
        // The length of the observation, not a wait.
        std::this_thread::sleep_for(window);
        const double seconds = std::chrono::duration<double>(support::Clock::now() - began).count();
        Cost cost;
        cost.share = (threadTime_s(application.process().pid(), soundThreads) - cpu) / seconds;
        cost.shown = board.display().shown - shown;
        const double rate =
            double(application.out().size() + application.err().size() - lines) / seconds;
        const auto growth =
            std::int64_t(support::ownMemory_kB(application.process().pid())) - std::int64_t(memory);
        std::printf("sound threads %.1f %% of a core, %.0f lines a second, memory %+lld kB\n",
                    100 * cost.share, rate, (long long)growth);
        if (!support::sanitizedBuild()) {
            EXPECT_LT(growth, 4096);
        }
        EXPECT_LE(rate, mostLines_s + 2 / seconds);
        return cost;
    }
};

TEST_P(SoundTrouble, IsBorne) {
    const Trouble& trouble = GetParam();
    MicrophoneKind kind;
    kind.limits = trouble.microphoneLimits;
    Board board(trouble.output.empty() ? support::soundScenario(kind, "ramp")
                                       : support::soundScenario(kind, "ramp", trouble.output));
    if (trouble.fromStart) {
        trouble.steps.front().begin(board);
    }
    Application application(board);
    const std::size_t next = application.expectPlaying();
    ASSERT_TRUE(board.waitForDisplay([](const auto& figures) { return figures.shown > 5; },
                                     Milliseconds(10000)));
    for (const Step& step : trouble.steps) {
        SCOPED_TRACE(step.name);
        if (!trouble.fromStart) {
            ASSERT_TRUE(plays(board, 4800));
            step.begin(board);
        }
        std::printf("%s %s: ", trouble.device, step.name);
        measure(board, application);
        step.end(board);
        if (step.heals) {
            EXPECT_TRUE(plays(board, 12000));
        }
    }
    // Everything ends soon when the camera goes.
    const auto began = support::Clock::now();
    board.unplug("camera");
    application.expectLine("delete capture media succeed", Milliseconds(3000), next);
    EXPECT_TRUE(application.waitForPipelineGone(Milliseconds(500)));
    EXPECT_LT(support::Clock::now() - began, support::scaled(Milliseconds(3000)));
    if (away_) {
        GTEST_SKIP() << support::notJudged(*away_);
    }
}

constexpr char fourChannels[] =
    R"({"settings": [{"formats": ["S16_LE"], "channels": 4, "rates": [48000]}]})";
constexpr char eightChannelOutput[] =
    R"({"name": "eight", "playback": {"settings": [{"formats": ["S16_LE"], "channels": 8, "rates": [48000]}]}})";

void nothing(Board&) {}
void healFaults(Board& board) {
    board.clearFaults();
}

Step onFault(const char* name, const char* ioctl, unsigned count) {
    return {name, true, [=](Board& board) { board.fail(ioctl, 1, EIO, count); }, healFaults};
}

std::vector<Trouble> troublesOf(const char* device) {
    const bool microphone = device[0] == 'm';
    const std::string which = device;
    const char* transfer =
        microphone ? "SNDRV_PCM_IOCTL_READI_FRAMES" : "SNDRV_PCM_IOCTL_WRITEI_FRAMES";
    const auto goOn = [which](Board& board) { board.stall(which, false); };
    const Step openFails{"open fails", false,
                         [which](Board& board) { board.failOpenings(which, ENODEV, 0); }, nothing};
    const Step setChannelsFails{"set channels fails", false, nothing, nothing};
    // The output starts with its first write.
    const Step startFails = microphone ? onFault("start fails", "SNDRV_PCM_IOCTL_START", 0)
                                       : onFault("start fails", transfer, 3);
    const std::vector<Step> playing = {
        onFault("lasting EIO", transfer, 0),
        {"XRUN", true, [which](Board& board) { board.xrun(which); }, nothing},
        {"suspend", true, [which](Board& board) { board.suspend(which); }, goOn},
        {"stall", true, [which](Board& board) { board.stall(which, true); }, goOn},
        {"unplug", false, [which](Board& board) { board.unplug(which); }, nothing}};
    return {{"OpenFails", device, true, {openFails}, "", ""},
            {"SetChannelsFails",
             device,
             true,
             {setChannelsFails},
             microphone ? fourChannels : "",
             microphone ? "" : eightChannelOutput},
            {"StartFails", device, true, {startFails}, "", ""},
            {"WhilePlaying", device, false, playing, "", ""}};
}

std::vector<Trouble> troubles() {
    std::vector<Trouble> all = troublesOf("microphone");
    for (Trouble& trouble : troublesOf("output")) {
        all.push_back(std::move(trouble));
    }
    return all;
}

INSTANTIATE_TEST_SUITE_P(Cards, SoundTrouble, testing::ValuesIn(troubles()),
                         [](const testing::TestParamInfo<Trouble>& info) {
                             return std::string(info.param.device) + info.param.name;
                         });

// An overrun before the read and inside it: the line, and sound again at once.
TEST(SoundOverrun, IsToldAndSoundIsBack) {
    Board board(support::soundScenario({}, "ramp"));
    Application application(board);
    application.expectPlaying();
    ASSERT_TRUE(plays(board, 12000));
    board.fail("SNDRV_PCM_IOCTL_READI_FRAMES", 1, EPIPE);
    application.expectLine("SNDWAV_ReadPcm <<<<<<<<<<<<<<< Buffer Underrun >>>>>>>>>>>>>>>");
    EXPECT_TRUE(plays(board, 12000));
    const std::uint64_t starts = board.sound("microphone").starts;
    board.xrun("microphone");
    EXPECT_TRUE(board.waitForSound(
        "microphone", [&](const auto& figures) { return figures.starts > starts; },
        Milliseconds(3000)));
    EXPECT_TRUE(plays(board, 12000));
}

// Cards that stand still hold nobody: the drain has an end.
TEST(SoundTeardown, DoesNotWaitForCardsThatStandStill) {
    Board board(support::soundScenario({}, "ramp"));
    Application application(board);
    const std::size_t next = application.expectPlaying();
    ASSERT_TRUE(plays(board, 12000));
    board.stall("microphone", true);
    board.stall("output", true);
    const auto began = support::Clock::now();
    board.unplug("camera");
    application.expectLine("delete capture media succeed", Milliseconds(2500), next);
    EXPECT_TRUE(application.waitForPipelineGone(Milliseconds(500)));
    std::printf(
        "torn down after %lld ms\n",
        (long long)std::chrono::duration_cast<Milliseconds>(support::Clock::now() - began).count());
}

}  // namespace
