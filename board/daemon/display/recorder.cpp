#include "board/daemon/display/recorder.h"

#include "board/daemon/jobworker.h"

#include <algorithm>
#include <utility>

namespace board {

namespace {

constexpr std::int64_t pictureInterval_ns = 1000000000 / 30;

}  // namespace

Recorder::Recorder(const std::string& path, std::uint32_t width, std::uint32_t height,
                   std::string* problem)
    : file_(path, width, height) {
    *problem = file_.create();
    if (problem->empty())
        thread_ = std::thread([this] { work(); });
}

Recorder::~Recorder() {
    if (!thread_.joinable())
        return;
    {
        const std::lock_guard<std::mutex> guard(lock_);
        stopping_ = true;
    }
    changed_.notify_one();
    thread_.join();
}

void Recorder::offer(const ScreenView& view, std::int64_t machine_ns, std::int64_t board_ns) {
    if (machine_ns < nextDue_ns_ || !free_.load(std::memory_order_acquire))
        return;
    // Counting from the time it was due keeps 60 flips a second at 30 pictures instead of 20;
    // after a pause there is nothing to catch up with.
    nextDue_ns_ = std::max(nextDue_ns_ + pictureInterval_ns, machine_ns - pictureInterval_ns / 2);
    copyScreen(view, copy_);
    copyTime_ns_ = board_ns;
    {
        const std::lock_guard<std::mutex> guard(lock_);
        free_.store(false, std::memory_order_release);
    }
    changed_.notify_one();
}

void Recorder::stop(std::function<void(const std::string&)> finished) {
    {
        const std::lock_guard<std::mutex> guard(lock_);
        finished_ = std::move(finished);
        stopping_ = true;
    }
    changed_.notify_one();
}

void Recorder::work() {
    giveWayToOthers();
    std::string problem;
    std::unique_lock<std::mutex> guard(lock_);
    for (;;) {
        changed_.wait(guard, [this] { return stopping_ || !free_.load(); });
        if (free_.load())
            break;
        guard.unlock();
        if (problem.empty())
            problem = file_.add(copy_, copyTime_ns_);
        free_.store(true, std::memory_order_release);
        guard.lock();
    }
    const std::function<void(const std::string&)> finished = std::move(finished_);
    guard.unlock();
    const std::string atEnd = file_.finish();
    if (finished)
        finished(problem.empty() ? atEnd : problem);
}

}  // namespace board
