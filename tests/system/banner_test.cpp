// What goes on around the banners and the upgrade screen: the capture's patience, the pipeline's
// end, the other threads, picture files that are none.

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <ostream>

#include "tests/support/application.h"
#include "tests/support/scenarios.h"
#include "tests/support/screenshot.h"

namespace {

using support::Application;
using support::benchScenario;
using support::Board;
using support::Milliseconds;

constexpr char background[] = "/usr/bin/startUpVersion_brivant.bin";
constexpr char upgradePicture[] = "/usr/bin/readyUpgradeDone_brivant.bin";
constexpr char updateStart[] = "/usr/bin/updateStart";
constexpr char drawn[] = "file size: 6220800";  // the log's line when a banner is drawn
constexpr char pipelineGone[] = "delete capture media succeed";
constexpr std::size_t pictureSize = std::size_t{1920} * 1080 * 3;

void askForBanner(Board& board) {
    support::writeFile(board.rootPath("/usr/bin/startupflag"), "");
    support::writeFile(board.rootPath("/userdata/newsysver"), "1.4\n");
}

bool showsVideo(Board& board) {
    const std::uint64_t before = board.display().shown;
    return board.waitForDisplay([&](const auto& figures) { return figures.shown >= before + 3; },
                                Milliseconds(15000));
}

// The brightest colour value on the screen.
int brightest(Board& board) {
    const support::Rgb screen = support::takeScreenshot(board);
    return screen.bytes.empty() ? -1 : *std::max_element(screen.bytes.begin(), screen.bytes.end());
}

bool becomes(const std::function<bool()>& condition, Milliseconds patience) {
    const auto deadline = support::Clock::now() + support::scaled(patience);
    while (!condition()) {
        if (support::Clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(Milliseconds(20));
    }
    return true;
}

// A camera that is silent for two and a half seconds ends an ordinary session.
TEST(Banner, CaptureIsPatientMeanwhileAndNotAfterwards) {
    Board board(benchScenario("small"), 2);
    askForBanner(board);
    Application application(board);
    application.expectLine(drawn, Milliseconds(15000));
    application.expectPlaying();
    ASSERT_TRUE(board.waitForCamera([](const auto& figures) { return figures.delivered >= 3; },
                                    Milliseconds(5000)));
    board.stallCamera(true);
    // Not stretched on a slow machine: the patience is ten seconds of the board's time.
    const Milliseconds silence(int(1250 / support::timeFactor()));
    EXPECT_FALSE(application.err().waitForMatch("select timeout", silence).has_value())
        << "the capture lost its patience while the banner stood";
    board.stallCamera(false);
    EXPECT_TRUE(showsVideo(board));
    EXPECT_TRUE(application.err().all().empty()) << application.err().text();
    board.stallCamera(true);
    const auto stalled = support::Clock::now();
    EXPECT_TRUE(application.err().waitForMatch("select timeout", Milliseconds(10000)).has_value());
    const double waited_s = std::chrono::duration<double>(support::Clock::now() - stalled).count();
    EXPECT_LE(waited_s, 3.0 * support::timeFactor()) << "still as patient as with the banner";
}

TEST(Banner, UpgradeWithoutTheOldSystemVersionIsUsedUpAndShowsNothing) {
    Board board(benchScenario("small"), 2);
    support::writeFile(board.rootPath("/userdata/updateSuceedFlag"), "");
    support::writeFile(board.rootPath("/userdata/newsysver"), "1.4\n");
    Application application(board);
    application.expectPlaying();
    EXPECT_TRUE(showsVideo(board));
    EXPECT_FALSE(application.out().waitForMatch("^file size", Milliseconds(0)).has_value());
    EXPECT_FALSE(std::filesystem::exists(board.rootPath("/userdata/updateSuceedFlag")));
    EXPECT_TRUE(std::filesystem::exists(board.rootPath("/userdata/newsysver")));
}

class BannerEnd : public testing::TestWithParam<const char*> {};

TEST_P(BannerEnd, PipelineDoesNotWaitForIt) {
    Board board(benchScenario("small"));
    askForBanner(board);
    Application application(board);
    application.expectLine(drawn, Milliseconds(15000));
    std::size_t next = application.expectPlaying();
    const auto unplugged = support::Clock::now();
    board.unplug(GetParam());
    next = application.expectLine(pipelineGone, Milliseconds(10000), next);
    const double took_s = std::chrono::duration<double>(support::Clock::now() - unplugged).count();
    EXPECT_LE(took_s, 2.0 * support::timeFactor());
    board.plug(GetParam());
    application.expectPlaying(next);
    EXPECT_TRUE(showsVideo(board));
    EXPECT_EQ(application.out().count(drawn), 1u) << "a second banner";
}

INSTANTIATE_TEST_SUITE_P(Devices, BannerEnd, testing::Values("camera", "display"),
                         [](const auto& info) { return std::string(info.param); });

struct BadPicture {
    const char* name;
    long size;  // -1: no file
};

void PrintTo(const BadPicture& one, std::ostream* out) {
    *out << one.name;
}

class BannerPicture : public testing::TestWithParam<BadPicture> {
  protected:
    static void replace(const std::string& path) {
        std::filesystem::remove(path);
        if (GetParam().size >= 0) {
            support::writeFile(path, std::string(std::size_t(GetParam().size), '\xc8'));
        }
    }
};

TEST_P(BannerPicture, ThatIsNoneLeavesTheScreenBlackAndOneLine) {
    Board board(benchScenario("small"), 2);
    askForBanner(board);
    replace(board.rootPath(background));
    Application application(board);
    application.expectLine("file size: " + std::to_string(GetParam().size), Milliseconds(15000));
    EXPECT_EQ(brightest(board), 0);
    EXPECT_TRUE(showsVideo(board));
    EXPECT_TRUE(application.err().waitForMatch("startUpVersion_brivant.bin.* 6220800 ",
                                               Milliseconds(5000)));
    EXPECT_EQ(application.err().size(), 1u) << application.err().text();
}

TEST_P(BannerPicture, OfTheUpgradeThatIsNoneLeavesTheScreenBlackAndOneLine) {
    Board board(benchScenario("small"), 2);
    replace(board.rootPath(upgradePicture));
    Application application(board);
    application.expectPlaying();
    EXPECT_TRUE(showsVideo(board));
    support::writeFile(board.rootPath(updateStart), "");
    EXPECT_TRUE(becomes([&] { return brightest(board) == 0; }, Milliseconds(5000)));
    EXPECT_TRUE(application.err().waitForMatch("readyUpgradeDone_brivant.bin.* 6220800 ",
                                               Milliseconds(5000)));
    EXPECT_EQ(application.err().size(), 1u) << application.err().text();
}

INSTANTIATE_TEST_SUITE_P(Files, BannerPicture,
                         testing::Values(BadPicture{"missing", -1}, BadPicture{"short", 1000000},
                                         BadPicture{"long", long(pictureSize) + 1}),
                         [](const auto& info) { return info.param.name; });

TEST(UpgradeScreen, StaysForGoodAndOtherThreadsGoOn) {
    Board board(benchScenario("small"), 4);
    // One colour, so that the screen is known.
    support::writeFile(board.rootPath(upgradePicture), std::string(pictureSize, '\x80'));
    Application application(board);
    std::size_t next = application.expectPlaying();
    EXPECT_TRUE(showsVideo(board));
    const auto asked = support::Clock::now();
    support::writeFile(board.rootPath(updateStart), "");
    const auto shown = [&] {
        const support::Rgb screen = support::takeScreenshot(board);
        return std::all_of(screen.bytes.begin(), screen.bytes.end(),
                           [](std::uint8_t byte) { return byte == 128; });
    };
    EXPECT_TRUE(becomes(shown, Milliseconds(5000)));
    const double took_s = std::chrono::duration<double>(support::Clock::now() - asked).count();
    EXPECT_LE(took_s, 2.0 * support::timeFactor()) << "a second of the fast clock is 0.25 s";
    const std::uint64_t flips = board.display().flips;
    const std::uint64_t delivered = board.camera().delivered;
    std::filesystem::remove(board.rootPath(updateStart));
    // Frames go on coming and find a full ring.
    next = application.out().size();
    application.expectLine("clean queue buff", Milliseconds(10000), next);
    // The display's report is due every thirty seconds of the fast clock.
    EXPECT_TRUE(
        application.out().waitForMatch(R"(^cap:\d+$)", Milliseconds(15000), next).has_value());
    EXPECT_FALSE(application.out().waitForMatch(R"(^fps:)", Milliseconds(1000), next).has_value());
    EXPECT_TRUE(shown());
    EXPECT_EQ(board.display().flips, flips);
    EXPECT_GT(board.camera().delivered, delivered + 100);
    EXPECT_EQ(application.out().count("ShowControlsvc normal stop!"), 0u);
    application.end();  // by SIGTERM, and by nothing else before
}

}  // namespace
