// A thread for what would keep the event loop busy: encoding and writing files.
#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

namespace board {

class ScreenWorker {
  public:
    ScreenWorker();
    ~ScreenWorker();  // finishes what was handed over
    ScreenWorker(const ScreenWorker&) = delete;
    ScreenWorker& operator=(const ScreenWorker&) = delete;

    // Jobs run one after another. False when too many are waiting; the job is dropped then.
    bool run(std::function<void()> job);

  private:
    void work();

    std::mutex lock_;
    std::condition_variable changed_;
    std::deque<std::function<void()>> jobs_;
    bool stopping_ = false;
    std::thread thread_;  // last: starts when the rest is there
};

// Lets a helper thread of the daemon give way to the event loop. Called on that thread.
void giveWayToOthers();

}  // namespace board
