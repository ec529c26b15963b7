#include "board/daemon/camera/pictureworker.h"

#include <exception>
#include <utility>

namespace board {

namespace {

constexpr std::size_t mostLoops = 2;  // a loop may take 200 MB

}  // namespace

PictureWorker::PictureWorker(EventLoop& loop, Ready ready)
    : loop_(loop), ready_(std::move(ready)), living_(std::make_shared<bool>(true)) {}

PictureWorker::~PictureWorker() {
    {
        const std::lock_guard<std::mutex> guard(lock_);
        stopping_ = true;
    }
    changed_.notify_all();
    if (thread_.joinable())
        thread_.join();
}

std::shared_ptr<const FrameLoop> PictureWorker::find(const FrameLoopWish& wish) {
    for (auto entry = recent_.begin(); entry != recent_.end(); ++entry) {
        if (entry->wish != wish)
            continue;
        recent_.splice(recent_.begin(), recent_, entry);
        return entry->frames;
    }
    {
        const std::lock_guard<std::mutex> guard(lock_);
        if (underWay_ == wish)
            waiting_.reset();
        else
            waiting_ = wish;
    }
    if (!thread_.joinable())
        thread_ = std::thread([this] { run(); });
    changed_.notify_all();
    return nullptr;
}

void PictureWorker::run() {
    std::unique_lock<std::mutex> guard(lock_);
    for (;;) {
        underWay_.reset();
        changed_.wait(guard, [this] { return stopping_ || waiting_.has_value(); });
        if (stopping_)
            return;
        const FrameLoopWish wish = *waiting_;
        underWay_ = std::exchange(waiting_, std::nullopt);
        guard.unlock();
        make(wish);
        guard.lock();
    }
}

void PictureWorker::make(const FrameLoopWish& wish) {
    const auto goOn = [this] {
        const std::lock_guard<std::mutex> guard(lock_);
        return !stopping_;
    };
    bool ready = false;
    try {
        makeFrameLoop(wish, goOn, [&](const std::shared_ptr<const FrameLoop>& frames) {
            ready = true;
            report(wish, frames, "");
        });
    } catch (const std::exception& failure) {
        // Frames that are there already go on being sent; those that are missing never come.
        if (!ready)
            report(wish, nullptr, failure.what());
    }
}

void PictureWorker::report(const FrameLoopWish& wish,
                           const std::shared_ptr<const FrameLoop>& frames,
                           const std::string& error) {
    loop_.post([this, living = std::weak_ptr<bool>(living_), wish, frames, error] {
        if (living.lock())
            finish(wish, frames, error);
    });
}

void PictureWorker::finish(const FrameLoopWish& wish,
                           const std::shared_ptr<const FrameLoop>& frames,
                           const std::string& error) {
    if (frames != nullptr) {
        recent_.remove_if([&](const Entry& entry) { return entry.wish == wish; });
        recent_.push_front({wish, frames});
        if (recent_.size() > mostLoops)
            recent_.pop_back();
    }
    ready_(wish, frames, error);
}

}  // namespace board
