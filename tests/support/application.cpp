#include "tests/support/application.h"

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <set>

#include "board/console/loglines.h"
#include "tests/support/client.h"

namespace support {

const std::vector<std::string> pipelineThreads = {
    "CaptureMedia", "Decoder_Rawvide", "Decoder_MJPEG_M", "Decoder_H264_MP", "ShowControl",
    "Captureaudio", "PlaybackAudio",   "resamplePlay",    "ObsBot"};

namespace {

constexpr char leakCheckProgram[] = "uvcbridge";

Process::Start startOf(const Board& board, const std::string& reportPrefix) {
    Process::Start start;
    start.command = {applicationPath()};
    start.environment = boardEnvironment(board);
    start.environment["VIRTUAL_BOARD_REPORTS"] = leakCheckProgram;
    const std::string place = "log_path=" + reportPrefix;
    // Its memory is asked for on order, because the program never ends by itself.
    start.environment["ASAN_OPTIONS"] = place + ".asan:detect_leaks=1:leak_check_at_exit=0";
    start.environment["UBSAN_OPTIONS"] = place + ".ubsan:print_stacktrace=1";
    start.environment["TSAN_OPTIONS"] = place + ".tsan:second_deadlock_stack=1";
    start.folder = board.folder();
    return start;
}

std::string reportFolder(const Board& board) {
    const std::string folder = board.folder() + "/reports";
    std::filesystem::create_directories(folder);
    return folder + "/report";
}

}  // namespace

Application::Application(Board& board)
    : board_(board), reportPrefix_(reportFolder(board)), process_(startOf(board, reportPrefix_)) {}

Application::~Application() {
    end();
}

void Application::checkLeaks() {
    if (sanitizer() != "address") {
        return;
    }
    const rapidjson::Document answer = board_.order(R"({"order":"leak-check"})");
    EXPECT_TRUE(answer.HasMember("leaks") && answer["leaks"].IsFalse()) << "memory was leaked";
}

void Application::checkReports() {
    for (const auto& file :
         std::filesystem::directory_iterator(std::filesystem::path(reportPrefix_).parent_path())) {
        ADD_FAILURE() << "a sanitizer reported:\n" << readFile(file.path());
    }
}

void Application::checkLines(const Lines& log) {
    static const auto known = board::console::LogLines::fromFile(sourcePath("docs/log-lines.md"));
    std::set<std::string> unknown;
    const std::vector<std::string> lines = log.all();
    // The last one may have been cut short by the signal.
    for (std::size_t i = 0; i + 1 < lines.size(); ++i) {
        if (!lines[i].empty() && !known.find(lines[i])) {
            unknown.insert(lines[i]);
        }
    }
    for (const std::string& line : unknown) {
        ADD_FAILURE() << "docs/log-lines.md does not have the line \"" << line << "\"";
    }
}

void Application::end() {
    if (ended_) {
        return;
    }
    ended_ = true;
    if (process_.running()) {
        checkLeaks();
    }
    process_.signal(SIGTERM);
    const std::optional<int> status = process_.waitForEnd(Milliseconds(10000));
    EXPECT_TRUE(status.has_value()) << "the application does not end on SIGTERM";
    EXPECT_TRUE(status && WIFSIGNALED(*status) && WTERMSIG(*status) == SIGTERM)
        << "the application ended by itself: " << describeStatus(status.value_or(-1)) << "\n"
        << err().text();
    checkReports();
    checkLines(out());
    checkLines(err());
    if (testing::Test::HasFailure()) {
        writeFile(board_.folder() + "/application.out", out().text());
        writeFile(board_.folder() + "/application.err", err().text());
    }
}

std::size_t Application::expectLine(const std::string& line, Milliseconds patience,
                                    std::size_t from) {
    const std::optional<std::size_t> index = out().waitForExactly(line, patience, from);
    EXPECT_TRUE(index.has_value()) << "\"" << line << "\" did not come; the log:\n"
                                   << out().text() << "standard error:\n"
                                   << err().text();
    return index ? *index + 1 : out().size();
}

std::size_t Application::expectPlaying(std::size_t from) {
    return expectLine("statue: STATUE_POOL_OPENDEVICE ==> STATUE_POOL_PLAY", Milliseconds(10000),
                      from);
}

bool Application::waitForPipelineGone(Milliseconds patience) {
    const auto deadline = Clock::now() + scaled(patience);
    for (;;) {
        const std::vector<std::string> names = process_.threadNames();
        const bool left = std::any_of(names.begin(), names.end(), [](const std::string& name) {
            return std::count(pipelineThreads.begin(), pipelineThreads.end(), name) != 0;
        });
        if (!left || Clock::now() > deadline) {
            return !left;
        }
        // Threads that end can only be looked for.
        std::this_thread::sleep_for(Milliseconds(5));
    }
}

}  // namespace support
