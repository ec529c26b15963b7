#include "board/daemon/eventloop.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/timerfd.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace board {

namespace {

int checked(int descriptor, const char* what) {
    if (descriptor < 0)
        throw std::system_error(errno, std::generic_category(), what);
    return descriptor;
}

}  // namespace

EventLoop::EventLoop()
    : epoll_(checked(epoll_create1(EPOLL_CLOEXEC), "epoll_create1")),
      timer_(
          checked(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK), "timerfd_create")),
      wakeUp_(checked(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK), "eventfd")) {
    for (int fd : {timer_, wakeUp_}) {
        epoll_event event{};
        event.events = EPOLLIN;
        event.data.fd = fd;
        checked(epoll_ctl(epoll_, EPOLL_CTL_ADD, fd, &event), "epoll_ctl");
    }
}

EventLoop::~EventLoop() {
    ::close(wakeUp_);
    ::close(timer_);
    ::close(epoll_);
}

void EventLoop::watch(int fd, std::uint32_t events, std::function<void(std::uint32_t)> ready) {
    epoll_event event{};
    event.events = events;
    event.data.fd = fd;
    const bool known = watched_.count(fd) != 0;
    checked(epoll_ctl(epoll_, known ? EPOLL_CTL_MOD : EPOLL_CTL_ADD, fd, &event), "epoll_ctl");
    watched_[fd] = std::make_shared<std::function<void(std::uint32_t)>>(std::move(ready));
}

void EventLoop::unwatch(int fd) {
    if (watched_.erase(fd) != 0)
        epoll_ctl(epoll_, EPOLL_CTL_DEL, fd, nullptr);
}

EventLoop::TimerId EventLoop::at(std::int64_t monotonic_ns, std::function<void()> run) {
    const TimerId id = ++lastTimer_;
    timers_.emplace(std::make_pair(monotonic_ns, id), std::move(run));
    timerTimes_.emplace(id, monotonic_ns);
    if (timers_.begin()->first.second == id)
        armTimer();
    return id;
}

void EventLoop::cancel(TimerId id) {
    const auto found = timerTimes_.find(id);
    if (found == timerTimes_.end())
        return;
    timers_.erase({found->second, id});
    timerTimes_.erase(found);
}

void EventLoop::post(std::function<void()> work) {
    {
        const std::lock_guard<std::mutex> guard(postedLock_);
        posted_.push_back(std::move(work));
    }
    const std::uint64_t one = 1;
    // A full counter means that a wake-up is already on its way.
    if (::write(wakeUp_, &one, sizeof one) < 0)
        return;
}

void EventLoop::stop() {
    stopping_ = true;
    const std::uint64_t one = 1;
    if (::write(wakeUp_, &one, sizeof one) < 0)
        return;
}

std::int64_t EventLoop::now_ns() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return std::int64_t(now.tv_sec) * 1000000000 + now.tv_nsec;
}

void EventLoop::armTimer() {
    if (timers_.empty())
        return;
    const std::int64_t due = timers_.begin()->first.first > 1 ? timers_.begin()->first.first : 1;
    itimerspec when{};
    when.it_value.tv_sec = due / 1000000000;
    when.it_value.tv_nsec = due % 1000000000;
    timerfd_settime(timer_, TFD_TIMER_ABSTIME, &when, nullptr);
}

void EventLoop::runDueTimers() {
    const std::int64_t now = now_ns();
    while (!timers_.empty() && timers_.begin()->first.first <= now) {
        auto node = timers_.extract(timers_.begin());
        timerTimes_.erase(node.key().second);
        node.mapped()();
    }
    armTimer();
}

void EventLoop::runPosted() {
    std::vector<std::function<void()>> work;
    {
        const std::lock_guard<std::mutex> guard(postedLock_);
        work.swap(posted_);
    }
    for (auto& item : work)
        item();
}

void EventLoop::run() {
    while (!stopping_) {
        epoll_event events[64];
        const int count = epoll_wait(epoll_, events, 64, -1);
        if (count < 0 && errno != EINTR)
            throw std::system_error(errno, std::generic_category(), "epoll_wait");
        // Timers first: a frame or a flip that is due must not wait behind a burst of calls.
        runDueTimers();
        for (int i = 0; i < count; ++i) {
            std::uint64_t ignored = 0;
            if (events[i].data.fd == timer_) {
                while (::read(timer_, &ignored, sizeof ignored) > 0) {
                }
            } else if (events[i].data.fd == wakeUp_) {
                while (::read(wakeUp_, &ignored, sizeof ignored) > 0) {
                }
                runPosted();
            } else {
                const auto found = watched_.find(events[i].data.fd);
                if (found == watched_.end())
                    continue;
                const auto ready =
                    found->second;  // keeps the callback alive if it unwatches itself
                (*ready)(events[i].events);
            }
        }
        runDueTimers();
    }
    stopping_ = false;  // it can run again
}

}  // namespace board
