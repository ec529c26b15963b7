// Which marker files ask for a banner, and that each does so once.
#include "control/display/displaydrm.h"

#include "tests/unit/display/displayaccess.h"
#include "tests/unit/display/fakedrm.h"
#include "tests/unit/display/fakefiles.h"
#include "tests/unit/task/printed.h"
#include "tests/unit/task/waiting.h"

#include <gtest/gtest.h>
#include <atomic>
#include <optional>
#include <thread>

namespace {

using Access = DisplayDrmTestAccess;
using Strings = std::vector<std::string>;

constexpr char upgraded[] = "/userdata/updateSuceedFlag";
constexpr char firstStart[] = "/usr/bin/startupflag";
constexpr char oldVersion[] = "/userdata/oldsysver";
constexpr char newVersion[] = "/userdata/newsysver";

class Markers : public testing::Test {
  protected:
    void SetUp() override {
        card.reset();
        card.plugDisplay({FakeDrm::mode(64, 48, 60)});
    }
    void write(const Strings& paths) {
        for (const std::string& path : paths) {
            files.write(path, "");
        }
    }
    // A display is set up anew; what it prints.
    std::string setUp() {
        display.reset();
        card.loseFlip();  // the one of the display before
        display.emplace(decInfo{0, 64, 48, 60});
        return printedBy([this] { display->init_drm_display(); });
    }
    bool upgradeBanner() { return Access::upgradeBanner(*display); }
    bool startupBanner() { return Access::startupBanner(*display); }

    FakeDrm& card = FakeDrm::instance();
    FakeFiles files;
    std::optional<DisplayDrm> display;
};

TEST_F(Markers, NoneNoBannerNoCommand) {
    write({oldVersion, newVersion});
    setUp();
    EXPECT_FALSE(upgradeBanner() || startupBanner());
    EXPECT_TRUE(files.commands.empty());
}

TEST_F(Markers, AfterAnUpgradeOnce) {
    write({upgraded, oldVersion, newVersion});
    setUp();
    EXPECT_TRUE(upgradeBanner());
    EXPECT_FALSE(startupBanner());
    EXPECT_FALSE(files.exists(upgraded));
    EXPECT_EQ(files.commands, Strings{"sync"});
    setUp();
    EXPECT_FALSE(upgradeBanner());
    EXPECT_EQ(files.commands, Strings{"sync"});
    EXPECT_TRUE(files.exists(oldVersion) && files.exists(newVersion));
}

TEST_F(Markers, AnUpgradeWithoutBothSystemVersionsShowsNothingButIsUsedUp) {
    for (const Strings& present : {Strings{}, {oldVersion}, {newVersion}}) {
        files.commands.clear();
        write({upgraded});
        write(present);
        setUp();
        EXPECT_FALSE(upgradeBanner() || startupBanner());
        EXPECT_FALSE(files.exists(upgraded));
        EXPECT_EQ(files.commands, Strings{"sync"});
        for (const std::string& path : present) {
            unlink(path.c_str());
        }
    }
}

TEST_F(Markers, OnTheFirstStartOnce) {
    write({firstStart, newVersion});
    setUp();
    EXPECT_TRUE(startupBanner());
    EXPECT_FALSE(upgradeBanner());
    EXPECT_FALSE(files.exists(firstStart));
    EXPECT_EQ(files.commands, Strings{"sync"});
    setUp();
    EXPECT_FALSE(startupBanner());
    EXPECT_EQ(files.commands, Strings{"sync"});
}

TEST_F(Markers, AFirstStartWithoutASystemVersionShowsNothingButIsUsedUp) {
    write({firstStart, oldVersion});
    setUp();
    EXPECT_FALSE(upgradeBanner() || startupBanner());
    EXPECT_FALSE(files.exists(firstStart));
    EXPECT_EQ(files.commands, Strings{"sync"});
}

TEST_F(Markers, AnUpgradeGoesFirstAndTheFirstStartWaitsForTheNextSetUp) {
    write({upgraded, firstStart, newVersion});
    setUp();
    EXPECT_FALSE(upgradeBanner() || startupBanner()) << "there is no old system version";
    EXPECT_TRUE(files.exists(firstStart));
    setUp();
    EXPECT_TRUE(startupBanner());
    EXPECT_FALSE(files.exists(firstStart));
    EXPECT_EQ(files.commands, (Strings{"sync", "sync"}));
}

TEST_F(Markers, ADisplayThatCannotShowABannerLeavesThemAlone) {
    write({upgraded, oldVersion, newVersion});
    card.fails = [](const std::string& step, int) { return step == "crtc"; };
    testing::internal::CaptureStderr();
    const std::string out = setUp();
    testing::internal::GetCapturedStderr();
    EXPECT_NE(out.find("init drm mode MODE_FILP\n"), std::string::npos);
    EXPECT_FALSE(upgradeBanner());
    EXPECT_TRUE(files.exists(upgraded));
    EXPECT_TRUE(files.commands.empty());
}

TEST_F(Markers, TheUpgradeScreenIsAskedOfTheDisplayThatIsThere) {
    DisplayDrm::startUpgradeScreen();  // none: nothing happens
    setUp();
    EXPECT_FALSE(Access::upgradeScreen(*display));
    DisplayDrm::startUpgradeScreen();
    EXPECT_TRUE(Access::upgradeScreen(*display));
    setUp();
    EXPECT_FALSE(Access::upgradeScreen(*display)) << "a new display starts with video";
}

// The bookkeeping task asks every second, whatever the supervisor does with the display meanwhile.
TEST(UpgradeScreen, ADisplayDoesNotGoWhileItIsAsked) {
    auto display = std::make_unique<DisplayDrm>(decInfo{0, 64, 48, 60});
    std::atomic<bool> gone{false}, asked{false};
    std::thread destroying, asking;
    Access::whileDisplayKept([&] {
        destroying = std::thread([&] {
            display.reset();
            gone = true;
        });
        asking = std::thread([&] {
            DisplayDrm::startUpgradeScreen();
            asked = true;
        });
        EXPECT_FALSE(comesTrue([&] { return gone || asked; }, std::chrono::milliseconds(200)));
    });
    EXPECT_TRUE(comesTrue([&] { return gone && asked; }));
    destroying.join();
    asking.join();
    EXPECT_EQ(DisplayDrm::getDrmDev(), nullptr);
}

TEST(UpgradeScreen, AskedWhileDisplaysComeAndGo) {
    std::atomic<bool> running{true};
    std::atomic<int> asked{0};
    std::thread asking([&] {
        while (running) {
            DisplayDrm::startUpgradeScreen();
            ++asked;
        }
    });
    for (int i = 0; i < 300 || asked < 300; ++i) {
        auto display = std::make_unique<DisplayDrm>(decInfo{0, 64, 48, 60});
        display.reset();
    }
    running = false;
    asking.join();
    EXPECT_EQ(DisplayDrm::getDrmDev(), nullptr);
}

}  // namespace
