#include "board/daemon/sound/soundworker.h"

#include "board/daemon/display/screenworker.h"

#include <utility>

namespace board {

SoundWorker::~SoundWorker() {
    {
        const std::lock_guard<std::mutex> guard(lock_);
        stopping_ = true;
    }
    changed_.notify_one();
    if (thread_.joinable())
        thread_.join();
}

void SoundWorker::run(std::function<void()> job) {
    {
        const std::lock_guard<std::mutex> guard(lock_);
        jobs_.push_back(std::move(job));
    }
    if (!thread_.joinable())
        thread_ = std::thread([this] { work(); });
    changed_.notify_one();
}

void SoundWorker::work() {
    giveWayToOthers();
    std::unique_lock<std::mutex> guard(lock_);
    for (;;) {
        changed_.wait(guard, [this] { return stopping_ || !jobs_.empty(); });
        if (jobs_.empty())
            return;
        {
            const std::function<void()> job = std::move(jobs_.front());
            jobs_.pop_front();
            guard.unlock();
            job();
        }
        guard.lock();
    }
}

}  // namespace board
