// The control table and the extension unit.
#include "control/camera/obsbot.h"
#include "tests/unit/camera/fakerig.h"
#include "tests/unit/task/printed.h"

#include <fcntl.h>

#include <cstring>
#include <limits>

namespace {

constexpr std::int32_t lowest = std::numeric_limits<std::int32_t>::min();
constexpr std::int32_t highest = std::numeric_limits<std::int32_t>::max();

// A task that does not run: the test is its thread.
class Controls : public testing::Test {
  protected:
    void SetUp() override {
        rig.noThreads = true;
        ObsBot::dormantStatus = 0;
    }
    void TearDown() override {
        bot.reset();
        EXPECT_EQ(rig.openDescriptors(), 0U);
        ObsBot::dormantStatus = 0;
    }
    std::string make() {
        return printedBy([this] { bot = std::make_unique<ObsBot>(cameraNode); });
    }
    FakeControl& control(const std::string& name) {
        for (FakeControl& control : rig.controls) {
            if (control.name == name) {
                return control;
            }
        }
        throw std::out_of_range(name);
    }
    // With the camera's pan of this range.
    const UvcControlEntry& panOf(std::int64_t minimum, std::int64_t maximum, std::uint64_t step) {
        FakeControl& pan = control("Pan (Absolute)");
        pan.minimum = minimum;
        pan.maximum = maximum;
        pan.step = step;
        make();
        return bot->controls[UVC_PAN_ABSOLUTE];
    }
    std::vector<std::string> toldBy(UVC_PARAM_E param, int value, char percent) {
        const std::size_t before = rig.told().size();
        printedBy([&] { EXPECT_EQ(bot->setControl(param, value, percent), 1); });
        std::vector<std::string> told = rig.told();
        told.erase(told.begin(), told.begin() + static_cast<std::ptrdiff_t>(before));
        return told;
    }
    int percentOf(UVC_PARAM_E param) {
        int value = 4711;
        EXPECT_EQ(bot->getControl(param, &value, 1), 1);
        return value;
    }

    FakeRig rig;
    std::unique_ptr<ObsBot> bot;
};

TEST_F(Controls, AreListedAndReadAtTheStart) {
    rig.controls.push_back({0x009a0922, "Hidden", 0, 9, 1, 0, 0, V4L2_CTRL_FLAG_DISABLED});
    EXPECT_EQ(make(),
              "name:Brightness, max:100, min:0, step:1\n"
              "name:Contrast, max:100, min:0, step:1\n"
              "name:Saturation, max:100, min:0, step:1\n"
              "name:Hue, max:50, min:-50, step:1\n"
              "name:White Balance Temperature, Auto, max:1, min:0, step:1\n"
              "name:White Balance Temperature, max:6500, min:2800, step:1\n"
              "name:Sharpness, max:4, min:0, step:1\n"
              "name:Pan (Absolute), max:18000, min:-18000, step:3600\n"
              "name:Tilt (Absolute), max:324000, min:-324000, step:7200\n"
              "name:Focus, Auto, max:1, min:0, step:1\n"
              "name:Zoom, Absolute, max:100, min:0, step:1\n"
              "name:Zoom, Continuous, max:100, min:-100, step:1\n"
              "name:Pan (Speed), max:160, min:-160, step:1\n"
              "name:Tilt (Speed), max:120, min:-120, step:1\n"
              "pan_step:200,pan_min:-18000,pan_max:18000,pan_value:7200\n"
              "tilt_step:3600,tilt_min:-324000,tilt_max:324000,tilt_value:-7200\n"
              "zoom_step:1,zoom_min:0,zoom_max:100,zoom_value:30\n");
    EXPECT_EQ(rig.openFlags(cameraNode) & (O_ACCMODE | O_NONBLOCK | O_CLOEXEC),
              O_RDWR | O_NONBLOCK | O_CLOEXEC);
    EXPECT_EQ(rig.openings(cameraNode), 1U);
    EXPECT_EQ(rig.controlReads(), 13U);
    EXPECT_TRUE(rig.told().empty());
    EXPECT_EQ(bot->currentView, 1);
}

TEST_F(Controls, FillTheTableByName) {
    struct Row {
        std::uint32_t id;
        const char* name;
        std::int32_t min, max, defaultValue, step, value;
    };
    const Row rows[] = {
        {0x9A0908, "Pan (Absolute)", -18000, 18000, 0, 200, 7200},
        {0x9A0909, "Tilt (Absolute)", -324000, 324000, 3600, 3600, -7200},
        {0x9A090D, "Zoom, Absolute", 0, 100, 0, 1, 30},
        {0x9A090C, "Focus, Auto", 0, 1, 1, 1, 0},
        {0x9A0920, "Pan (Speed)", -160, 160, 0, 1, 0},
        {0x9A0921, "Tilt (Speed)", -120, 120, 0, 1, 0},
        {0x980900, "Brightness", 0, 100, 50, 1, 51},
        {0x980901, "Contrast", 0, 100, 50, 1, 52},
        {0x980902, "Saturation", 0, 100, 50, 1, 53},
        {0x980903, "Hue", -50, 50, 0, 1, 4},
        {0x98091B, "Sharpness", 0, 4, 2, 1, 3},
        {0x98090C, "White Balance Temperature, Auto", 0, 1, 1, 1, 1},
        {0x98091A, "White Balance Temperature", 2800, 6500, 4000, 1, 5000},
    };
    make();
    for (std::size_t i = 0; i < bot->controls.size(); ++i) {
        const UvcControlEntry& row = bot->controls[i];
        EXPECT_EQ(row.id, rows[i].id);
        EXPECT_STREQ(row.name, rows[i].name);
        EXPECT_TRUE(row.valid) << row.name;
        EXPECT_EQ(row.min, rows[i].min) << row.name;
        EXPECT_EQ(row.max, rows[i].max) << row.name;
        EXPECT_EQ(row.default_value, rows[i].defaultValue) << row.name;
        EXPECT_EQ(row.step, rows[i].step) << row.name;
        EXPECT_EQ(row.value, rows[i].value) << row.name;
    }
}

TEST_F(Controls, UnderNewerNamesStayInvalid) {
    control("Zoom, Absolute").name = "Zoom Absolute";
    control("Focus, Auto").name = "Focus, Automatic Continuous";
    control("White Balance Temperature, Auto").name = "White Balance, Automatic";
    make();
    for (int i = 0; i < 13; ++i) {
        const bool renamed =
            i == UVC_ZOOM_ABSOLUTE || i == UVC_FOCUS_AUTO || i == UVC_WHITE_BALANCE_AUTO;
        EXPECT_EQ(bot->controls[static_cast<std::size_t>(i)].valid, !renamed) << i;
    }
    // Values are read by id, whatever the name.
    EXPECT_EQ(bot->controls[UVC_ZOOM_ABSOLUTE].value, 30);
    EXPECT_EQ(printedBy([this] { EXPECT_EQ(bot->setControl(UVC_ZOOM_ABSOLUTE, 5, 0), 0); }),
              "can not get or set");
    EXPECT_TRUE(rig.told().empty());
}

TEST_F(Controls, OfACameraThatIsNotThere) {
    rig.cameraGone = true;
    EXPECT_EQ(make(), "open error\n");
    rig.cameraGone = false;
    EXPECT_EQ(printedBy([this] { EXPECT_EQ(bot->getControl(UVC_HUE, nullptr, 0), 0); }),
              "can not get or set");
    printedBy([this] { EXPECT_EQ(bot->queryControls(), 0); });
    rig.cameraGone = true;
    int value = 4711;
    EXPECT_EQ(printedBy([&] { EXPECT_EQ(bot->getControl(UVC_HUE, &value, 0), 0); }),
              "open error\n");
    EXPECT_EQ(printedBy([this] { EXPECT_EQ(bot->setControl(UVC_HUE, 1, 0), 0); }), "open error\n");
    EXPECT_EQ(value, 4711);
    EXPECT_EQ(printedBy([this] { EXPECT_EQ(bot->queryControls(), -1); }), "open error\n");
    EXPECT_FALSE(bot->controls[UVC_HUE].valid);
    EXPECT_EQ(bot->controls[UVC_HUE].max, 0);
}

TEST_F(Controls, OfASleepingCameraAreNotAsked) {
    ObsBot::dormantStatus = 1;
    EXPECT_EQ(make(), "");
    EXPECT_EQ(rig.openings(cameraNode), 0U);
    for (const UvcControlEntry& row : bot->controls) {
        EXPECT_FALSE(row.valid);
    }
    EXPECT_EQ(printedBy([this] { EXPECT_EQ(bot->setControl(UVC_HUE, 1, 0), 0); }),
              "can not get or set");
}

TEST_F(Controls, WithAnEmptyRangeAreRefused) {
    control("Hue").minimum = 50;
    make();
    EXPECT_FALSE(bot->controls[UVC_HUE].valid);
    EXPECT_EQ(bot->controls[UVC_HUE].max, 50);
    int value = 4711;
    EXPECT_EQ(printedBy([&] { EXPECT_EQ(bot->getControl(UVC_HUE, &value, 1), 0); }),
              "can not get or set");
    EXPECT_EQ(printedBy([this] { EXPECT_EQ(bot->setControl(UVC_HUE, 50, 1), 0); }),
              "can not get or set");
    EXPECT_EQ(value, 4711);
}

TEST_F(Controls, StepThroughTheirTravelIn180) {
    EXPECT_EQ(panOf(-18000, 18000, 3600).step, 200);
    EXPECT_EQ(panOf(0, 179, 7).step, 7);
    EXPECT_EQ(panOf(0, 180, 7).step, 1);
    EXPECT_EQ(panOf(0, 359, 7).step, 1);
    EXPECT_EQ(panOf(0, 360, 7).step, 2);
    EXPECT_EQ(panOf(lowest, highest, 7).step, 23860929);  // not wrapped
    FakeControl& brightness = control("Brightness");
    brightness.maximum = 36000;
    make();
    EXPECT_EQ(bot->controls[UVC_BRIGHTNESS].step, 1);
}

TEST_F(Controls, RefuseNumbersBeyondTheTable) {
    make();
    for (const int param : {-1, 13, 1000, int{lowest}}) {
        const auto row = static_cast<UVC_PARAM_E>(param);
        int value = 4711;
        EXPECT_EQ(printedBy([&] { EXPECT_EQ(bot->getControl(row, &value, 0), 0); }),
                  "wrong param_no\n");
        EXPECT_EQ(printedBy([&] { EXPECT_EQ(bot->setControl(row, 1, 0), 0); }), "wrong param_no\n");
        EXPECT_EQ(value, 4711);
    }
}

TEST_F(Controls, AreSetInPercentOfTheRange) {
    make();
    EXPECT_EQ(toldBy(UVC_ZOOM_ABSOLUTE, 50, 1), std::vector<std::string>{"zoom_absolute=50"});
    FakeControl& zoom = control("Zoom, Absolute");
    zoom.minimum = 100;
    zoom.maximum = 400;
    make();
    EXPECT_EQ(toldBy(UVC_ZOOM_ABSOLUTE, 50, 1), std::vector<std::string>{"zoom_absolute=250"});
    EXPECT_EQ(toldBy(UVC_ZOOM_ABSOLUTE, 50, 0), std::vector<std::string>{"zoom_absolute=50"});
    EXPECT_EQ(toldBy(UVC_ZOOM_ABSOLUTE, 200, 1), std::vector<std::string>{"zoom_absolute=700"});
    EXPECT_EQ(toldBy(UVC_ZOOM_ABSOLUTE, -1, 1), std::vector<std::string>{"zoom_absolute=97"});
    EXPECT_EQ(toldBy(UVC_PAN_ABSOLUTE, 33, 1), std::vector<std::string>{"pan_absolute=-6120"});
}

TEST_F(Controls, AreReadInPercentOfTheRange) {
    make();
    EXPECT_EQ(percentOf(UVC_ZOOM_ABSOLUTE), 30);
    EXPECT_EQ(percentOf(UVC_PAN_ABSOLUTE), 70);
    control("Pan (Absolute)").value = -18000 - 3600;
    EXPECT_EQ(percentOf(UVC_PAN_ABSOLUTE), -10);
    control("Pan (Absolute)").value = -18000 - 359;  // a bit less than a percent
    EXPECT_EQ(percentOf(UVC_PAN_ABSOLUTE), 0);
    control("Pan (Absolute)").value = 18000 + 36000;
    EXPECT_EQ(percentOf(UVC_PAN_ABSOLUTE), 200);
    EXPECT_EQ(bot->controls[UVC_PAN_ABSOLUTE].value, 54000);
}

// Numbers that would not fit on the way.
TEST_F(Controls, OfTheWidestRange) {
    panOf(lowest, highest, 1);
    control("Pan (Absolute)").value = highest;
    EXPECT_EQ(percentOf(UVC_PAN_ABSOLUTE), 100);
    control("Pan (Absolute)").value = lowest;
    EXPECT_EQ(percentOf(UVC_PAN_ABSOLUTE), 0);
    EXPECT_EQ(toldBy(UVC_PAN_ABSOLUTE, 100, 1),
              std::vector<std::string>{"pan_absolute=2147483647"});
    EXPECT_EQ(toldBy(UVC_PAN_ABSOLUTE, 0, 1), std::vector<std::string>{"pan_absolute=-2147483648"});
    EXPECT_EQ(toldBy(UVC_PAN_ABSOLUTE, highest, 1).size(), 1U);  // any number, but no overflow
    EXPECT_EQ(toldBy(UVC_PAN_ABSOLUTE, lowest, 1).size(), 1U);
    panOf(highest, lowest, 1);  // upside down
    control("Pan (Absolute)").value = lowest;
    EXPECT_TRUE(bot->controls[UVC_PAN_ABSOLUTE].valid);
    EXPECT_EQ(percentOf(UVC_PAN_ABSOLUTE), 100);
}

// What a 64-bit control leaves in 32 bits decides whether it can be divided by.
TEST_F(Controls, OfMoreThan32Bits) {
    EXPECT_FALSE(panOf(0, 1LL << 32, 1).valid);
    EXPECT_EQ(bot->controls[UVC_PAN_ABSOLUTE].max, 0);
    EXPECT_EQ(printedBy([this] { EXPECT_EQ(bot->setControl(UVC_PAN_ABSOLUTE, 1, 1), 0); }),
              "can not get or set");
    control("Pan (Absolute)").maximum = 5000000000;
    EXPECT_NE(make().find("name:Pan (Absolute), max:5000000000, min:0, step:1\n"),
              std::string::npos);
    EXPECT_TRUE(bot->controls[UVC_PAN_ABSOLUTE].valid);
    EXPECT_EQ(bot->controls[UVC_PAN_ABSOLUTE].max, 705032704);
}

TEST_F(Controls, KeepTheLastValueThatIsKnown) {
    make();
    EXPECT_EQ(printedBy([this] { EXPECT_EQ(bot->setControl(UVC_HUE, 20, 0), 1); }),
              "set success\n");
    EXPECT_EQ(bot->controls[UVC_HUE].value, 20);
    rig.refusedControls = {0x980903};
    EXPECT_EQ(printedBy([this] { EXPECT_EQ(bot->setControl(UVC_HUE, 30, 0), 1); }), "");
    EXPECT_EQ(bot->controls[UVC_HUE].value, 20);
    int value = 4711;
    EXPECT_EQ(printedBy([&] { EXPECT_EQ(bot->getControl(UVC_HUE, &value, 0), 1); }), "");
    EXPECT_EQ(value, 20);
    rig.refusedControls.clear();
    control("Hue").value = 7;
    EXPECT_EQ(bot->getControl(UVC_HUE, nullptr, 0), 1);
    EXPECT_EQ(bot->controls[UVC_HUE].value, 7);
    // The driver clamps; the table keeps what was sent.
    EXPECT_EQ(toldBy(UVC_HUE, 999, 0).size(), 1U);
    EXPECT_EQ(bot->controls[UVC_HUE].value, 999);
    rig.refusedControls = {0x980903};
    make();
    EXPECT_EQ(bot->controls[UVC_HUE].value, 0);
}

TEST_F(Controls, ANameThatFillsItsFieldEndsThere) {
    rig.controls.push_back({0x009a0930, std::string(40, 'n'), 0, 1, 1, 0, 0});
    EXPECT_NE(make().find("name:" + std::string(32, 'n') + ", max:1, min:0, step:1\n"),
              std::string::npos);
}

TEST_F(Controls, AnEnumerationThatNeverEndsIsLeft) {
    rig.endlessControls = true;
    const std::string endless = make();
    EXPECT_EQ(std::count(endless.begin(), endless.end(), '\n'), 1024 + 3);
    rig.stuckControls = true;
    const std::string stuck = make();
    EXPECT_EQ(std::count(stuck.begin(), stuck.end(), '\n'), 1 + 3);
}

TEST_F(Controls, TheExtensionUnitIsReadAndWritten) {
    make();
    unsigned char data[60] = {};
    rig.tracking = 0xA5;
    EXPECT_EQ(printedBy([&] { EXPECT_EQ(bot->getControl_xu(2, 3, 60, data), 1); }), "");
    EXPECT_EQ(data[0], 0xA5);
    EXPECT_EQ(data[59], 59);
    EXPECT_EQ(printedBy([&] { EXPECT_EQ(bot->setControl_xu(2, 2, 60, data), 1); }), "");
    ASSERT_EQ(rig.told().size(), 1U);
    EXPECT_EQ(rig.told()[0].substr(0, 14), "xu 2.2=A5 01 0");
    // No such unit, a selector that is not there, a wrong length.
    EXPECT_EQ(printedBy([&] { EXPECT_EQ(bot->getControl_xu(3, 3, 60, data), 0); }), "");
    EXPECT_EQ(printedBy([&] { EXPECT_EQ(bot->setControl_xu(3, 2, 60, data), 0); }),
              "setControl 2 failed\n");
    EXPECT_EQ(printedBy([&] { EXPECT_EQ(bot->setControl_xu(2, 9, 60, data), 0); }),
              "setControl 9 failed\n");
    EXPECT_EQ(printedBy([&] { EXPECT_EQ(bot->getControl_xu(2, 3, 59, data), 0); }), "");
    rig.cameraGone = true;
    EXPECT_EQ(printedBy([&] { EXPECT_EQ(bot->getControl_xu(2, 3, 60, data), 0); }), "open error\n");
    EXPECT_EQ(printedBy([&] { EXPECT_EQ(bot->setControl_xu(2, 3, 60, data), 0); }), "open error\n");
    EXPECT_EQ(rig.told().size(), 1U);
}

}  // namespace
