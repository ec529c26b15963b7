#include "board/daemon/display/screenworker.h"

#include <pthread.h>
#include <sched.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <utility>

namespace board {

namespace {

constexpr std::size_t maxWaitingJobs = 8;  // each may hold a picture
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

ScreenWorker::ScreenWorker() : thread_([this] { work(); }) {}

ScreenWorker::~ScreenWorker() {
    {
        const std::lock_guard<std::mutex> guard(lock_);
        stopping_ = true;
    }
    changed_.notify_one();
    thread_.join();
}

bool ScreenWorker::run(std::function<void()> job) {
    {
        const std::lock_guard<std::mutex> guard(lock_);
        if (jobs_.size() >= maxWaitingJobs)
            return false;
        jobs_.push_back(std::move(job));
    }
    changed_.notify_one();
    return true;
}

void ScreenWorker::work() {
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
