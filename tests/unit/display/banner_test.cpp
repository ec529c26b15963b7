// Version banners and the upgrade screen in the place of video.
#include "control/capture/selecttimeout.h"
#include "control/convert/rkrga.h"
#include "control/display/displaydrm.h"
#include "control/supervise/versiontext.h"

#include "tests/unit/display/displayaccess.h"
#include "tests/unit/display/fakedrm.h"
#include "tests/unit/display/fakefiles.h"
#include "tests/unit/task/printed.h"
#include "tests/unit/task/waiting.h"

#include <gtest/gtest.h>
#include <atomic>
#include <functional>
#include <opencv2/imgproc.hpp>
#include <optional>
#include <thread>

namespace {

using Access = DisplayDrmTestAccess;
using Framebuffers = std::vector<std::uint32_t>;

constexpr unsigned width = 1920, height = 1080;
constexpr std::size_t pictureSize = static_cast<std::size_t>(width) * height * 3;
constexpr char background[] = "/usr/bin/startUpVersion_brivant.bin";
constexpr char upgradePicture[] = "/usr/bin/readyUpgradeDone_brivant.bin";
constexpr int greyLuma = 126;  // of 128, 128, 128

class Banner : public testing::Test {
  protected:
    void SetUp() override {
        card.reset();
        card.plugDisplay({FakeDrm::mode(width, height, 60)});
        files.write(background, std::string(pictureSize, static_cast<char>(128)));
        files.write("/userdata/oldsysver", "1.3\nmore\n");
        files.write("/userdata/newsysver", "1.4\n");
        VersionText::lastVersion = "5.21";
        VersionText::version = "5.22";
        SelectTimeout::selectTimeout_sec = 3;
        SelectTimeout::selectTimeout_usec = 7;
    }
    void TearDown() override {
        EXPECT_EQ(SelectTimeout::selectTimeout_sec, 3);
        EXPECT_EQ(SelectTimeout::selectTimeout_usec, 7);
        SelectTimeout::selectTimeout_sec = 1;
        SelectTimeout::selectTimeout_usec = 0;
        display.reset();
        std::string what;
        EXPECT_TRUE(card.allGivenBack(what)) << what;
    }
    void setUp(const std::string& marker) {
        if (!marker.empty()) {
            files.write(marker, "");
        }
        display.emplace(decInfo{0, width, height, 60});
        printedBy([this] { display->init_drm_display(); });
        blank = Access::blank(*display).fb_id;
    }
    // Lets the outstanding flip complete; `meanwhile` runs as soon as the handler has queued the
    // next one. What both print.
    std::string flip(const std::function<void()>& meanwhile) {
        testing::internal::CaptureStderr();
        const std::string out = printedBy([&] {
            const std::size_t before = card.flips().size();
            EXPECT_TRUE(card.completeFlip());
            cameBack = false;
            std::thread task([this] {
                display->updateImage();
                cameBack = true;
            });
            EXPECT_TRUE(comesTrue([&] { return card.flips().size() > before; }));
            meanwhile();
            task.join();
        });
        errors = testing::internal::GetCapturedStderr();
        return out;
    }
    // The buffer is looked at as a screen does it: without a word to the thread that paints it, and
    // in loops that no sanitizer sees.
    cv::Mat luma() {
        return cv::Mat(static_cast<int>(height), static_cast<int>(width), CV_8UC1,
                       Access::blank(*display).vaddr);
    }
    bool chromaIs(int wanted) {
        const cv::Mat chroma(static_cast<int>(height / 2), static_cast<int>(width), CV_8UC1,
                             Access::blank(*display).vaddr + width * height);
        return cv::countNonZero(chroma != wanted) == 0;
    }
    bool isBlack() { return cv::countNonZero(luma()) == 0 && chromaIs(128); }
    // The text on grey, white, as the banner must have it.
    void expectText(const std::string& text, double scale) {
        cv::Mat expected(static_cast<int>(height), static_cast<int>(width), CV_8UC1,
                         cv::Scalar(greyLuma));
        cv::putText(expected, text, {30, 1050}, 0, scale, cv::Scalar(235), 4, 8, false);
        EXPECT_EQ(cv::countNonZero(luma() != expected), 0);
        EXPECT_GT(cv::countNonZero(luma() == 235), 500) << "no text";
        EXPECT_TRUE(chromaIs(128));
    }
    void expectPatience() {
        EXPECT_EQ(SelectTimeout::selectTimeout_sec, 10);
        EXPECT_EQ(SelectTimeout::selectTimeout_usec, 0);
    }
    // The next completed flip shows video again, and no flip is queued beside the cycle.
    void expectVideoNext() {
        unsigned char* buffer = nullptr;
        display->enQueue(&buffer, width, height, -1.0, 10);
        display->enQueueEnd();
        const int asked = card.calls("flip");
        EXPECT_TRUE(card.completeFlip());
        display->updateImage();
        EXPECT_EQ(card.flips().back(), Access::slot(*display, 0).fb_id);
        EXPECT_EQ(card.calls("flip"), asked + 1);
    }

    FakeDrm& card = FakeDrm::instance();
    FakeFiles files;
    RkRga engine;
    std::optional<DisplayDrm> display;
    std::uint32_t blank = 0;
    std::atomic<bool> cameBack{false};  // the flip handler did
    std::string errors;
};

}  // namespace

TEST_F(Banner, AfterAnUpgradeNamesBothVersions) {
    setUp("/userdata/updateSuceedFlag");
    const std::string out = flip([this] {
        expectText("V1.3.5.21 -> V1.4.5.22", 1.0);
        expectPatience();
        display->stopWaiting();  // a pipeline that ends does not wait for the banner
    });
    EXPECT_EQ(out, "file size: 6220800\n");
    EXPECT_EQ(errors, "");
    EXPECT_EQ(card.flips(), (Framebuffers{blank, blank}));
    EXPECT_TRUE(isBlack());
    EXPECT_FALSE(Access::upgradeBanner(*display));
    expectVideoNext();
}

TEST_F(Banner, OnTheFirstStartNamesTheVersionForFiveSeconds) {
    setUp("/usr/bin/startupflag");
    Clock::time_point shown;
    flip([&] {
        shown = Clock::now();
        expectText("V1.4.5.22", 1.5);
        expectPatience();
        EXPECT_TRUE(card.completeFlip());  // the display goes on while the handler sleeps
    });
    const double stood = millisecondsSince(shown);
    EXPECT_GE(stood, 4900.0);
    EXPECT_LT(stood, 8000.0);
    EXPECT_TRUE(isBlack());
    EXPECT_FALSE(Access::startupBanner(*display));
    // The flip's event has waited for five seconds: it is no lost one.
    expectVideoNext();
}

TEST_F(Banner, MissingVersionFilesLeaveTheirPlaceEmpty) {
    setUp("/usr/bin/startupflag");
    files.write("/userdata/newsysver", "");
    flip([this] {
        expectText("V.5.22", 1.5);
        display->stopWaiting();
    });
}

TEST_F(Banner, WithoutItsPictureTheScreenIsBlackForAsLong) {
    for (const std::size_t size : {std::size_t{0}, pictureSize - 1, pictureSize + 1}) {
        files.write(background, std::string(size, static_cast<char>(200)));
        setUp("/usr/bin/startupflag");
        const std::string out = flip([this] {
            EXPECT_EQ(cv::countNonZero(luma() != 16), 0) << "black of limited range";
            EXPECT_TRUE(chromaIs(128));
            expectPatience();
            display->stopWaiting();
        });
        EXPECT_EQ(out, "file size: " + std::to_string(size) + "\n");
        EXPECT_EQ(errors,
                  "picture " + std::string(background) + ": " + std::to_string(size) +
                      " bytes, of which 0 were read; 6220800 are expected, nothing is shown of "
                      "it\n");
        expectVideoNext();
        display.reset();
        card.reset();
        card.plugDisplay({FakeDrm::mode(width, height, 60)});
    }
}

TEST_F(Banner, TheUpgradeScreenComesAfterTheBannersAndStays) {
    files.write(upgradePicture, std::string(pictureSize, static_cast<char>(128)));
    setUp("/usr/bin/startupflag");
    DisplayDrm::startUpgradeScreen();
    flip([this] {
        expectText("V1.4.5.22", 1.5);
        display->stopWaiting();
    });
    unsigned char* buffer = nullptr;
    display->enQueue(&buffer, width, height, -1.0, 10);
    display->enQueueEnd();
    const std::string out = flip([this] {
        EXPECT_EQ(cv::countNonZero(luma() != greyLuma), 0);
        EXPECT_TRUE(chromaIs(128));
        // The handler never comes back by itself: neither for an event nor for the end.
        EXPECT_TRUE(card.completeFlip());
        display->stopWaiting();
        EXPECT_FALSE(comesTrue([&] { return cameBack.load(); }, std::chrono::milliseconds(1500)));
        Access::upgradeScreen(*display) = false;  // for the test's own end
    });
    EXPECT_EQ(out, "");
    EXPECT_EQ(errors, "");
    EXPECT_EQ(card.flips(), (Framebuffers{blank, blank, blank}));
}

TEST_F(Banner, AnUpgradeScreenWithoutItsPictureIsBlack) {
    for (const bool tooLarge : {false, true}) {
        if (tooLarge) {
            files.write(upgradePicture, std::string(pictureSize * 2, static_cast<char>(200)));
        }
        setUp("");
        DisplayDrm::startUpgradeScreen();
        flip([this] {
            EXPECT_TRUE(isBlack());
            Access::upgradeScreen(*display) = false;
        });
        EXPECT_EQ(std::count(errors.begin(), errors.end(), '\n'), 1) << errors;
        EXPECT_EQ(errors.find("picture /usr/bin/readyUpgradeDone_brivant.bin: "), 0U) << errors;
        EXPECT_NE(errors.find("6220800"), std::string::npos) << errors;
        EXPECT_EQ(card.flips(), (Framebuffers{blank, blank}));
        display.reset();
        card.reset();
        card.plugDisplay({FakeDrm::mode(width, height, 60)});
    }
}
