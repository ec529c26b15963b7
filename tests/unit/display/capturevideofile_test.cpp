// The frame dump ends its process, so it runs in one of its own.
#include "control/display/capturevideofile.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>

namespace {

constexpr int cameBack = 42;

struct Dump {
    int status = 0;
    std::string out, err, file;
};

std::string contentOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

// Runs `work` in a process with a new working folder.
Dump run(
    const std::function<void()>& work, const std::function<void()>& prepare = [] {}) {
    char folder[] = "/tmp/dump-XXXXXX";
    EXPECT_NE(mkdtemp(folder), nullptr);
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        if (chdir(folder) != 0 || std::freopen("out", "w", stdout) == nullptr ||
            std::freopen("err", "w", stderr) == nullptr) {
            _exit(99);
        }
        prepare();
        atexit([] { std::ofstream("exit-handler-ran") << "x"; });
        work();
        std::fflush(nullptr);
        _exit(cameBack);
    }
    Dump dump;
    EXPECT_EQ(waitpid(child, &dump.status, 0), child);
    const std::string place = folder;
    dump.out = contentOf(place + "/out");
    dump.err = contentOf(place + "/err");
    if (std::filesystem::is_regular_file(place + "/capture")) {
        dump.file = contentOf(place + "/capture");
    }
    EXPECT_FALSE(std::filesystem::exists(place + "/exit-handler-ran"));
    std::filesystem::remove_all(folder);
    return dump;
}

// The results of the calls that come back, one digit each, go to the log as well.
void dumpFrames(int count, int limit) {
    for (int i = 0; i < count; ++i) {
        char frame[] = {'f', static_cast<char>('0' + i), '\0', '\n'};
        std::printf("%d\n", captureVideoFile(frame, sizeof(frame), limit));
    }
}

TEST(FrameDump, ALimitOfOneEndsAfterTheFirstFrame) {
    const Dump dump = run([] { dumpFrames(2, 1); });
    EXPECT_TRUE(WIFEXITED(dump.status));
    EXPECT_EQ(WEXITSTATUS(dump.status), 0);
    EXPECT_EQ(dump.file, std::string("f0\0\n", 4));
    EXPECT_EQ(dump.out, "write size = 4\n");
}

TEST(FrameDump, CountsUntilTheLimit) {
    const Dump dump = run([] { dumpFrames(5, 3); });
    EXPECT_EQ(WEXITSTATUS(dump.status), 0);
    EXPECT_EQ(dump.file, std::string("f0\0\nf1\0\nf2\0\n", 12));
    EXPECT_EQ(dump.out, "write size = 4\n1\nwrite size = 4\n2\nwrite size = 4\n");
}

TEST(FrameDump, ComesBackBelowTheLimit) {
    const Dump dump = run([] { dumpFrames(2, 3); });
    EXPECT_EQ(WEXITSTATUS(dump.status), cameBack);
    EXPECT_EQ(dump.out, "write size = 4\n1\nwrite size = 4\n2\n");
}

TEST(FrameDump, AnOlderFileIsReplaced) {
    const Dump dump = run([] { dumpFrames(1, 1); },
                          [] { std::ofstream("capture") << "a longer file than the new one"; });
    EXPECT_EQ(dump.file, std::string("f0\0\n", 4));
}

TEST(FrameDump, AFileThatCannotBeMadeIsOneLineAndTheCountGoesOn) {
    const Dump dump =
        run([] { dumpFrames(3, 2); }, [] { std::filesystem::create_directory("capture"); });
    EXPECT_EQ(WEXITSTATUS(dump.status), 0);
    EXPECT_EQ(dump.out, "write size = 4\n1\nwrite size = 4\n");
    EXPECT_EQ(dump.err, "capture: cannot create ./capture: 21, Is a directory\n");
}

TEST(FrameDump, SizesThatAreNoneWriteNothing) {
    const Dump dump = run([] {
        char frame[] = "x";
        captureVideoFile(frame, 0, 3);
        captureVideoFile(nullptr, -5, 3);
        captureVideoFile(frame, 1, 3);
    });
    EXPECT_EQ(dump.file, "x");
    EXPECT_EQ(dump.out, "write size = 0\nwrite size = -5\nwrite size = 1\n");
}

}  // namespace
