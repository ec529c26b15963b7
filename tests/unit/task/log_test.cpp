#include "control/task/logline.h"
#include "control/task/taskbase.h"
#include "control/task/uniquefd.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <regex.h>
#include <unistd.h>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <thread>
#include <vector>

using testing::internal::CaptureStderr;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStderr;
using testing::internal::GetCapturedStdout;

namespace {

// A file of the test's own, removed with it.
class TemporaryFile {
  public:
    explicit TemporaryFile(const std::string& text) {
        char name[] = "/tmp/uvcbridge-test-XXXXXX";
        const UniqueFd file(mkstemp(name));
        path = name;
        std::ofstream(path) << text;
    }
    ~TemporaryFile() { unlink(path.c_str()); }
    std::string path;
};

// POSIX, whole text: the standard library's expressions do not compile free of warnings under the
// address sanitizer.
bool matches(const std::string& text, const std::string& pattern) {
    regex_t expression;
    if (regcomp(&expression, ("^" + pattern + "$").c_str(), REG_EXTENDED | REG_NOSUB) != 0) {
        ADD_FAILURE() << "no expression: " << pattern;
        return false;
    }
    const bool found = regexec(&expression, text.c_str(), 0, nullptr, 0) == 0;
    regfree(&expression);
    return found;
}

std::string debugMemOf(const std::string& path) {
    CaptureStdout();
    TaskBase::debugMem(path);
    return GetCapturedStdout();
}

}  // namespace

TEST(LogLine, ComposesItsPiecesWithALineEnd) {
    CaptureStdout();
    logOut("fps:", 60, " half ", 0.5);
    EXPECT_EQ(GetCapturedStdout(), "fps:60 half 0.5\n");
    CaptureStderr();
    logErr("Cannot open '", "/dev/video0", "'");
    EXPECT_EQ(GetCapturedStderr(), "Cannot open '/dev/video0'\n");
}

TEST(LogLine, WritesAZeroByte) {
    CaptureStdout();
    writeOut(std::string_view("\0 conn_id", 9));
    EXPECT_EQ(GetCapturedStdout(), std::string("\0 conn_id", 9));
}

TEST(LogLine, IsOutBeforeTheCallReturns) {
    TemporaryFile file("");
    const UniqueFd before(dup(STDOUT_FILENO));
    const UniqueFd target(open(file.path.c_str(), O_WRONLY | O_CLOEXEC));
    dup2(target.get(), STDOUT_FILENO);
    logOut("seen at once");
    std::string text;
    std::getline(std::ifstream(file.path), text);
    dup2(before.get(), STDOUT_FILENO);
    EXPECT_EQ(text, "seen at once");
}

TEST(LogLine, LinesOfDifferentThreadsDoNotMix) {
    CaptureStdout();
    std::vector<std::thread> threads;
    for (char letter = 'a'; letter < 'e'; ++letter) {
        threads.emplace_back([letter] {
            for (int i = 0; i < 200; ++i) {
                logOut(std::string(20, letter), ' ', std::string(20, letter));
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    std::istringstream lines(GetCapturedStdout());
    int count = 0;
    for (std::string line; std::getline(lines, line); ++count) {
        const std::string half(20, line.empty() ? '?' : line[0]);
        ASSERT_EQ(line, half + ' ' + half);
    }
    EXPECT_EQ(count, 800);
}

TEST(DebugMem, PrintsTheWordAfterTheLabel) {
    const TemporaryFile status("Name:\tdisplay\nVmRSSx: 1 kB\nVmRSS:\t   12345 kB\nVmRSS: 7 kB\n");
    EXPECT_EQ(debugMemOf(status.path), "hw memory[12345]\n");
}

TEST(DebugMem, PrintsNothingWithoutTheLabelOrTheFile) {
    const TemporaryFile status("Name:\tdisplay\nVmSize:\t 12345 kB\n");
    EXPECT_EQ(debugMemOf(status.path), "");
    const TemporaryFile cut("VmRSS:");
    EXPECT_EQ(debugMemOf(cut.path), "");
    EXPECT_EQ(debugMemOf("/nonexistent/status"), "");
}

TEST(DebugMem, FindsThisProcess) {
    CaptureStdout();
    TaskBase::debugMem();
    EXPECT_TRUE(matches(GetCapturedStdout(), "hw memory\\[[1-9][0-9]*\\]\n"));
}

TEST(DebugDiffTime, PrintsTheTimeSinceTheLastCall) {
    CaptureStdout();
    TaskBase::debugDiffTime_ms(0, "silent ");
    EXPECT_EQ(GetCapturedStdout(), "");
    TaskBase::lastTime.tv_sec -= 3;
    CaptureStdout();
    TaskBase::debugDiffTime_ms(1, "frame ");
    const std::string milliseconds = GetCapturedStdout();
    // Ten significant digits, the decimal point always there.
    EXPECT_TRUE(matches(milliseconds, "frame diff ms : 3[0-9]{3}\\.[0-9]{6}\n")) << milliseconds;
    TaskBase::lastTime.tv_sec -= 3;
    CaptureStdout();
    TaskBase::debugDiffTime_ns(1);
    const std::string microseconds = GetCapturedStdout();
    EXPECT_TRUE(matches(microseconds, "diff ns : 3[0-9]{6}\n")) << microseconds;
    CaptureStdout();
    TaskBase::debugDiffTime_ns(0);
    EXPECT_EQ(GetCapturedStdout(), "");
}

TEST(DebugDiffTime, EveryNewTaskStartsTheTime) {
    TaskBase::lastTime = timeval{};
    const TaskBase task;
    EXPECT_GT(TaskBase::lastTime.tv_sec + TaskBase::lastTime.tv_usec, 0);
}
