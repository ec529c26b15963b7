#include "control/task/taskbase.h"

#include "control/task/logline.h"
#include "control/task/monotonictime.h"

#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <cstdint>
#include <mutex>
#include <thread>

timeval TaskBase::lastTime{};

namespace {

constexpr std::size_t threadNameLength = 15;

// Tasks are made on different threads, and each sets the shared time.
std::mutex& lastTimeLock() {
    static std::mutex lock;
    return lock;
}

}  // namespace

TaskBase::TaskBase()
    : queueLock(std::make_unique<CCriticalSection>()), queueEvent(std::make_unique<CEventImpl>()) {
    exchangeLastTime(monotonicNow());
}

TaskBase::~TaskBase() {
    wait();
}

int TaskBase::activate(int n) {
    for (int i = 0; i < n; ++i) {
        running = 1;
        pthread_t thread{};
        if (pthread_create(&thread, nullptr, &TaskBase::svc_run, this) == 0) {
            threadIds.push_back(thread);
        }
    }
    return 1;
}

void* TaskBase::svc_run(void* self) {
    const std::intptr_t result = static_cast<TaskBase*>(self)->svc();
    // A thread's exit value has the type of a pointer; this one is never followed.
    return reinterpret_cast<void*>(result);  // NOLINT(performance-no-int-to-ptr)
}

int TaskBase::close() {
    running = 0;
    return 0;
}

void TaskBase::wait() {
    const std::deque<pthread_t> started = threadIds;
    for (const pthread_t thread : started) {
        pthread_join(thread, nullptr);
    }
    threadIds.clear();
}

int TaskBase::putq(void* msg) {
    {
        CCriticalAutoLock lock(*queueLock);
        msgQueue.push_back(msg);
    }
    queueEvent->set_event();
    return 1;
}

int TaskBase::getq(void** out, int timeout_ms) {
    for (;;) {
        {
            CCriticalAutoLock lock(*queueLock);
            if (!msgQueue.empty()) {
                *out = msgQueue.front();
                msgQueue.pop_front();
                return 1;
            }
        }
        // A message that arrives here stays queued and is found at the next call.
        queueEvent->reset_event();
        if (!queueEvent->wait_for_single_object(timeout_ms)) {
            return 0;
        }
    }
}

int TaskBase::getqSize() {
    CCriticalAutoLock lock(*queueLock);
    return static_cast<int>(msgQueue.size());
}

int TaskBase::svc() {
    return 0;
}

unsigned int TaskBase::thr_count() const {
    return static_cast<unsigned int>(threadIds.size());
}

int TaskBase::gettid() {
    return static_cast<int>(syscall(SYS_gettid));
}

int TaskBase::setCpuCore(int mask, unsigned long thread) {
    cpu_set_t set;
    CPU_ZERO(&set);
    const unsigned int cpus = std::thread::hardware_concurrency();
    for (unsigned int i = 0; i < cpus; ++i) {
        if ((static_cast<unsigned int>(mask) >> (i & 31U)) & 1U) {
            CPU_SET(i, &set);
        }
    }
    return pthread_setaffinity_np(thread, sizeof(set), &set);
}

void TaskBase::setThreadName(const std::string& className) {
    pthread_setname_np(pthread_self(), className.substr(0, threadNameLength).c_str());
}

timeval TaskBase::exchangeLastTime(const timeval& now) {
    const std::lock_guard<std::mutex> lock(lastTimeLock());
    const timeval before = lastTime;
    lastTime = now;
    return before;
}
