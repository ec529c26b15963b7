// Real cameras on real displays: the application chooses what a second description of the rules
// says.

#include "control/task/fourcc.h"
#include "tests/support/application.h"
#include "tests/support/pattern.h"
#include "tests/unit/capture/selectionoracle.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <map>
#include <ostream>

namespace {

using support::Application;
using support::Board;
using support::Milliseconds;

struct Pair {
    const char* camera;
    const char* display;
};

void PrintTo(const Pair& one, std::ostream* out) {
    *out << one.camera << " on " << one.display;
}

// What the log says about the choice; nothing when the start failed without one.
std::optional<oracle::Choice> chosenBy(Application& application) {
    const auto end = application.out().waitForMatch(
        R"(^###!!!---\*\*\*  select edid|^statue: .*OPENFAID)", Milliseconds(15000));
    if (!end) {
        ADD_FAILURE() << application.out().text();
        return std::nullopt;
    }
    static const std::map<std::string, std::uint32_t> formats = {{"   Mjpeg   ", fourccOf("MJPG")},
                                                                 {"   Yuyv    ", fourccOf("YUYV")},
                                                                 {"   H264    ", fourccOf("H264")}};
    static const support::Pattern camera(
        R"(^###!!!---\*\*\*  select fmt \(([a-z ]+)\) \*\*\*---!!!### :(.{11})(\d+)x(\d+)@(\d+)$)");
    static const support::Pattern display(
        R"(^###!!!---\*\*\*  select edid \(([a-z ]+)\) \*\*\*---!!!### :(\d+)x(\d+)@(\d+)$)");
    oracle::Choice choice;
    for (const std::string& line : application.out().all()) {
        if (const auto match = camera.search(line); !match.empty()) {
            choice.kind = match[1];
            choice.camera = {formats.at(match[2]), unsigned(std::stoul(match[3])),
                             unsigned(std::stoul(match[4])), unsigned(std::stoul(match[5]))};
        } else if (const auto match = display.search(line); !match.empty()) {
            EXPECT_EQ(match[1], choice.kind);
            choice.display = {0, unsigned(std::stoul(match[2])), unsigned(std::stoul(match[3])),
                              unsigned(std::stoul(match[4]))};
        }
    }
    return choice.kind.empty() ? std::nullopt : std::optional<oracle::Choice>(choice);
}

class Selection : public testing::TestWithParam<Pair> {};

TEST_P(Selection, IsTheRules) {
    const Pair pair = GetParam();
    const oracle::Modes camera =
        oracle::offeredBy(board::loadCamera(board::findCamera(pair.camera)));
    const oracle::Modes display =
        oracle::listedBy(board::loadDisplay(board::findDisplay(pair.display)).modes);
    std::vector<oracle::Choice> right;
    if (!camera.empty() && !display.empty()) {
        right = oracle::rightChoices(camera, display);
    }
    const std::string folder = support::makeTemporaryFolder("pair-");
    const std::string path = folder + "/scenario.json";
    support::writeFile(path, std::string(R"({"name": "pair", "camera": ")") + pair.camera +
                                 R"(", "display": ")" + pair.display + R"("})");
    Board board(path, 4);
    std::filesystem::remove_all(folder);
    Application application(board);
    std::optional<oracle::Choice> chosen = chosenBy(application);
    std::string expected;
    for (oracle::Choice& choice : right) {
        choice.display.format = 0;  // the log does not tell it
        expected += describe(choice) + "\n";
    }
    ASSERT_EQ(chosen.has_value(), !right.empty()) << "right: " << expected;
    if (chosen) {
        std::printf("%s on %s: %s\n", pair.camera, pair.display, describe(*chosen).c_str());
        EXPECT_NE(std::find(right.begin(), right.end(), *chosen), right.end())
            << describe(*chosen) << "; right: " << expected;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Pairs, Selection,
    testing::Values(
        Pair{"synthetic-yuyv", "synthetic-1080p60"},
        Pair{"logitech-c920-h264", "monitor-24in-1080p-30modes-modetest"},
        Pair{"logitech-streamcam", "tv-22in-1366x768-preferred-xrandr"},
        Pair{"logitech-brio-ctrls", "radxa-board-4k60-hdmi-xrandr"},
        Pair{"obsbot-tiny-4k-ctrls", "monitor-17in-1280x1024-modetest"},
        Pair{"3564-fef8-obsbot-tiny-2", "monitor-32in-4k60-hdmi-nvidia-xrandr"},
        Pair{"1532-0e05-razer-usa-ltd-razer-kiyo-pro", "tv-40in-1080p-hdmi-interlaced-xrandr"},
        Pair{"elp-32e4-0317-4k-hd-usb-camera", "monitor-27in-1440p60-hdmi-xrandr"},
        Pair{"0fd9-009b-elgato-systems-gmbh-elgato-4k-x", "gaming-1440p144-and-4k144-xrandr"},
        Pair{"petminion-dev-video0", "tv-40in-4k-duplicate-rates-xrandr"},
        Pair{"1b3f-1167-generalplus-technology-inc-general-webcam", "monitor-27in-1080p75-xrandr"},
        Pair{"libuvc-ms_lifecam_show", "tv-32in-1080p-hdmi-xrandr"}),
    [](const auto& info) {
        std::string name = info.param.camera;
        std::replace_if(
            name.begin(), name.end(),
            [](unsigned char letter) { return std::isalnum(letter) == 0; }, '_');
        return name;
    });

}  // namespace
