// The two programs as a user starts them.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace boardtest {
namespace {

namespace fs = std::filesystem;

constexpr int patience_ms = 20000;

// A started program; what it writes to both outputs comes together.
class Program {
  public:
    explicit Program(std::vector<std::string> words) {
        int ends[2];
        if (::pipe2(ends, O_CLOEXEC) != 0)
            return;
        output_ = ends[0];
        std::vector<char*> arguments;
        for (std::string& word : words)
            arguments.push_back(word.data());
        arguments.push_back(nullptr);
        pid_ = ::fork();
        if (pid_ == 0) {
            ::dup2(ends[1], 1);
            ::dup2(ends[1], 2);
            ::execv(arguments[0], arguments.data());
            ::_exit(127);
        }
        ::close(ends[1]);
    }
    ~Program() {
        if (pid_ > 0) {
            ::kill(pid_, SIGKILL);
            ::waitpid(pid_, nullptr, 0);
        }
        ::close(output_);
    }
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    bool waitForText(const std::string& part) {
        while (text_.find(part) == std::string::npos)
            if (!readMore())
                return false;
        return true;
    }
    // Exit code, or -1 when it does not end or is killed by a signal.
    int end() {
        while (readMore()) {
        }
        int status = 0;
        if (!closed_ || ::waitpid(pid_, &status, 0) != pid_)
            return -1;
        pid_ = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    void signal(int number) { ::kill(pid_, number); }
    const std::string& text() const { return text_; }

  private:
    bool readMore() {
        pollfd watched{output_, POLLIN, 0};
        char piece[4096];
        if (::poll(&watched, 1, patience_ms) != 1)
            return false;
        const ssize_t bytes = ::read(output_, piece, sizeof piece);
        closed_ = bytes <= 0;
        if (!closed_)
            text_.append(piece, std::size_t(bytes));
        return !closed_;
    }
    pid_t pid_ = -1;
    int output_ = -1;
    bool closed_ = false;
    std::string text_;
};

std::string contentOf(const std::string& path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

class Programs : public testing::Test {
  protected:
    Programs() {
        std::string name = (fs::temp_directory_path() / "board-run-XXXXXX").string();
        if (::mkdtemp(name.data()) != nullptr)
            folder_ = name;
    }
    ~Programs() override { fs::remove_all(folder_); }

    static std::vector<std::string> board(const std::string& run, const std::string& scenario) {
        return {BOARD_PROGRAM, "--run", run, "--scenario", scenario, "--data", SCENARIO_FOLDER};
    }
    // Exit code of boardctl with these words; `text_` gets what it wrote.
    int ctl(std::vector<std::string> words) {
        words.insert(words.begin(), {CTL_PROGRAM, "--board", folder_});
        Program program(words);
        const int code = program.end();
        text_ = program.text();
        return code;
    }
    std::string folder_, text_;
};

TEST_F(Programs, BoardServesUntilTerminatedAndLeavesNothing) {
    Program daemon(board(folder_ + "/deep/run", "default"));
    ASSERT_TRUE(daemon.waitForText("ready " + folder_ + "/deep/run\n")) << daemon.text();
    EXPECT_TRUE(fs::exists(folder_ + "/deep/run/board.sock"));
    daemon.signal(SIGTERM);
    EXPECT_EQ(daemon.end(), 0) << daemon.text();
    for (const char* name : {"board.sock", "order.sock", "page", "lock"})
        EXPECT_FALSE(fs::exists(folder_ + "/deep/run/" + name)) << name;
}

TEST_F(Programs, SecondBoardInTheSameFolderIsRefused) {
    Program first(board(folder_, "default"));
    ASSERT_TRUE(first.waitForText("ready "));
    Program second(board(folder_, "default"));
    EXPECT_EQ(second.end(), 1);
    EXPECT_EQ(second.text(),
              "virtual-board: " + folder_ + ": a virtual board runs in this folder already\n");
    EXPECT_EQ(ctl({"state"}), 0) << "the first one is still there";
    first.signal(SIGINT);
    EXPECT_EQ(first.end(), 0);
}

TEST_F(Programs, FolderOfAKilledBoardIsUsedAgain) {
    {
        Program killed(board(folder_, "default"));
        ASSERT_TRUE(killed.waitForText("ready "));
        killed.signal(SIGKILL);
        EXPECT_EQ(killed.end(), -1);
    }
    EXPECT_TRUE(fs::exists(folder_ + "/board.sock"));
    Program next(board(folder_, "default"));
    EXPECT_TRUE(next.waitForText("ready ")) << next.text();
    EXPECT_EQ(ctl({"quit"}), 0);
    EXPECT_EQ(next.end(), 0);
}

TEST_F(Programs, FolderNameLongerThanASocketsName) {
    const std::string deep = folder_ + "/" + std::string(120, 'x');
    Program daemon(board(deep, "default"));
    ASSERT_TRUE(daemon.waitForText("ready ")) << daemon.text();
    Program order({CTL_PROGRAM, "--board", deep, "quit"});
    EXPECT_EQ(order.end(), 0) << order.text();
    EXPECT_EQ(daemon.end(), 0);
    EXPECT_FALSE(fs::exists(deep + "/board.sock"));
}

TEST_F(Programs, FixedPathsAreFilledOnceAndThenStay) {
    const std::string root = folder_ + "/root";
    {
        Program daemon(board(folder_, "after-upgrade"));
        ASSERT_TRUE(daemon.waitForText("ready ")) << daemon.text();
        EXPECT_EQ(contentOf(root + "/userdata/version"), "5.21\n");
        EXPECT_EQ(contentOf(root + "/userdata/updateSuceedFlag"), "");
        EXPECT_TRUE(fs::exists(root + "/userdata/updateSuceedFlag"));
        EXPECT_EQ(contentOf(root + "/sys/class/thermal/thermal_zone1/temp"), "43500\n");
        for (const char* name : {"startUpVersion_brivant.bin", "readyUpgradeDone_brivant.bin"})
            EXPECT_EQ(fs::file_size(root + "/usr/bin/" + name), 1920u * 1080 * 3);
        fs::remove(root + "/userdata/updateSuceedFlag");
        EXPECT_EQ(ctl({"quit"}), 0);
        EXPECT_EQ(daemon.end(), 0);
    }
    Program again(board(folder_, "after-upgrade"));
    ASSERT_TRUE(again.waitForText("ready ")) << again.text();
    EXPECT_FALSE(fs::exists(root + "/userdata/updateSuceedFlag"));
    EXPECT_TRUE(fs::exists(root + "/userdata/version"));
}

TEST_F(Programs, BadCommandLineIsOneLine) {
    const std::vector<std::vector<std::string>> lines = {
        board(folder_, "no-such-scenario"),
        {BOARD_PROGRAM},
        {BOARD_PROGRAM, "--run"},
        {BOARD_PROGRAM, "--dance"},
        {BOARD_PROGRAM, "--run", folder_, "--scenario", "default", "extra"},
        {BOARD_PROGRAM, "--run", folder_, "--scenario", "default", "--speed", "11"},
        board("/proc/nothing", "default"),
    };
    for (const auto& words : lines) {
        Program program(words);
        EXPECT_EQ(program.end(), 1) << program.text();
        const std::string& text = program.text();
        EXPECT_EQ(text.rfind("virtual-board: ", 0), 0u) << text;
        EXPECT_EQ(text.find('\n'), text.size() - 1) << text;
    }
}

TEST_F(Programs, BoardctlExitCodes) {
    EXPECT_EQ(ctl({"help"}), 0);
    EXPECT_NE(text_.find("unplug DEVICE"), std::string::npos);
    EXPECT_EQ(ctl({"dance"}), 2);
    EXPECT_EQ(text_, "boardctl: unknown order \"dance\"; boardctl help lists them\n");
    EXPECT_EQ(ctl({"fail", "VIDIOC_DQBUF"}), 2);
    EXPECT_EQ(text_, "boardctl: usage: boardctl fail IOCTL NTH ERRNO [COUNT]\n");
    EXPECT_EQ(ctl({"state"}), 1) << "no board";
    Program daemon(board(folder_, "default"));
    ASSERT_TRUE(daemon.waitForText("ready "));
    EXPECT_EQ(ctl({"state"}), 0);
    EXPECT_NE(text_.find("cameraNode: /dev/video0\n"), std::string::npos) << text_;
    EXPECT_EQ(ctl({"figures"}), 0);
    EXPECT_NE(text_.find("camera.delivered: 0\n"), std::string::npos) << text_;
    EXPECT_EQ(ctl({"fail", "VIDIOC_DQBUF", "3", "EIO"}), 0);
    EXPECT_EQ(text_, "done\n");
    EXPECT_EQ(ctl({"clock-step", "-3600000"}), 0);
    EXPECT_EQ(ctl({"plug", "camera"}), 1);
    EXPECT_EQ(text_, "boardctl: the camera is plugged in already, at /dev/video0\n");
    EXPECT_EQ(ctl({"unpark", "all"}), 0);
    Program raw({CTL_PROGRAM, "--json", "--board", folder_, "parks"});
    EXPECT_EQ(raw.end(), 0);
    EXPECT_EQ(raw.text(), "{\"ok\": true, \"parks\": []}\n");
    EXPECT_EQ(ctl({"picture", folder_ + "/screen.png"}), 0) << text_;
    EXPECT_TRUE(fs::exists(folder_ + "/screen.png"));
    EXPECT_EQ(ctl({"quit"}), 0);
    EXPECT_EQ(daemon.end(), 0);
}

}  // namespace
}  // namespace boardtest
