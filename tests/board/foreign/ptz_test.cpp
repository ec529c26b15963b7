// v4l-utils on cameras that turn: controls as listed, set as asked, heard as given.

#include <gtest/gtest.h>

#include <linux/videodev2.h>

#include <sstream>

#include "board/daemon/scenario.h"
#include "tests/support/client.h"
#include "tests/support/pattern.h"

namespace {

using support::Board;
using support::ClientResult;
using support::Milliseconds;

struct Listed {
    std::string name;
    std::map<std::string, std::int64_t> fields;  // min, max, step, default, value
};

std::map<std::uint32_t, Listed> listControls(const Board& board) {
    static const support::Pattern line(R"(^\s*(\w+) 0x([0-9a-f]{8}) \(\w+\)\s*: (.*)$)");
    static const support::Pattern field(R"((min|max|step|default|value)=(-?\d+))");
    std::map<std::uint32_t, Listed> controls;
    const ClientResult list = runClient(board, {"v4l2-ctl", "-d", "/dev/video0", "-L"});
    EXPECT_EQ(list.exitCode, 0) << list.err;
    std::istringstream lines(list.out);
    for (std::string text; std::getline(lines, text);) {
        const std::vector<std::string> match = line.search(text);
        if (match.empty()) {
            continue;
        }
        Listed& control = controls[std::uint32_t(std::stoul(match[2], nullptr, 16))];
        control.name = match[1];
        for (const auto& named : field.searchAll(match[3])) {
            control.fields[named[1]] = std::stoll(named[2]);
        }
    }
    return controls;
}

class PtzCamera : public testing::TestWithParam<const char*> {};

TEST_P(PtzCamera, ListsItsControlsAsDescribed) {
    const board::CameraDescription camera = board::loadCamera(board::findCamera(GetParam()));
    Board board(GetParam());
    const auto listed = listControls(board);
    std::size_t described = 0;
    for (const board::CameraControl& control : camera.controls) {
        if (control.type == board::ControlType::controlClass) {
            continue;
        }
        ++described;
        ASSERT_EQ(listed.count(control.id), 1U) << control.name;
        const auto& fields = listed.at(control.id).fields;
        EXPECT_EQ(fields.at("default"), control.defaultValue) << control.name;
        EXPECT_EQ(fields.at("value"), control.value) << control.name;
        if (control.type == board::ControlType::integer) {
            EXPECT_EQ(fields.at("min"), control.minimum) << control.name;
            EXPECT_EQ(fields.at("max"), control.maximum) << control.name;
            EXPECT_EQ(fields.at("step"), control.step) << control.name;
        }
    }
    EXPECT_EQ(listed.size(), described);
}

// Beyond both ends of every range: what comes back is the driver's limit, and the list has both.
TEST_P(PtzCamera, TakesEveryControlWithinItsLimits) {
    const board::CameraDescription camera = board::loadCamera(board::findCamera(GetParam()));
    Board board(GetParam(), 10);
    const auto listed = listControls(board);
    std::uint64_t number = 0;
    for (const board::CameraControl& control : camera.controls) {
        const bool inactive = (control.flags & V4L2_CTRL_FLAG_INACTIVE) != 0 ||
                              control.id == V4L2_CID_WHITE_BALANCE_TEMPERATURE;
        if (control.type != board::ControlType::integer || inactive ||
            control.minimum == control.maximum) {
            continue;
        }
        const std::string& name = listed.at(control.id).name;
        for (const std::int64_t asked : {control.minimum - 1, control.maximum + 1}) {
            const ClientResult set = runClient(
                board, {"v4l2-ctl", "-d", "/dev/video0", "-c", name + "=" + std::to_string(asked)});
            EXPECT_EQ(set.exitCode, 0) << set.err;
            const auto told = board.told(number);
            ASSERT_EQ(told.size(), 1U) << name;
            ++number;
            EXPECT_EQ(told[0].asked, asked) << name;
            EXPECT_EQ(told[0].given, asked < control.minimum ? control.minimum : control.maximum)
                << name;
        }
    }
    EXPECT_GE(number, 16U);
}

INSTANTIATE_TEST_SUITE_P(Cameras, PtzCamera,
                         testing::Values("synthetic-ptz", "synthetic-ptz-new-names",
                                         "obsbot-tiny-4k-ctrls", "obsbot-tiny-4k-old-names"));

TEST(PtzCompliance, NoFailureAtAllWhileItStreams) {
    Board board("synthetic-ptz");
    const ClientResult result =
        runClient(board, {"v4l2-compliance", "-d", "/dev/video0", "-s5"}, Milliseconds(120000));
    EXPECT_EQ(result.exitCode, 0) << result.out << result.err;
    EXPECT_NE(result.out.find("Failed: 0,"), std::string::npos) << result.out;
}

}  // namespace
