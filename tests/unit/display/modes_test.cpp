// Which displays are found, and which of their modes are offered and chosen.
#include "control/display/displaydrm.h"
#include "control/display/showcontrol.h"

#include "tests/unit/display/fakedrm.h"
#include "tests/unit/task/printed.h"

#include <fcntl.h>
#include <gtest/gtest.h>

namespace {

class DisplayModes : public testing::Test {
  protected:
    void SetUp() override { card.reset(); }
    void TearDown() override {
        std::string what;
        EXPECT_TRUE(card.allGivenBack(what)) << what;
    }
    FakeDrm& card = FakeDrm::instance();
};

// A connector that only the choice of a mode looks at.
int indexOf(std::vector<drmModeModeInfo> modes, int width, int height, int fps,
            drmModeConnection state = DRM_MODE_CONNECTED) {
    drmModeConnector connector{};
    connector.connection = state;
    connector.modes = modes.data();
    connector.count_modes = static_cast<int>(modes.size());
    return DisplayDrm::findDrmModeIndex(&connector, width, height, fps);
}

const auto mode = FakeDrm::mode;

}  // namespace

TEST_F(DisplayModes, ADisplayOnTheFirstPathIsFound) {
    card.plugDisplay({mode(1920, 1080, 60)});
    EXPECT_TRUE(DisplayDrm::findDrmDevice());
    EXPECT_TRUE(ShowControl::findDisplayDevice());
    EXPECT_EQ(card.calls("current"), 0) << "a display is looked for by probing";
    for (const int flags : card.openFlags) {
        EXPECT_EQ(flags, O_RDWR | O_CLOEXEC);
    }
}

TEST_F(DisplayModes, NoCardNoResourcesNoDisplay) {
    EXPECT_FALSE(DisplayDrm::findDrmDevice()) << "a card without connectors";
    card.plugDisplay({mode(1920, 1080, 60)});
    card.present = false;
    EXPECT_FALSE(DisplayDrm::findDrmDevice());
    card.present = true;
    for (const std::string failing : {"resources", "connector", "encoder"}) {
        card.fails = [&failing](const std::string& step, int) { return step == failing; };
        EXPECT_FALSE(DisplayDrm::findDrmDevice()) << failing;
    }
}

TEST_F(DisplayModes, UnusablePathsAreNotFound) {
    card.plugDisplay({mode(1920, 1080, 60)});
    card.connectors[0].connected = false;
    EXPECT_FALSE(DisplayDrm::findDrmDevice());
    card.connectors[0].connected = true;
    card.connectors[0].encoder = 0;
    EXPECT_FALSE(DisplayDrm::findDrmDevice());
    card.connectors[0].encoder = 32;
    for (const std::uint32_t mask : {0U, 2U, 3U}) {
        card.encoders[0].possibleCrtcs = mask;
        EXPECT_FALSE(DisplayDrm::findDrmDevice()) << mask;
    }
    card.encoders[0].possibleCrtcs = 1;
    EXPECT_TRUE(DisplayDrm::findDrmDevice());
}

TEST_F(DisplayModes, ALaterConnectorIsFoundToo) {
    card.connectors.push_back({0, true, 32, {}, {}});
    card.connectors.push_back({40, false, 32, {}, {}});
    card.plugDisplay({mode(1920, 1080, 60)});
    EXPECT_TRUE(DisplayDrm::findDrmDevice());
}

TEST_F(DisplayModes, ModesArePrintedWithTheStartValuesTwice) {
    drmModeModeInfo odd{};
    odd.hdisplay = 1920;
    odd.vdisplay = 1080;
    odd.vrefresh = 60;
    odd.htotal = 2200;
    odd.vtotal = 1125;
    odd.hsync_start = 2008;
    odd.hsync_end = 2052;
    odd.vsync_start = 1084;
    odd.vsync_end = 1089;
    odd.flags = 5;
    // A name that fills its field has no zero at its end.
    std::fill(std::begin(odd.name), std::end(odd.name), 'n');
    card.plugDisplay({odd, mode(800, 600, 56)});
    std::vector<decInfo> list;
    EXPECT_EQ(printedBy([&list] { DisplayDrm::getDrmEdidInfo(list); }),
              " 0 " + std::string(32, 'n') +
                  "@60\n"
                  "     htotal:2200 vtotal:1125\n"
                  "     hsync_start:2008 vsync_start:1084\n"
                  "     hsync_end:2008 vsync_end:1084\n"
                  "     flags:5\n"
                  " 1 800x600@56\n"
                  "     htotal:1080 vtotal:645\n"
                  "     hsync_start:888 vsync_start:604\n"
                  "     hsync_end:888 vsync_end:604\n"
                  "     flags:5\n");
    EXPECT_EQ(list.size(), 2U);
    EXPECT_EQ(card.openFlags, std::vector<int>{O_RDWR | O_CLOEXEC});
}

TEST_F(DisplayModes, EachModeUnder61HzIsListedOnceInOrder) {
    card.plugDisplay({mode(3840, 2160, 30), mode(1920, 1080, 75), mode(1920, 1080, 60),
                      mode(1920, 1080, 61), mode(1280, 720, 60), mode(1920, 1080, 60),
                      mode(1920, 1080, 50)});
    std::vector<decInfo> list;
    const std::string text = printedBy([&list] { DisplayDrm::getDrmEdidInfo(list); });
    EXPECT_EQ(std::count(text.begin(), text.end(), '@'), 7) << "all are printed";
    std::vector<std::vector<unsigned>> found;
    for (const decInfo& entry : list) {
        found.push_back({entry.width, entry.height, entry.fps});
    }
    const std::vector<std::vector<unsigned>> expected = {
        {3840, 2160, 30}, {1920, 1080, 60}, {1280, 720, 60}, {1920, 1080, 50}};
    EXPECT_EQ(found, expected);
}

TEST_F(DisplayModes, ModesAreAppendedForEveryConnectedDisplayWhateverItsPath) {
    card.plugDisplay({mode(1920, 1080, 60)});
    card.connectors[0].encoder = 0;
    card.connectors.push_back({34, false, 0, {mode(640, 480, 60)}, {}});
    card.connectors.push_back({35, true, 0, {mode(800, 600, 60), mode(1920, 1080, 60)}, {}});
    std::vector<decInfo> list(1);
    printedBy([&list] { DisplayDrm::getDrmEdidInfo(list); });
    ASSERT_EQ(list.size(), 3U);
    EXPECT_EQ(list[1].width, 1920U);
    EXPECT_EQ(list[2].width, 800U);
}

TEST_F(DisplayModes, NoListWithoutACardOrWithFastModesOnly) {
    std::vector<decInfo> list;
    card.present = false;
    EXPECT_EQ(printedBy([&list] { DisplayDrm::getDrmEdidInfo(list); }), "");
    card.present = true;
    card.plugDisplay({mode(1920, 1080, 75), mode(1280, 720, 75)});
    printedBy([&list] { DisplayDrm::getDrmEdidInfo(list); });
    EXPECT_TRUE(list.empty());
}

TEST(FindDrmModeIndex, AnExactRefreshWinsAtOnce) {
    const std::vector<drmModeModeInfo> modes = {mode(1280, 720, 50), mode(1920, 1080, 60),
                                                mode(1920, 1080, 50), mode(1920, 1080, 50)};
    EXPECT_EQ(indexOf(modes, 1920, 1080, 50), 2);
    EXPECT_EQ(indexOf(modes, 1280, 720, 50), 0);
}

TEST(FindDrmModeIndex, OtherwiseTheHighestRefreshOfTheSize) {
    EXPECT_EQ(
        indexOf({mode(1920, 1080, 60), mode(1920, 1080, 50), mode(3840, 2160, 30)}, 1920, 1080, 30),
        0);
    EXPECT_EQ(
        indexOf({mode(1920, 1080, 50), mode(1920, 1080, 60), mode(1920, 1080, 60)}, 1920, 1080, 30),
        1)
        << "of two equal ones the first";
}

TEST(FindDrmModeIndex, FastModesOtherSizesAndAbsentDisplaysDoNotCount) {
    EXPECT_EQ(indexOf({mode(1920, 1080, 75), mode(1920, 1080, 61)}, 1920, 1080, 75), -1);
    EXPECT_EQ(indexOf({mode(1920, 1080, 75), mode(1920, 1080, 24)}, 1920, 1080, 75), 1);
    EXPECT_EQ(indexOf({mode(1920, 1200, 60)}, 1920, 1080, 60), -1);
    EXPECT_EQ(indexOf({mode(1920, 1080, 60)}, 1920, 1080, 60, DRM_MODE_DISCONNECTED), -1);
    EXPECT_EQ(indexOf({}, 1920, 1080, 60), -1);
    EXPECT_EQ(DisplayDrm::findDrmModeIndex(nullptr, 1920, 1080, 60), -1);
}
