// A thread for what would keep the event loop busy: encoding, reading and writing files.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

namespace board {

class JobWorker {
  public:
    // `mostWaiting`: how many jobs may wait at a time.
    explicit JobWorker(std::size_t mostWaiting = SIZE_MAX) : mostWaiting_(mostWaiting) {}
    ~JobWorker();  // finishes what was handed over
    JobWorker(const JobWorker&) = delete;
    JobWorker& operator=(const JobWorker&) = delete;

    // Jobs run one after another. False when too many are waiting; the job is dropped then. Called
    // on the loop's thread.
    bool run(std::function<void()> job);

  private:
    void work();

    const std::size_t mostWaiting_;
    std::mutex lock_;
    std::condition_variable changed_;
    std::deque<std::function<void()>> jobs_;  // under lock_
    bool stopping_ = false;                   // under lock_
    std::thread thread_;                      // started by the first job
};

// Lets a helper thread of the daemon give way to the event loop. Called on that thread.
void giveWayToOthers();

}  // namespace board
