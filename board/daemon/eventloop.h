// The daemon's one thread: descriptors, deadlines, and work that other threads hand over.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <unordered_map>
#include <vector>

namespace board {

class EventLoop {
  public:
    using TimerId = std::uint64_t;

    EventLoop();
    ~EventLoop();
    EventLoop(const EventLoop&) = delete;
    EventLoop& operator=(const EventLoop&) = delete;

    // Calls `ready(events)` (EPOLLIN, EPOLLHUP, ...) while `fd` is watched. `unwatch` may be called
    // from inside any callback; after it the callback is not called again.
    void watch(int fd, std::uint32_t events, std::function<void(std::uint32_t)> ready);
    void unwatch(int fd);

    // One-shot timer at a machine time (CLOCK_MONOTONIC, ns). Late timers run at once, in order.
    TimerId at(std::int64_t monotonic_ns, std::function<void()> run);
    void cancel(TimerId id);

    // Thread-safe: runs `work` on the loop's thread.
    void post(std::function<void()> work);

    // Runs until stop(), also several times. stop() is thread-safe and async-signal-safe.
    void run();
    void stop();

    static std::int64_t now_ns();  // CLOCK_MONOTONIC of the machine

  private:
    void runDueTimers();
    void runPosted();
    void armTimer();

    int epoll_ = -1;
    int timer_ = -1;
    int wakeUp_ = -1;
    std::atomic<bool> stopping_{false};  // set by other threads and signal handlers
    TimerId lastTimer_ = 0;
    std::map<std::pair<std::int64_t, TimerId>, std::function<void()>> timers_;
    std::unordered_map<TimerId, std::int64_t> timerTimes_;
    std::unordered_map<int, std::shared_ptr<std::function<void(std::uint32_t)>>> watched_;
    std::mutex postedLock_;
    std::vector<std::function<void()>> posted_;
};

}  // namespace board
