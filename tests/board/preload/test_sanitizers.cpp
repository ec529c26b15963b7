// The library and the sanitizers of the program under test.
#include "tests/board/preload/fakeboard.h"
#include "tests/board/preload/run.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <thread>

namespace {

constexpr char threadOptions[] = "TSAN_OPTIONS=halt_on_error=0 exitcode=66";

TEST(PreloadSanitizers, PlantedRaceIsStillReported) {
    fake::Board board;
    for (const char* program : {RACES_SHARED, RACES_STATIC}) {
        const Result result = runClient(board.folder(), {program, "race"}, {threadOptions});
        EXPECT_EQ(result.code, 66) << program << "\n" << result.err;
        EXPECT_NE(result.err.find("data race"), std::string::npos) << program;
        EXPECT_NE(result.err.find("::shared'"), std::string::npos) << result.err;
    }
    EXPECT_GT(board.requests(), 1000u);
}

// Also with the helper thread for reports in it.
TEST(PreloadSanitizers, CleanProgramIsNotReported) {
    fake::Board board;
    for (const char* program : {RACES_SHARED, RACES_STATIC}) {
        board.page().dumpDone = 0;
        board.page().dumpRequest = 1u << 2 | board::wire::dumpLeaks;
        const std::string reports =
            "VIRTUAL_BOARD_REPORTS=" + std::filesystem::path(program).filename().string();
        const Result result =
            runClient(board.folder(), {program, "clean"}, {threadOptions, reports});
        EXPECT_EQ(result.code, 0) << program << "\n" << result.err;
        EXPECT_EQ(result.err, "");
        EXPECT_EQ(board.page().dumpDone, 1u);
    }
    EXPECT_GT(board.requests(), 1000u);
}

// A program that is running and is asked for reports.
class Reporter {
  public:
    Reporter(fake::Board& board, const std::string& program, const std::string& mode,
             const std::vector<std::string>& environment)
        : board_(board) {
        int pipes[2];
        if (::pipe2(pipes, O_CLOEXEC) != 0)
            return;
        end_ = pipes[1];
        const int input = pipes[0];
        thread_ = std::thread([=, &board] {
            std::vector<std::string> all = environment;
            all.push_back("VIRTUAL_BOARD_REPORTS=" +
                          std::filesystem::path(program).filename().string());
            const std::string command = "exec " + program + " " + mode + " < /proc/" +
                                        std::to_string(::getpid()) + "/fd/" + std::to_string(input);
            result_ = runClient(board.folder(), {"sh", "-c", command}, all);
        });
        input_ = input;
    }
    ~Reporter() { finish(); }

    // Only a program that is in its main has anything to report: it opens a device then.
    bool ask(std::uint32_t bits) {
        auto& page = board_.page();
        const std::uint32_t generation = (page.dumpRequest >> 2) + 1;
        if (!comes([&] { return board_.connections() > 0; }))
            return false;
        page.dumpRequest = generation << 2 | bits;
        return comes([&] { return page.dumpDone == generation; });
    }
    const Result& finish() {
        if (thread_.joinable()) {
            ::close(end_);
            thread_.join();
            ::close(input_);
        }
        return result_;
    }

  private:
    template <typename Condition>
    static bool comes(Condition condition) {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (!condition() && std::chrono::steady_clock::now() < end)
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        return condition();
    }

    fake::Board& board_;
    int end_ = -1;
    int input_ = -1;
    std::thread thread_;
    Result result_;
};

TEST(PreloadReports, LeaksOnOrder) {
    fake::Board board;
    Reporter leaking(board, REPORTER_LEAKS, "leak", {});
    ASSERT_TRUE(leaking.ask(board::wire::dumpLeaks));
    EXPECT_EQ(board.page().leakResult, 1u);
    const Result& result = leaking.finish();
    EXPECT_EQ(result.code, 0) << result.err;
    EXPECT_NE(result.err.find("12345 byte"), std::string::npos) << result.err;
}

TEST(PreloadReports, NoLeakNoReport) {
    fake::Board board;
    Reporter tidy(board, REPORTER_LEAKS, "tidy", {});
    ASSERT_TRUE(tidy.ask(board::wire::dumpLeaks));
    EXPECT_EQ(board.page().leakResult, 0u);
    EXPECT_EQ(tidy.finish().err, "");
}

TEST(PreloadReports, CoverageOnOrder) {
    fake::Board board;
    const std::string files = board.folder() + "/coverage";
    Reporter covered(board, REPORTER_COVERAGE, "tidy", {"GCOV_PREFIX=" + files});
    ASSERT_TRUE(covered.ask(board::wire::dumpCoverage));
    EXPECT_EQ(covered.finish().code, 0);
    unsigned found = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(files))
        found += entry.path().extension() == ".gcda" ? 1 : 0;
    EXPECT_EQ(found, 1u);
}

TEST(PreloadReports, OnlyTheNamedProgram) {
    fake::Board board;
    board.page().dumpRequest = 1u << 2 | board::wire::dumpLeaks;
    const Result result =
        runClient(board.folder(), {REPORTER_LEAKS, "leak"}, {"VIRTUAL_BOARD_REPORTS=another"});
    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(board.page().dumpDone, 0u);
}

}  // namespace
