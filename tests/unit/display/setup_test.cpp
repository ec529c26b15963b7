// From the opened card to the first queued flip, and back.
#include "control/display/displaydrm.h"

#include "tests/unit/display/displayaccess.h"
#include "tests/unit/display/fakedrm.h"
#include "tests/unit/task/printed.h"
#include "tests/unit/task/waiting.h"

#include <drm_fourcc.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <memory>

namespace {

using Access = DisplayDrmTestAccess;
const auto mode = FakeDrm::mode;

class DisplaySetup : public testing::Test {
  protected:
    void SetUp() override { card.reset(); }
    void TearDown() override {
        display.reset();
        std::string what;
        EXPECT_TRUE(card.allGivenBack(what)) << what;
        EXPECT_EQ(DisplayDrm::getDrmDev(), nullptr);
    }
    // What the set-up prints on standard output.
    std::string setUp(unsigned width, unsigned height, unsigned fps) {
        display = std::make_unique<DisplayDrm>(decInfo{0, width, height, fps});
        testing::internal::CaptureStderr();
        const std::string out = printedBy([this] { display->init_drm_display(); });
        errors = testing::internal::GetCapturedStderr();
        return out;
    }
    void failAt(const std::string& failing, int from = 1) {
        card.fails = [=](const std::string& step, int nth) {
            return step == failing && nth >= from;
        };
    }

    FakeDrm& card = FakeDrm::instance();
    std::unique_ptr<DisplayDrm> display;
    std::string errors;
};

std::string bytes(const char* text, std::size_t length) {
    return std::string(text, length);
}

}  // namespace

TEST_F(DisplaySetup, OpensNothingBeforeItIsAsked) {
    display = std::make_unique<DisplayDrm>(decInfo{0, 1920, 1080, 60});
    EXPECT_EQ(DisplayDrm::getDrmDev(), display.get());
    EXPECT_EQ(display->getDisplayWidth(), 0U);
    EXPECT_EQ(display->getDisplayHeight(), 0U);
    EXPECT_FALSE(display->isDrmConnected());
    EXPECT_TRUE(card.openFlags.empty());
}

TEST_F(DisplaySetup, AnObjectThatGoesDoesNotTakeItsSuccessorAway) {
    auto first = std::make_unique<DisplayDrm>(decInfo{});
    display = std::make_unique<DisplayDrm>(decInfo{});
    first.reset();
    EXPECT_EQ(DisplayDrm::getDrmDev(), display.get());
}

TEST_F(DisplaySetup, PrintsEveryConnectorWithARawIndex) {
    card.connectors.push_back({0, true, 0, {}, {}});
    card.connectors.push_back({21, false, 0, {}, {}});
    card.connectors.push_back({22, true, 0, {mode(640, 480, 60)}, {}});
    card.connectors.push_back({23, true, 50, {mode(640, 480, 60)}, {}});
    card.encoders.push_back({50, 49, 3});
    card.plugDisplay({mode(3840, 2160, 30), mode(1920, 1080, 60), mode(1920, 1080, 50)});
    EXPECT_EQ(setUp(1920, 1080, 30),
              bytes("\0 conn_id = 0 ----------\n", 25) +
                  "\1 conn_id = 21 ---------- status = disconnected\n"
                  "\2 conn_id = 22 ---------- enc_id = 0\n"
                  "\3 conn_id = 23 ---------- enc_id = 50 crtc_id = 49\n"
                  "\4 conn_id = 33 ---------- enc_id = 32 crtc_id = 31"
                  " get drm mode index succeed index = 1\n"
                  "conn_id_target = 33 enc_id_target = 32 crtc_id_target = 31\n"
                  "drmbuf.width = 1920 drmbuf.height = 1080\n"
                  "init drm mode MODE_FILP\n");
    EXPECT_EQ(errors, "");
    EXPECT_EQ(card.openFlags, std::vector<int>{O_RDWR | O_CLOEXEC});
    EXPECT_TRUE(display->isDrmConnected());
    EXPECT_EQ(display->getDisplayWidth(), 1920U);
    EXPECT_EQ(display->getDisplayHeight(), 1080U);
    EXPECT_EQ(display->getDisplayPitch(), 1920U);
}

TEST_F(DisplaySetup, AnUnknownModeFallsBackToTheFirst) {
    card.plugDisplay({mode(1280, 720, 60), mode(640, 480, 60)});
    const std::string out = setUp(1920, 1080, 60);
    EXPECT_NE(out.find(" crtc_id = 31 get drm mode index faild \nconn_id_target"),
              std::string::npos)
        << out;
    EXPECT_EQ(display->getDisplayWidth(), 1280U);
    EXPECT_EQ(card.scanout.mode.hdisplay, 1280);
    EXPECT_TRUE(display->isDrmConnected());
}

TEST_F(DisplaySetup, ALaterPathOverridesAnEarlierOne) {
    card.connectors.push_back({23, true, 50, {mode(640, 480, 60)}, {}});
    card.encoders.push_back({50, 49, 1});
    card.plugDisplay({mode(800, 600, 60), mode(1920, 1080, 60)});
    setUp(1920, 1080, 60);
    EXPECT_EQ(card.scanout.crtc, 31U);
    EXPECT_EQ(card.scanout.connector, 33U);
    EXPECT_EQ(Access::modeIndex(*display), 1);
    EXPECT_EQ(display->getDisplayWidth(), 1920U);
}

TEST_F(DisplaySetup, MakesThirtySixBuffersAndABlankOneInNv12) {
    card.plugDisplay({mode(1366, 768, 60)});
    setUp(1366, 768, 60);
    ASSERT_EQ(card.framebuffers.size(), 37U);
    for (const auto& [id, made] : card.framebuffers) {
        EXPECT_EQ(made.width, 1366U) << id;
        EXPECT_EQ(made.height, 768U);
        EXPECT_EQ(made.format, static_cast<std::uint32_t>(DRM_FORMAT_NV12));
        EXPECT_EQ(made.pitch, 1408U);
        EXPECT_EQ(made.chromaPitch, 1408U);
        EXPECT_EQ(made.chromaOffset, 1408U * 768);
    }
    const DisplayDrm::buffer_object& slot = Access::slot(*display, 35);
    EXPECT_EQ(slot.size, 1408ULL * 768 * 3 / 2);
    EXPECT_EQ(display->getDisplayPitch(), 1408U);
    EXPECT_EQ(display->getDisplayWidth(), 1366U);
    slot.vaddr[slot.size - 1] = 1;
}

TEST_F(DisplaySetup, TheBlankBufferIsBlackUpToItsLastChromaLine) {
    card.plugDisplay({mode(1366, 768, 60)});
    setUp(1366, 768, 60);
    const DisplayDrm::buffer_object& blank = Access::blank(*display);
    const std::size_t luma = 1408 * 768;
    EXPECT_TRUE(std::all_of(blank.vaddr, blank.vaddr + luma, [](int byte) { return byte == 0; }));
    EXPECT_TRUE(std::all_of(blank.vaddr + luma, blank.vaddr + luma * 3 / 2,
                            [](int byte) { return byte == 128; }));
}

TEST_F(DisplaySetup, ScansOutTheFirstBufferAndFlipsToTheBlankOne) {
    card.plugDisplay({mode(1920, 1080, 60)});
    setUp(1920, 1080, 60);
    EXPECT_EQ(card.scanout.crtc, 31U);
    EXPECT_EQ(card.scanout.connector, 33U);
    EXPECT_EQ(card.scanout.framebuffer, Access::slot(*display, 0).fb_id);
    EXPECT_EQ(card.flips(), std::vector<std::uint32_t>{Access::blank(*display).fb_id});
    EXPECT_EQ(card.flipCrtc, 31U);
    EXPECT_EQ(card.flipFlags, static_cast<std::uint32_t>(DRM_MODE_PAGE_FLIP_EVENT));
    EXPECT_EQ(card.flipUserData, Access::crtcId(*display));
    const drmEventContext& events = Access::events(*display);
    EXPECT_EQ(events.version, 4);
    EXPECT_EQ(events.page_flip_handler, modeset_page_flip_handler);
    EXPECT_EQ(events.vblank_handler, nullptr);
    EXPECT_EQ(events.page_flip_handler2, nullptr);
    EXPECT_EQ(events.sequence_handler, nullptr);
}

TEST_F(DisplaySetup, PicturePropertiesAreSetAndAllArePrinted) {
    card.plugDisplay({mode(1920, 1080, 60)});
    card.connectors[0].properties = {
        {1, "EDID", 7}, {2, "brightness", 10},        {3, "contrast", 10},  {4, "saturation", 10},
        {5, "hue", 10}, {6, "hdmi_output_format", 0}, {7, "brightnessX", 9}};
    const std::string out = setUp(1920, 1080, 60);
    const std::string expected =
        "id: 1 name:EDID value:7\n"
        "id: 2 name:brightness value:50\n"
        "id: 3 name:contrast value:50\n"
        "id: 4 name:saturation value:50\n"
        "id: 5 name:hue value:50\n"
        "id: 6 name:hdmi_output_format value:1\n"
        "id: 7 name:brightnessX value:9\n"
        "init drm mode MODE_FILP\n";
    EXPECT_NE(out.find("drmbuf.height = 1080\n" + expected), std::string::npos) << out;
    EXPECT_EQ(card.setProperties.size(), 5U);
}

TEST_F(DisplaySetup, WithoutACardTheLinesComeAndNothingIsConnected) {
    card.present = false;
    EXPECT_EQ(setUp(1920, 1080, 60),
              "conn_id_target = 0 enc_id_target = 0 crtc_id_target = 0\n"
              "drmbuf.width = 0 drmbuf.height = 0\n"
              "init drm mode MODE_FILP\n");
    EXPECT_EQ(errors, "display: cannot open /dev/dri/card0: 2, No such file or directory\n");
    EXPECT_FALSE(display->isDrmConnected());
    display->updateImage();
}

TEST_F(DisplaySetup, ADisplayWithoutModesIsNotConnected) {
    card.plugDisplay({});
    const std::string out = setUp(1920, 1080, 60);
    EXPECT_NE(out.find(" get drm mode index faild \n"), std::string::npos);
    EXPECT_NE(out.find("drmbuf.width = 0 drmbuf.height = 0\n"), std::string::npos);
    EXPECT_FALSE(display->isDrmConnected());
}

TEST_F(DisplaySetup, AnyFailedStepLeavesItUnconnectedWithAllLinesAndOneError) {
    for (const auto& [step, from] : {std::pair<std::string, int>{"resources", 1},
                                     {"connector", 1},
                                     {"encoder", 1},
                                     {"create", 1},
                                     {"create", 20},
                                     {"create", 37},
                                     {"framebuffer", 5},
                                     {"offset", 36},
                                     {"mmap", 1},
                                     {"mmap", 37},
                                     {"crtc", 1}}) {
        SCOPED_TRACE(step + " " + std::to_string(from));
        card.reset();
        card.plugDisplay({mode(64, 48, 60)});
        failAt(step, from);
        const std::string out = setUp(64, 48, 60);
        EXPECT_NE(out.find("conn_id_target = "), std::string::npos);
        EXPECT_NE(out.find("drmbuf.width = "), std::string::npos);
        EXPECT_NE(out.find("init drm mode MODE_FILP\n"), std::string::npos);
        EXPECT_EQ(std::count(errors.begin(), errors.end(), '\n'), 1) << errors;
        EXPECT_FALSE(display->isDrmConnected());
        EXPECT_TRUE(card.flips().empty());
        display.reset();
        std::string what;
        EXPECT_TRUE(card.allGivenBack(what)) << what;
    }
}

TEST_F(DisplaySetup, AnUnmappedBufferIsHandedOutAsNull) {
    card.plugDisplay({mode(64, 48, 60)});
    failAt("mmap");
    setUp(64, 48, 60);
    unsigned char other = 0;
    unsigned char* address = &other;
    EXPECT_TRUE(display->enQueue(&address, 64, 48, -1.0, 10));
    EXPECT_EQ(address, nullptr);
}

TEST_F(DisplaySetup, AModeListThatShrinksDuringTheSetUpEndsIt) {
    card.plugDisplay({mode(64, 48, 60), mode(128, 96, 60)});
    card.fails = [this](const std::string& step, int nth) {
        if (step == "create" && nth == 1) {
            card.connectors[0].modes.pop_back();
        }
        return false;
    };
    setUp(128, 96, 60);
    EXPECT_EQ(card.calls("crtc"), 0);
    EXPECT_FALSE(display->isDrmConnected());
}

TEST_F(DisplaySetup, ARefusedFirstFlipStillCountsAsConnected) {
    card.plugDisplay({mode(64, 48, 60)});
    card.fails = [](const std::string& step, int nth) { return step == "flip" && nth == 1; };
    setUp(64, 48, 60);
    EXPECT_TRUE(card.flips().empty());
    EXPECT_TRUE(display->isDrmConnected());
    display->updateImage();
    EXPECT_EQ(card.flips(), std::vector<std::uint32_t>{Access::blank(*display).fb_id});
}

TEST_F(DisplaySetup, ConnectionIsAskedWithoutProbingButOnceASecond) {
    card.plugDisplay({mode(64, 48, 60)});
    setUp(64, 48, 60);
    const int probes = card.calls("connector");
    const auto start = Clock::now();
    EXPECT_TRUE(display->isDrmConnected());
    EXPECT_TRUE(display->isDrmConnected());
    if (millisecondsSince(start) < 900.0) {
        EXPECT_EQ(card.calls("connector"), probes);
    }
    EXPECT_TRUE(comesTrue([&] {
        EXPECT_TRUE(display->isDrmConnected());
        return card.calls("connector") > probes;
    }));
    EXPECT_GE(millisecondsSince(start), 500.0) << "probed at once";
    card.setConnected(false);
    EXPECT_FALSE(display->isDrmConnected());
    failAt("current");
    card.setConnected(true);
    EXPECT_FALSE(display->isDrmConnected()) << "a fetch that fails";
}

TEST_F(DisplaySetup, ClosingTwiceGivesBackOnce) {
    card.plugDisplay({mode(64, 48, 60)});
    setUp(64, 48, 60);
    display->close_drm_display();
    std::string what;
    EXPECT_TRUE(card.allGivenBack(what)) << what;
    EXPECT_FALSE(display->isDrmConnected());
    display->close_drm_display();
}
