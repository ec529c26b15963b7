// Prepares picture loops on a thread of its own, because decoding and scaling take up to seconds.
#pragma once

#include "board/daemon/eventloop.h"
#include "board/media/recording.h"

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

struct PictureSource {
    std::string recording;
    std::uint32_t fourcc = 0, width = 0, height = 0;

    bool operator==(const PictureSource& other) const {
        return recording == other.recording && fourcc == other.fourcc && width == other.width &&
               height == other.height;
    }
    bool operator!=(const PictureSource& other) const { return !(*this == other); }
};

// Used from the loop's thread; destroyed there too, waiting for a load that is under way.
class PictureWorker {
  public:
    // `error` is empty when `pictures` are there, one line otherwise.
    using Ready = std::function<void(const PictureSource& source,
                                     const std::shared_ptr<const PictureLoop>& pictures,
                                     const std::string& error)>;
    // `ready` runs on the loop's thread.
    PictureWorker(EventLoop& loop, Ready ready);
    ~PictureWorker();
    PictureWorker(const PictureWorker&) = delete;
    PictureWorker& operator=(const PictureWorker&) = delete;

    // The pictures if they are at hand; otherwise they are made and `ready` is called. Only the
    // latest wish counts: one that still waits is forgotten.
    std::shared_ptr<const PictureLoop> find(const PictureSource& source);

  private:
    struct Entry {
        PictureSource source;
        std::shared_ptr<const PictureLoop> pictures;
    };
    void run();
    void finish(const PictureSource& source, const std::shared_ptr<const PictureLoop>& pictures,
                const std::string& error);

    EventLoop& loop_;
    Ready ready_;
    std::list<Entry> recent_;       // loop thread: the latest first
    std::shared_ptr<bool> living_;  // what is posted after the destructor must do nothing

    std::mutex lock_;
    std::condition_variable changed_;
    std::optional<PictureSource> waiting_;   // under lock_
    std::optional<PictureSource> underWay_;  // under lock_
    bool stopping_ = false;                  // under lock_
    std::thread thread_;                     // started at the first wish
};

}  // namespace board
