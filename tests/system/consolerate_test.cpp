// What the live picture costs the application: nothing that could be seen.

#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <thread>

#include "tests/support/console.h"
#include "tests/support/httpclient.h"
#include "tests/support/lateness.h"
#include "tests/support/scenarios.h"

namespace {

using namespace support;

constexpr unsigned fps = 30;
constexpr double displayPeriod_ms = 1000.0 / 60;
constexpr int attempts = 6;
constexpr unsigned wantedRate = 25;

// Reads the live picture on a thread of its own, as a client that is no browser.
class Viewer {
  public:
    explicit Viewer(unsigned short port) : stream_(port) {
        stream_.send(getRequest(port, "/live/screen.mjpeg"));
        EXPECT_EQ(stream_.readHead().status, 200);
        thread_ = std::thread([this] { run(); });
    }
    ~Viewer() {
        stop_ = true;
        thread_.join();
    }

    unsigned pictures() const { return pictures_; }
    bool waitForPictures(unsigned count) const {
        const auto deadline = Clock::now() + scaled(Milliseconds(20000));
        while (pictures_ < count && Clock::now() < deadline)
            std::this_thread::sleep_for(Milliseconds(5));
        return pictures_ >= count;
    }
    unsigned backwards() const { return backwards_; }
    unsigned wrongSizes() const { return wrongSizes_; }

  private:
    void run() {
        long last = -1;
        while (!stop_) {
            const HttpAnswer part = readPart(stream_, Milliseconds(500));
            const auto frame = part.headers.find("x-frame");
            if (part.body.empty() || frame == part.headers.end())
                continue;
            const long number = std::stol(frame->second);
            // The last one comes again when nothing new does.
            backwards_ += number < last ? 1 : 0;
            wrongSizes_ += part.headers.at("x-size") == "1920x1080" ? 0 : 1;
            pictures_ += number != last ? 1 : 0;
            last = number;
        }
    }

    HttpConnection stream_;
    std::atomic<bool> stop_{false};
    std::atomic<unsigned> pictures_{0}, backwards_{0}, wrongSizes_{0};
    std::thread thread_;
};

struct Part {
    std::uint64_t lost = 0, skipped = 0, shown = 0;
    double p95_ms = 0, median_ms = 0, took_s = 0, consoleCpu_s = 0;
};

void measure(Board& board, Console& console, unsigned seconds, Part& part) {
    board.resetFigures();
    const CameraFigures before = board.camera();
    const double cpu = console.process().figures().cpu_s;
    const auto began = Clock::now();
    ASSERT_TRUE(board.waitForCamera(
        [&](const CameraFigures& now) {
            return now.delivered >= before.delivered + std::uint64_t(fps) * seconds;
        },
        Milliseconds(seconds * 3000)));
    const DisplayFigures display = board.display();
    part.lost += board.camera().lost - before.lost;
    part.skipped += display.skipped;
    part.shown += display.shown;
    part.p95_ms = std::max(part.p95_ms, display.latencyP95_ms);
    part.median_ms = std::max(part.median_ms, display.latencyMedian_ms);
    part.took_s += std::chrono::duration<double>(Clock::now() - began).count();
    part.consoleCpu_s += console.process().figures().cpu_s - cpu;
}

struct Compared {
    Part alone, watched;
    unsigned pictures = 0;
    double lateness_ms = 0;
    double away = 0;  // LatenessProbe::away()

    double rate() const { return pictures / watched.took_s; }
    bool flawless() const {
        return watched.lost == 0 && watched.skipped == 0 &&
               watched.p95_ms <= alone.p95_ms + displayPeriod_ms && rate() >= wantedRate;
    }
};

// Alternating, so that a change of the machine's mood meets both.
void compare(Board& board, Console& console, Compared& result) {
    const unsigned seconds = longRun() ? 15 : 3;
    const LatenessProbe probe;
    result = {};
    for (int turn = 0; turn < 2; ++turn) {
        ASSERT_NO_FATAL_FAILURE(measure(board, console, seconds, result.alone));
        Viewer viewer(console.port());
        ASSERT_TRUE(viewer.waitForPictures(1));
        const unsigned before = viewer.pictures();
        ASSERT_NO_FATAL_FAILURE(measure(board, console, seconds, result.watched));
        result.pictures += viewer.pictures() - before;
        EXPECT_EQ(viewer.backwards(), 0u) << "frame numbers must rise";
        EXPECT_EQ(viewer.wrongSizes(), 0u);
    }
    result.lateness_ms = probe.worst_ms();
    result.away = probe.away();
    std::printf(
        "alone: median %.1f ms, p95 %.1f ms, lost %llu, skipped %llu; watched: median %.1f ms, "
        "p95 %.1f ms, lost %llu, skipped %llu; %.1f pictures/s, console %.0f %% of a core (%.0f %% "
        "alone), machine late by %.1f ms at most and away for %.0f %% of the time\n",
        result.alone.median_ms, result.alone.p95_ms, (unsigned long long)result.alone.lost,
        (unsigned long long)result.alone.skipped, result.watched.median_ms, result.watched.p95_ms,
        (unsigned long long)result.watched.lost, (unsigned long long)result.watched.skipped,
        result.rate(), 100 * result.watched.consoleCpu_s / result.watched.took_s,
        100 * result.alone.consoleCpu_s / result.alone.took_s, result.lateness_ms,
        result.away * 100);
}

// A flaw counts at once where the machine kept time; where it did not, the measurement is repeated.
TEST(ConsoleRate, TheLivePictureCostsTheApplicationNothing) {
    Board board(benchScenario("full-30"));
    Application application(board);
    application.expectPlaying();
    Console console(board);
    ASSERT_TRUE(board.waitForDisplay([](const auto& now) { return now.shown >= fps; },
                                     Milliseconds(20000)));
    Compared result;
    for (int attempt = 0; attempt < attempts; ++attempt) {
        ASSERT_NO_FATAL_FAILURE(compare(board, console, result));
        if (result.flawless() || result.lateness_ms <= tolerableLateness_ms)
            break;
    }
    if (!result.flawless() && result.away >= unusableAway) {
        GTEST_SKIP() << notJudged(result.away);
    }
    EXPECT_EQ(result.watched.lost, 0u) << "frames for which no buffer was queued";
    EXPECT_EQ(result.watched.skipped, 0u);
    EXPECT_LE(result.watched.p95_ms, result.alone.p95_ms + displayPeriod_ms);
    EXPECT_GE(result.rate(), wantedRate);
}

}  // namespace
