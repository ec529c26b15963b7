// Every device description that comes with the board.
#include <drm_mode.h>
#include <gtest/gtest.h>
#include <linux/videodev2.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>

#include "board/edid/edidmodes.h"
#include "board/edid/timings.h"

namespace {

namespace fs = std::filesystem;

std::vector<fs::path> files(const char* kind) {
    std::vector<fs::path> paths;
    for (const auto& entry : fs::directory_iterator(fs::path(SCENARIO_FOLDER) / kind))
        paths.push_back(entry.path());
    std::sort(paths.begin(), paths.end());
    return paths;
}

std::string nameOf(const testing::TestParamInfo<fs::path>& info) {
    std::string name = info.param.stem();
    std::replace_if(
        name.begin(), name.end(), [](char c) { return !std::isalnum(c); }, '_');
    return name;
}

class CameraFile : public testing::TestWithParam<fs::path> {};
class DisplayFile : public testing::TestWithParam<fs::path> {};

void checkFormat(const board::CameraFormat& format) {
    const std::set<std::uint32_t> compressed = {V4L2_PIX_FMT_MJPEG, V4L2_PIX_FMT_H264};
    EXPECT_EQ(format.compressed, compressed.count(format.fourcc) == 1);
    EXPECT_FALSE(format.description.empty());
    EXPECT_FALSE(format.sizes.empty());
    for (const board::CameraSize& size : format.sizes) {
        EXPECT_EQ(size.width % 2, 0U);
        EXPECT_FALSE(size.intervals.empty());
        for (const board::Fraction& interval : size.intervals) {
            const double rate = double(interval.denominator) / interval.numerator;
            EXPECT_GE(rate, 1.0);
            EXPECT_LE(rate, 240.0);
            // The kernel's driver gives short fractions: 1/30, not 333333/10000000.
            EXPECT_LT(interval.numerator, 1000U);
        }
    }
}

std::string describe(const board::DisplayMode& mode) {
    std::ostringstream text;
    const unsigned fields = mode.flags & DRM_MODE_FLAG_INTERLACE ? 2 : 1;
    text.setf(std::ios::fixed);
    text.precision(2);
    text << mode.name << " "
         << mode.clock_kHz * 1000.0 * fields / (double(mode.htotal) * mode.vtotal);
    return text.str();
}

void checkMode(const board::DisplayMode& mode) {
    EXPECT_EQ(mode.vrefresh_Hz, board::refreshRate(mode)) << mode.name;
    const bool interlaced = mode.flags & DRM_MODE_FLAG_INTERLACE;
    EXPECT_EQ(mode.name, std::to_string(mode.hdisplay) + "x" + std::to_string(mode.vdisplay) +
                             (interlaced ? "i" : ""));
    EXPECT_LE(mode.hdisplay, mode.hsyncStart) << mode.name;
    EXPECT_LE(mode.hsyncEnd, mode.htotal) << mode.name;
    EXPECT_LE(mode.vdisplay, mode.vsyncStart) << mode.name;
    EXPECT_LE(mode.vsyncEnd, mode.vtotal) << mode.name;
}

bool isPreferred(const board::DisplayMode& mode) {
    return (mode.type & DRM_MODE_TYPE_PREFERRED) != 0;
}

}  // namespace

TEST_P(CameraFile, DescribesACamera) {
    const board::CameraDescription camera = board::loadCamera(GetParam());
    EXPECT_EQ(camera.name, GetParam().stem());
    EXPECT_FALSE(camera.card.empty());
    EXPECT_EQ(camera.driver, "uvcvideo");
    EXPECT_EQ(camera.busInfo.rfind("usb-", 0), 0U);
    EXPECT_FALSE(camera.formats.empty());
    for (const board::CameraFormat& format : camera.formats)
        checkFormat(format);
    std::uint32_t before = 0;
    for (const board::CameraControl& control : camera.controls) {
        SCOPED_TRACE(control.name);
        EXPECT_GT(control.id, before);
        const bool isClass = control.type == board::ControlType::controlClass;
        EXPECT_EQ(isClass, control.id == (V4L2_CTRL_ID2WHICH(control.id) | 1));
        if (V4L2_CTRL_ID2WHICH(control.id) != V4L2_CTRL_ID2WHICH(before)) {
            EXPECT_TRUE(isClass) << "each class begins with its own entry";
        }
        if (control.type == board::ControlType::menu) {
            EXPECT_EQ(control.menu.count(control.value), 1U) << "value " << control.value;
        }
        before = control.id;
    }
}

TEST_P(DisplayFile, DescribesADisplay) {
    const board::DisplayDescription display = board::loadDisplay(GetParam());
    EXPECT_EQ(display.name, GetParam().stem());
    auto modes = display.modes;
    if (modes.empty())
        modes = board::modesFromEdid(display.edid);
    ASSERT_FALSE(modes.empty());
    for (const board::DisplayMode& mode : modes)
        checkMode(mode);
    EXPECT_TRUE(std::any_of(modes.begin(), modes.end(), isPreferred));
    if (!display.edid.empty()) {
        // Centimetres, of which a monitor with an EDID of its own may know the millimetres.
        EXPECT_NEAR(display.widthMm, display.edid[21] * 10, 10);
        EXPECT_NEAR(display.heightMm, display.edid[22] * 10, 10);
    }
}

INSTANTIATE_TEST_SUITE_P(All, CameraFile, testing::ValuesIn(files("cameras")), nameOf);
INSTANTIATE_TEST_SUITE_P(All, DisplayFile, testing::ValuesIn(files("displays")), nameOf);

TEST(Descriptions, OdditiesOfDevicesAreKept) {
    const auto load = [](const char* name) { return board::loadCamera(board::findCamera(name)); };
    const auto obsbot = load("obsbot-tiny-4k-ctrls");
    const auto pan = std::find_if(obsbot.controls.begin(), obsbot.controls.end(),
                                  [](const auto& c) { return c.name == "Pan, Absolute"; });
    ASSERT_NE(pan, obsbot.controls.end());
    EXPECT_GT(pan->value, pan->maximum);
    const auto repeated = load("crowsnest-lihappe8-corp-usb-2-0-camera").formats.at(0).sizes;
    EXPECT_EQ(repeated.front().width, repeated.back().width);
    EXPECT_EQ(repeated.front().intervals.size(), 2U);
    const auto fast = load("petminion-dev-video0").formats.at(0).sizes.at(3).intervals.at(0);
    EXPECT_NEAR(double(fast.denominator) / fast.numerator, 120.101, 0.0005);
}

// The lists that the kernel gave for these monitors, and the EDIDs it made them of.
TEST(EdidOfRealDisplays, GivesTheKernelsList) {
    const auto display = board::loadDisplay(board::findDisplay("monitor-17in-1280x1024-modetest"));
    const auto modes = board::modesFromEdid(display.edid);
    ASSERT_EQ(modes.size(), display.modes.size());
    for (std::size_t i = 0; i < modes.size(); ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(describe(modes[i]), describe(display.modes[i]));
        EXPECT_EQ(modes[i].clock_kHz, display.modes[i].clock_kHz);
        EXPECT_TRUE(board::sameTiming(modes[i], display.modes[i]));
        EXPECT_EQ(modes[i].type, display.modes[i].type);
    }
}

TEST(EdidOfRealDisplays, GivesEveryModeOfTheKernelsLongerList) {
    const auto display =
        board::loadDisplay(board::findDisplay("monitor-24in-1080p-30modes-modetest"));
    const auto modes = board::modesFromEdid(display.edid);
    for (const board::DisplayMode& listed : display.modes) {
        if (!(listed.type & DRM_MODE_TYPE_DRIVER))
            continue;  // set by the user
        EXPECT_TRUE(std::any_of(modes.begin(), modes.end(), [&](const board::DisplayMode& mode) {
            return mode.clock_kHz == listed.clock_kHz && board::sameTiming(mode, listed);
        })) << describe(listed);
    }
}

// An independent reader's list of each display's timings and formats.
TEST(EdidOfRealDisplays, GivesWhatAnotherReaderLists) {
    std::ifstream list(LISTED_MODES);
    ASSERT_TRUE(list.is_open());
    std::string line, loaded;
    std::set<std::string> modes;
    int checked = 0;
    while (std::getline(list, line)) {
        if (line[0] == '#')
            continue;
        const std::string name = line.substr(0, line.find(' '));
        if (name != loaded) {
            modes.clear();
            for (const auto& mode :
                 board::modesFromEdid(board::loadDisplay(board::findDisplay(name)).edid))
                modes.insert(describe(mode));
            loaded = name;
        }
        EXPECT_EQ(modes.count(line.substr(name.size() + 1)), 1U) << line;
        ++checked;
    }
    EXPECT_GT(checked, 600);
}
