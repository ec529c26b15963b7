// The version file, the upgrade marker and the temperatures, without a second passing.
#include "control/supervise/updatecontrol.h"

#include "control/display/displaydrm.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <functional>
#include <ostream>
#include <string>
#include <type_traits>
#include <vector>

namespace {

using Strings = std::vector<std::string>;

struct Surroundings {
    std::string folder;  // stands for the root of the file system
    Strings commands;
    std::vector<long> sleeps_ms;
    std::function<void()> onSleep = [] {};
    int upgradeScreens = 0;
    int commandResult = 0;
};

Surroundings around;

const Strings temperatureCommands = {"echo cpu0: ", "cat /sys/class/thermal/thermal_zone0/temp",
                                     "echo cpu1: ", "cat /sys/class/thermal/thermal_zone1/temp"};

bool isMapped(const char* path) {
    const std::string text = path;
    return text.rfind("/userdata/", 0) == 0 || text.rfind("/usr/bin/", 0) == 0;
}

}  // namespace

extern "C" {

// The watch loop is run by the tests themselves.
int __wrap_pthread_create(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*) {
    return EAGAIN;
}

int __wrap_nanosleep(const timespec* length, timespec*) {
    around.sleeps_ms.push_back(length->tv_sec * 1000 + length->tv_nsec / 1000000);
    around.onSleep();
    return 0;
}

int __real_access(const char* path, int mode);
int __wrap_access(const char* path, int mode) {
    return __real_access(isMapped(path) ? (around.folder + path).c_str() : path, mode);
}

int __real_open(const char* path, int flags, ...);
int __wrap_open(const char* path, int flags, ...) {
    return __real_open(isMapped(path) ? (around.folder + path).c_str() : path, flags, 0666);
}

int __wrap_system(const char* command) {
    around.commands.emplace_back(command);
    errno = EAGAIN;
    return around.commandResult;
}

}  // extern "C"

void DisplayDrm::startUpgradeScreen() {
    ++around.upgradeScreens;
}

namespace {

class Bookkeeping : public testing::Test {
  protected:
    void SetUp() override {
        around = Surroundings();
        char name[] = "/tmp/bookkeeping-XXXXXX";
        around.folder = mkdtemp(name);
        std::filesystem::create_directories(around.folder + "/userdata");
        std::filesystem::create_directories(around.folder + "/usr/bin");
        UpdateControl::version.clear();
        UpdateControl::lastVersion.clear();
    }
    void TearDown() override { std::filesystem::remove_all(around.folder); }

    static void write(const std::string& path, const std::string& content) {
        std::ofstream(around.folder + path, std::ios::binary) << content;
    }
    // What making the object prints.
    static std::string start() {
        testing::internal::CaptureStdout();
        { UpdateControl made; }
        return testing::internal::GetCapturedStdout();
    }
    // The watch loop for so many rounds; `eachRound` is told the number of the round (from 1) in
    // the round's sleep. What it prints.
    static std::string watch(
        int rounds, const std::function<void(int)>& eachRound = [](int) {}) {
        testing::internal::CaptureStdout();
        UpdateControl control;
        around.commands.clear();
        around.sleeps_ms.clear();
        int round = 0;
        around.onSleep = [&] {
            eachRound(++round);
            if (round == rounds) {
                control.close();
            }
        };
        control.svc();
        around.onSleep = [] {};
        const std::string out = testing::internal::GetCapturedStdout();
        EXPECT_EQ(around.sleeps_ms, std::vector<long>(static_cast<std::size_t>(rounds), 1000));
        return out.substr(out.rfind("version : 5.22\n") + 15);
    }
};

TEST_F(Bookkeeping, AFirstStartCountsAsNoChange) {
    EXPECT_EQ(start(), "old version : 5.22\nversion : 5.22\n");
    EXPECT_EQ(around.commands,
              (Strings{"touch /userdata/version", "echo 5.22> /userdata/version", "sync"}));
    EXPECT_EQ(UpdateControl::version, "5.22");
    EXPECT_EQ(UpdateControl::lastVersion, "5.22");
    EXPECT_EQ(around.sleeps_ms, std::vector<long>{1000});
}

struct OldFile {
    const char* name;
    std::string content, read;
};

void PrintTo(const OldFile& one, std::ostream* out) {
    *out << one.name;
}

class BookkeepingOldFile : public Bookkeeping, public testing::WithParamInterface<OldFile> {};

TEST_P(BookkeepingOldFile, ItsFirstLineIsTheOldVersion) {
    write("/userdata/version", GetParam().content);
    EXPECT_EQ(start(), "old version : " + GetParam().read + "\nversion : 5.22\n");
    EXPECT_EQ(UpdateControl::lastVersion, GetParam().read);
    EXPECT_EQ(UpdateControl::version, "5.22");
    EXPECT_EQ(around.commands, (Strings{"echo 5.22> /userdata/version", "sync"}));
}

INSTANTIATE_TEST_SUITE_P(
    Contents, BookkeepingOldFile,
    testing::Values(OldFile{"older", "5.21\n", "5.21"}, OldFile{"same", "5.22\n", "5.22"},
                    OldFile{"empty", "", ""}, OldFile{"emptyLine", "\n5.21\n", ""},
                    OldFile{"noEnd", "5.20", "5.20"}, OldFile{"moreLines", "5.1 \nx\n", "5.1 "},
                    OldFile{"zeroByte", std::string("5\0x\n", 4), std::string("5\0x", 3)},
                    OldFile{"endless", std::string(100000, '7'), std::string(255, '7')}),
    [](const auto& info) { return info.param.name; });

TEST_F(Bookkeeping, AVersionFileThatCannotBeReadLeavesItEmpty) {
    std::filesystem::create_directory(around.folder + "/userdata/version");
    EXPECT_EQ(start(), "old version : \nversion : 5.22\n");
    EXPECT_EQ(UpdateControl::lastVersion, "");
}

TEST_F(Bookkeeping, APipeInPlaceOfTheVersionFileIsNotWaitedFor) {
    ASSERT_EQ(mkfifo((around.folder + "/userdata/version").c_str(), 0666), 0);
    EXPECT_EQ(start(), "old version : \nversion : 5.22\n");
}

TEST_F(Bookkeeping, ACommandThatCannotRunIsOneLineAndNoMore) {
    around.commandResult = -1;
    testing::internal::CaptureStderr();
    EXPECT_EQ(start(), "old version : 5.22\nversion : 5.22\n");
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "shell: cannot run 'touch /userdata/version': 11, Resource temporarily unavailable\n"
              "shell: cannot run 'echo 5.22> /userdata/version': 11, Resource temporarily "
              "unavailable\n"
              "shell: cannot run 'sync': 11, Resource temporarily unavailable\n");
}

TEST_F(Bookkeeping, EndsWithItsLineWhenItIsStopped) {
    EXPECT_EQ(watch(1), "UpdateControlsvc normal stop!\n");
    EXPECT_TRUE(around.commands.empty());
}

TEST_F(Bookkeeping, TemperaturesComeEverySixtyRounds) {
    watch(59);
    EXPECT_TRUE(around.commands.empty());
    watch(60);
    EXPECT_EQ(around.commands, temperatureCommands);
    watch(119);
    EXPECT_EQ(around.commands, temperatureCommands);
    watch(120);
    EXPECT_EQ(around.commands.size(), 8U);
}

TEST_F(Bookkeeping, AnUpgradeIsToldToTheDisplayWithinARound) {
    std::vector<int> told;
    watch(5, [&](int round) {
        told.push_back(around.upgradeScreens);
        if (round == 2) {
            write("/usr/bin/updateStart", "");
        }
        if (round == 4) {
            std::filesystem::remove(around.folder + "/usr/bin/updateStart");
        }
    });
    EXPECT_EQ(told, (std::vector<int>{0, 0, 1, 2, 2}));
}

TEST_F(Bookkeeping, OwnsTheVersionTexts) {
    EXPECT_TRUE((std::is_base_of_v<TaskBase, UpdateControl>));
    EXPECT_EQ(&UpdateControl::version, &VersionText::version);
}

}  // namespace
