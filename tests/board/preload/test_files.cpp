// Fixed paths that lead into the run folder, also in the shells that a program starts.
#include "tests/board/preload/fakeboard.h"
#include "tests/board/preload/run.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>

namespace {

std::string contentOf(const std::string& path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

class PreloadFiles : public ::testing::Test {
  protected:
    Result shell(const std::string& command) {
        return runClient(board_.folder(), {"sh", "-c", command});
    }
    std::string inRoot(const std::string& path) { return board_.root() + path; }

    fake::Board board_;
};

TEST_F(PreloadFiles, ShellWritesAndReads) {
    EXPECT_EQ(shell("echo 5.22> /userdata/version").code, 0);
    EXPECT_EQ(contentOf(inRoot("/userdata/version")), "5.22\n");
    EXPECT_EQ(shell("cat /userdata/version").out, "5.22\n");
    EXPECT_EQ(shell("cat /sys/class/thermal/thermal_zone0/temp").out, "41500\n");
    EXPECT_EQ(shell("cat /sys/dev/char/81:0/uevent").out, "DEVNAME=video0\n");
    const Result missing = shell("cat /sys/class/thermal/thermal_zone1/temp");
    EXPECT_NE(missing.code, 0);
    EXPECT_NE(missing.err.find("/sys/class/thermal/thermal_zone1/temp"), std::string::npos);
    EXPECT_FALSE(std::filesystem::exists("/userdata"));
}

TEST_F(PreloadFiles, ShellCommands) {
    EXPECT_EQ(shell("touch /userdata/version").code, 0);
    EXPECT_TRUE(std::filesystem::exists(inRoot("/userdata/version")));
    EXPECT_EQ(shell("mv /userdata/version /userdata/other").code, 0);
    EXPECT_FALSE(std::filesystem::exists(inRoot("/userdata/version")));
    EXPECT_EQ(shell("echo x > /userdata/other && cp /userdata/other /etc/uvc_param.conf").code, 0);
    EXPECT_EQ(contentOf(inRoot("/etc/uvc_param.conf")), "x\n");
    EXPECT_EQ(shell("ls /userdata").out, "other\n");
    EXPECT_EQ(shell("cd /userdata && ls -l other | cut -c1").out, "-\n");
    EXPECT_EQ(shell("test -e /userdata/other").code, 0);
    EXPECT_EQ(shell("test -e /userdata/version").code, 1);
    EXPECT_EQ(shell("mkdir /userdata/deep && rm /userdata/other && rm -r /userdata/deep").code, 0);
    EXPECT_TRUE(std::filesystem::is_empty(inRoot("/userdata")));
    EXPECT_EQ(shell("touch /usr/bin/updateStart && [ -f /usr/bin/updateStart ]").code, 0);
    EXPECT_TRUE(std::filesystem::exists(inRoot("/usr/bin/updateStart")));
    EXPECT_EQ(shell("sync").code, 0);
}

TEST_F(PreloadFiles, ShellCommandsAreWrittenDownAndDisksAreNotFlushed) {
    const Result result = runClient(board_.folder(), {CLIENT_PROGRAM, "commands"});
    EXPECT_EQ(result.code, 0) << result.err;
    EXPECT_EQ(contentOf(board_.folder() + "/commands"),
              "touch /userdata/mark\necho 5.22> /userdata/version\nsync; exit 7\n");
    EXPECT_EQ(contentOf(board_.folder() + "/kept"), "sync\nsync\n");
    EXPECT_TRUE(std::filesystem::exists(inRoot("/userdata/mark")));
    EXPECT_EQ(contentOf(inRoot("/userdata/version")), "5.22\n");
}

TEST_F(PreloadFiles, NamesThatOnlyBeginAlikeAreTheHosts) {
    std::filesystem::create_directories(inRoot("/userdata2"));
    std::ofstream(inRoot("/usr/bin/startupflagged"));
    EXPECT_NE(shell("touch /userdata2/file").code, 0);
    EXPECT_NE(shell("cat /usr/bin/startupflagged").code, 0);
    EXPECT_EQ(shell("cat /etc/hostname").out, contentOf("/etc/hostname"));
    EXPECT_EQ(shell("echo y > /etc/../userdata//./file").code, 0);
    EXPECT_EQ(contentOf(inRoot("/userdata/file")), "y\n");
}

TEST_F(PreloadFiles, NodesInTheShell) {
    EXPECT_EQ(shell("test -c /dev/video0").code, 0);
    EXPECT_EQ(shell("test -e /dev/video1").code, 1);
    EXPECT_EQ(shell("test -d /dev/dri").code, 0);
    EXPECT_EQ(shell("stat -c '%t:%T %i' /dev/dri/card0").out, "e2:0 1001\n");
}

}  // namespace
