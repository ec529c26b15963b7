// A thread of a sound card for what would keep the event loop busy: reading and writing files.
#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

namespace board {

class SoundWorker {
  public:
    SoundWorker() = default;
    ~SoundWorker();  // finishes what was handed over
    SoundWorker(const SoundWorker&) = delete;
    SoundWorker& operator=(const SoundWorker&) = delete;

    // Jobs run one after another. Called on the loop's thread.
    void run(std::function<void()> job);

  private:
    void work();

    std::mutex lock_;
    std::condition_variable changed_;
    std::deque<std::function<void()>> jobs_;  // under lock_
    bool stopping_ = false;                   // under lock_
    std::thread thread_;                      // started by the first job
};

}  // namespace board
