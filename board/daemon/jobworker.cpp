#include "board/daemon/jobworker.h"

#include <pthread.h>
#include <sched.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <utility>

namespace board {

namespace {

constexpr int helperNiceness = 10;

}  // namespace

void giveWayToOthers() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, nullptr);
    // The loop's thread may have a real-time class, which a new thread inherits.
    const sched_param none{};
    pthread_setschedparam(pthread_self(), SCHED_BATCH, &none);
    // On Linux a thread has a niceness of its own. Refused, the thread merely competes.
    if (setpriority(PRIO_PROCESS, id_t(gettid()), helperNiceness) != 0)
        return;
}

JobWorker::~JobWorker() {
    {
        const std::lock_guard<std::mutex> guard(lock_);
        stopping_ = true;
    }
    changed_.notify_one();
    if (thread_.joinable())
        thread_.join();
}

bool JobWorker::run(std::function<void()> job) {
    {
        const std::lock_guard<std::mutex> guard(lock_);
        if (jobs_.size() >= mostWaiting_)
            return false;
        jobs_.push_back(std::move(job));
    }
    if (!thread_.joinable())
        thread_ = std::thread([this] { work(); });
    changed_.notify_one();
    return true;
}

void JobWorker::work() {
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
