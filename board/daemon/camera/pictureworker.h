// Makes frame loops on a thread of its own, because decoding, scaling and encoding take up to
// seconds.
#pragma once

#include "board/daemon/eventloop.h"
#include "board/media/frameloop.h"

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

namespace board {

// Used from the loop's thread; destroyed there too, waiting for a load that is under way.
class PictureWorker {
  public:
    // `error` is empty when `frames` are there (perhaps not all of them yet), one line otherwise.
    using Ready = std::function<void(const FrameLoopWish& wish,
                                     const std::shared_ptr<const FrameLoop>& frames,
                                     const std::string& error)>;
    // `ready` runs on the loop's thread.
    PictureWorker(EventLoop& loop, Ready ready);
    ~PictureWorker();
    PictureWorker(const PictureWorker&) = delete;
    PictureWorker& operator=(const PictureWorker&) = delete;

    // The frames if they are at hand; otherwise they are made and `ready` is called. Only the
    // latest wish counts: one that still waits is forgotten.
    std::shared_ptr<const FrameLoop> find(const FrameLoopWish& wish);

  private:
    struct Entry {
        FrameLoopWish wish;
        std::shared_ptr<const FrameLoop> frames;
    };
    void run();
    void make(const FrameLoopWish& wish);
    void report(const FrameLoopWish& wish, const std::shared_ptr<const FrameLoop>& frames,
                const std::string& error);
    void finish(const FrameLoopWish& wish, const std::shared_ptr<const FrameLoop>& frames,
                const std::string& error);

    EventLoop& loop_;
    Ready ready_;
    std::list<Entry> recent_;       // loop thread: the latest first
    std::shared_ptr<bool> living_;  // what is posted after the destructor must do nothing

    std::mutex lock_;
    std::condition_variable changed_;
    std::optional<FrameLoopWish> waiting_;   // under lock_
    std::optional<FrameLoopWish> underWay_;  // under lock_
    bool stopping_ = false;                  // under lock_
    std::thread thread_;                     // started at the first wish
};

}  // namespace board
