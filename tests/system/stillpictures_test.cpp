// The version banners and the upgrade screen on the display: the right picture with the right
// words, for the right time, once.

#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>

#include "tests/support/application.h"
#include "tests/support/scenarios.h"
#include "tests/system/expectedscreen.h"

namespace {

using support::Application;
using support::benchScenario;
using support::Board;
using support::Milliseconds;
using Strings = std::vector<std::string>;

constexpr char background[] = "/usr/bin/startUpVersion_brivant.bin";
constexpr char drawn[] = "file size: 6220800";  // the log's line when a banner is drawn

bool showsVideo(Board& board) {
    return board.waitForDisplay([](const auto& figures) { return figures.shown >= 3; },
                                Milliseconds(15000));
}

// On a slow machine a minute may pass.
std::string commandsBesideTemperatures(Board& board) {
    std::istringstream commands(support::readFile(board.folder() + "/commands"));
    std::string others;
    for (std::string line; std::getline(commands, line);) {
        if (line.rfind("echo cpu", 0) != 0 && line.rfind("cat /sys/class/thermal/", 0) != 0) {
            others += line + "\n";
        }
    }
    return others;
}

// Looks at the screen until it is about the expected one, and then more closely: the whole of it,
// and the lines that hold the text. Returns what it saw.
support::Rgb expectScreen(Board& board, const support::Rgb& expected, double least) {
    const auto deadline = support::Clock::now() + support::scaled(Milliseconds(8000));
    support::Rgb seen;
    do {
        seen = support::takeScreenshot(board);
    } while (distance(seen, expected) > 3 && support::Clock::now() < deadline);
    const double whole = likeness(seen, expected);
    const double text = likeness(seen, expected, expected.height * 9 / 10);
    std::printf("likeness %.4f, of the text's lines %.4f; mean distance %.2f\n", whole, text,
                distance(seen, expected));
    EXPECT_GE(whole, least);
    EXPECT_GE(text, least) << "the line of text";
    EXPECT_LE(distance(seen, expected), 3);
    return seen;
}

const std::uint8_t* pixel(const support::Rgb& screen, unsigned x, unsigned y) {
    return &screen.bytes[(std::size_t{y} * screen.width + x) * 3];
}

struct Field {
    unsigned x;
    int red, green, blue, tolerance;
};

// In the background's row of fields: grey and white exact, hues as the engine's codes have them.
void expectFields(const support::Rgb& screen) {
    const Field fields[] = {{792, 16, 64, 255, 4},      // blue, with the luma of red
                            {876, 33, 247, 0, 8},       // green
                            {960, 207, 0, 0, 8},        // red, with the luma of blue
                            {1044, 128, 128, 128, 0},   // grey
                            {1128, 255, 255, 255, 0}};  // white
    for (const Field& field : fields) {
        const std::uint8_t* seen = pixel(screen, field.x, 832);
        EXPECT_NEAR(seen[0], field.red, field.tolerance) << "red at " << field.x;
        EXPECT_NEAR(seen[1], field.green, field.tolerance) << "green at " << field.x;
        EXPECT_NEAR(seen[2], field.blue, field.tolerance) << "blue at " << field.x;
    }
}

TEST(StillPictures, FirstStartBannerStandsFiveSecondsThenVideo) {
    Board board("first-start");
    const support::Rgb expected =
        expectedScreen(board.rootPath(background), "V1.4.5.22", 1.5, 1920, 1080);
    Application application(board);
    application.expectLine(drawn, Milliseconds(15000));
    const auto shown = support::Clock::now();
    expectFields(expectScreen(board, expected, 0.98));
    EXPECT_EQ(board.display().shown, 0u) << "video beside the banner";
    EXPECT_TRUE(showsVideo(board));
    const double stood_s = std::chrono::duration<double>(support::Clock::now() - shown).count();
    std::printf("the banner stood %.2f s\n", stood_s);
    EXPECT_GE(stood_s, 4.7);
    EXPECT_LE(stood_s, 5 + 3 * support::timeFactor());
    EXPECT_FALSE(std::filesystem::exists(board.rootPath("/usr/bin/startupflag")));
    EXPECT_EQ(support::readFile(board.rootPath("/userdata/version")), "5.22\n");
    EXPECT_EQ(commandsBesideTemperatures(board),
              "touch /userdata/version\necho 5.22> /userdata/version\nsync\nsync\n");
    EXPECT_EQ(support::readFile(board.folder() + "/kept"), "sync\nsync\n");
    EXPECT_TRUE(application.err().all().empty()) << application.err().text();
}

TEST(StillPictures, UpgradeBannerNamesBothVersions) {
    Board board("after-upgrade");
    const support::Rgb expected =
        expectedScreen(board.rootPath(background), "V1.3.5.21 -> V1.4.5.22", 1.0, 1920, 1080);
    Application application(board);
    application.expectLine(drawn, Milliseconds(15000));
    expectScreen(board, expected, 0.98);
    EXPECT_FALSE(std::filesystem::exists(board.rootPath("/userdata/updateSuceedFlag")));
}

TEST(StillPictures, BannerComesOnce) {
    Board board(benchScenario("small"), 2);
    support::writeFile(board.rootPath("/userdata/version"), "5.21\n");
    for (const char* path :
         {"/userdata/updateSuceedFlag", "/userdata/oldsysver", "/userdata/newsysver"}) {
        support::writeFile(board.rootPath(path), "1.4\n");
    }
    {
        Application application(board);
        application.expectLine(drawn, Milliseconds(15000));
        std::size_t next = application.expectPlaying();
        EXPECT_TRUE(showsVideo(board));
        board.unplug("camera");
        next = application.expectLine("statue: STATUE_POOL_OPENFAID ==> STATUE_POLL_NODEVICE",
                                      Milliseconds(5000), next);
        board.resetFigures();
        board.plug("camera");
        application.expectPlaying(next);
        EXPECT_TRUE(showsVideo(board));
        EXPECT_EQ(application.out().count(drawn), 1u) << "a second banner";
    }
    board.resetFigures();
    Application again(board);
    again.expectPlaying();
    EXPECT_TRUE(showsVideo(board));
    EXPECT_EQ(again.out().count(drawn), 0u) << "a banner at the second start";
    EXPECT_EQ(again.out().all().at(0), "old version : 5.22");
    EXPECT_EQ(commandsBesideTemperatures(board),
              "echo 5.22> /userdata/version\nsync\nsync\necho 5.22> /userdata/version\nsync\n");
}

class StillPicturesScaled : public testing::TestWithParam<const char*> {};

TEST_P(StillPicturesScaled, BannerFitsTheDisplay) {
    Board board(benchScenario(GetParam()), 2);
    support::writeFile(board.rootPath("/usr/bin/startupflag"), "");
    support::writeFile(board.rootPath("/userdata/newsysver"), "1.4\nnot this line\n");
    Application application(board);
    application.expectLine(drawn, Milliseconds(15000));
    ASSERT_TRUE(board.waitForDisplay([](const auto& figures) { return !figures.mode.empty(); },
                                     Milliseconds(5000)));
    unsigned width = 0, height = 0;
    ASSERT_EQ(std::sscanf(board.display().mode.c_str(), "%ux%u", &width, &height), 2);
    expectScreen(board, expectedScreen(board.rootPath(background), "V1.4.5.22", 1.5, width, height),
                 0.93);
}

INSTANTIATE_TEST_SUITE_P(Displays, StillPicturesScaled, testing::Values("small", "wide-1366"),
                         [](const auto& info) {
                             return std::string(info.param) == "small" ? "small" : "padded";
                         });

TEST(StillPictures, OrdinaryStartShowsVideoOnly) {
    Board board("ordinary");
    Application application(board);
    application.expectPlaying();
    EXPECT_TRUE(showsVideo(board));
    EXPECT_EQ(application.out().from(0).at(0), "old version : 5.22");
    EXPECT_FALSE(application.out().waitForMatch("^file size", Milliseconds(0)).has_value());
    EXPECT_EQ(commandsBesideTemperatures(board), "echo 5.22> /userdata/version\nsync\n");
}

TEST(StillPictures, UpgradeThatRunsAtTheStartIsShown) {
    Board board("upgrading");
    const support::Rgb expected =
        expectedScreen(board.rootPath("/usr/bin/readyUpgradeDone_brivant.bin"), "", 1, 1920, 1080);
    Application application(board);
    application.expectPlaying();
    expectScreen(board, expected, 0.98);
    EXPECT_TRUE(std::filesystem::exists(board.rootPath("/usr/bin/updateStart")))
        << "the marker is not this program's to remove";
}

}  // namespace
