// The version file, byte for byte, through the shell that really runs; temperatures; what shell
// commands get to see of the process.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <ostream>
#include <set>
#include <sstream>

#include "tests/support/application.h"
#include "tests/support/scenarios.h"

namespace {

using support::Application;
using support::benchScenario;
using support::Board;
using support::Milliseconds;
using Strings = std::vector<std::string>;

constexpr char ready[] = "version : 5.22";

// Waits until the supervisor runs, so until the bookkeeping's commands are over.
void waitForCommands(Application& application, Board& board) {
    application.expectLine(ready);
    board.plug("camera");
    application.expectLine("statue: STATUE_POLL_NODEVICE ==> STATUE_POOL_OPENDEVICE");
}

struct VersionFile {
    const char* name;
    std::string content, shown;
};

void PrintTo(const VersionFile& one, std::ostream* out) {
    *out << one.name;
}

class BookkeepingVersion : public testing::TestWithParam<VersionFile> {};

TEST_P(BookkeepingVersion, FileHoldsThisVersionAfterwards) {
    Board board(benchScenario("small-unplugged"), 10);
    support::writeFile(board.rootPath("/userdata/version"), GetParam().content);
    Application application(board);
    waitForCommands(application, board);
    EXPECT_EQ(application.out().all().at(0), "old version : " + GetParam().shown);
    EXPECT_EQ(application.out().all().at(1), ready);
    EXPECT_EQ(support::readFile(board.rootPath("/userdata/version")), "5.22\n");
    EXPECT_EQ(support::readFile(board.folder() + "/commands"),
              "echo 5.22> /userdata/version\nsync\n");
    EXPECT_EQ(support::readFile(board.folder() + "/kept"), "sync\n");
    EXPECT_TRUE(application.err().all().empty()) << application.err().text();
}

INSTANTIATE_TEST_SUITE_P(
    Contents, BookkeepingVersion,
    testing::Values(VersionFile{"older", "5.21\n", "5.21"}, VersionFile{"same", "5.22\n", "5.22"},
                    VersionFile{"empty", "", ""},
                    VersionFile{"longer", "5.21-something\nmore\n", "5.21-something"}),
    [](const auto& info) { return info.param.name; });

TEST(Bookkeeping, FirstStartMakesTheVersionFile) {
    Board board(benchScenario("small-unplugged"), 10);
    Application application(board);
    waitForCommands(application, board);
    EXPECT_EQ(application.out().all().at(0), "old version : 5.22");
    EXPECT_EQ(application.out().all().at(1), ready);
    EXPECT_EQ(support::readFile(board.rootPath("/userdata/version")), "5.22\n");
    EXPECT_EQ(support::readFile(board.folder() + "/commands"),
              "touch /userdata/version\necho 5.22> /userdata/version\nsync\n");
}

TEST(Bookkeeping, VersionFileThatIsAFolderLeavesTheRestRunning) {
    Board board(benchScenario("small-unplugged"), 10);
    std::filesystem::create_directory(board.rootPath("/userdata/version"));
    Application application(board);
    waitForCommands(application, board);
    EXPECT_EQ(application.out().all().at(0), "old version : ");
    EXPECT_EQ(application.err().size(), 1u)
        << "the shell's own words: " << application.err().text();
}

// The clock of the test runs ten times as fast.
TEST(Bookkeeping, TemperaturesComeEveryMinuteAndNotBefore) {
    Board board(benchScenario("small-unplugged"), 10);
    std::filesystem::remove(board.rootPath("/sys/class/thermal/thermal_zone1/temp"));
    support::writeFile(board.rootPath("/sys/class/thermal/thermal_zone0/temp"), "51234\n");
    Application application(board);
    const std::size_t next = application.expectLine(ready);
    const auto began = support::Clock::now();
    const std::size_t first = application.expectLine("cpu0:", Milliseconds(20000), next);
    const double waited_s = std::chrono::duration<double>(support::Clock::now() - began).count();
    EXPECT_GE(waited_s, 5.7);
    EXPECT_EQ(first, next + 1) << "something came before";
    application.expectLine("cpu1:", Milliseconds(5000), first);
    EXPECT_EQ(application.out().from(first), (Strings{"51234", "cpu1:"}));
    // A zone that does not exist is the shell's word, and no more.
    ASSERT_TRUE(application.err().waitForMatch("thermal_zone1", Milliseconds(5000)).has_value());
    EXPECT_EQ(application.err().size(), 1u) << application.err().text();
    std::istringstream commands(support::readFile(board.folder() + "/commands"));
    Strings lines;
    for (std::string line; std::getline(commands, line);) {
        lines.push_back(line);
    }
    ASSERT_EQ(lines.size(), 7u);
    EXPECT_EQ(Strings(lines.begin() + 3, lines.end()),
              (Strings{"echo cpu0: ", "cat /sys/class/thermal/thermal_zone0/temp",
                       "echo cpu1: ", "cat /sys/class/thermal/thermal_zone1/temp"}));
}

// Programs of the test's own are found before the system's.
class OwnPrograms {
  public:
    OwnPrograms() : folder_(support::makeTemporaryFolder("programs-")), path_(getenv("PATH")) {
        setenv("PATH", (folder_ + ":" + path_).c_str(), 1);
    }
    ~OwnPrograms() {
        setenv("PATH", path_.c_str(), 1);
        std::filesystem::remove_all(folder_);
    }
    OwnPrograms(const OwnPrograms&) = delete;
    OwnPrograms& operator=(const OwnPrograms&) = delete;

    void add(const std::string& name, const std::string& script) {
        support::writeFile(folder_ + "/" + name, "#!/bin/sh\n" + script);
        chmod((folder_ + "/" + name).c_str(), 0755);
    }

  private:
    std::string folder_, path_;
};

// What every program that this test starts gets to see from outside.
std::set<int> inheritedByAll() {
    std::set<int> numbers;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        const int number = std::stoi(entry.path().filename().string());
        if ((fcntl(number, F_GETFD) & FD_CLOEXEC) == 0) {
            numbers.insert(number);
        }
    }
    return numbers;
}

// While a pipeline plays, every device is open.
TEST(Bookkeeping, ShellCommandsInheritNoDevice) {
    OwnPrograms programs;
    programs.add(
        "cat",
        "for one in /proc/$$/fd/*; do echo ${one##*/} $(readlink $one); done > "
        "$VIRTUAL_BOARD/descriptors.$$\n"
        "mv $VIRTUAL_BOARD/descriptors.$$ $VIRTUAL_BOARD/descriptors\n"  // the next is near
        "echo 54321\n");
    Board board(benchScenario("tiny"), 10);
    Application application(board);
    application.expectPlaying();
    application.expectLine("54321", Milliseconds(30000));
    const std::set<int> known = inheritedByAll();
    std::istringstream list(support::readFile(board.folder() + "/descriptors"));
    unsigned seen = 0;
    int number = 0;
    for (std::string target; list >> number && std::getline(list, target); ++seen) {
        // Files and pipes are the shell's own.
        const bool device = target.find("socket:") != std::string::npos ||
                            target.find("anon_inode:") != std::string::npos ||
                            target.find("memfd:") != std::string::npos;
        EXPECT_TRUE(!device || known.count(number) == 1) << "inherited: " << number << target;
    }
    EXPECT_GE(seen, 3u);
}

}  // namespace
