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

std::shared_ptr<const PictureLoop> PictureWorker::find(const PictureSource& source) {
    for (auto entry = recent_.begin(); entry != recent_.end(); ++entry) {
        if (entry->source != source)
            continue;
        recent_.splice(recent_.begin(), recent_, entry);
        return entry->pictures;
    }
    {
        const std::lock_guard<std::mutex> guard(lock_);
        if (underWay_ == source)
            waiting_.reset();
        else
            waiting_ = source;
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
        const PictureSource source = *waiting_;
        underWay_ = std::exchange(waiting_, std::nullopt);
        guard.unlock();
        std::shared_ptr<const PictureLoop> pictures;
        std::string error;
        try {
            pictures = std::make_shared<PictureLoop>(
                loadPictures(source.recording, source.fourcc, source.width, source.height,
                             loopLength(source.width, source.height)));
        } catch (const std::exception& failure) {
            error = failure.what();
        }
        guard.lock();
        loop_.post([this, living = std::weak_ptr<bool>(living_), source, pictures, error] {
            if (living.lock())
                finish(source, pictures, error);
        });
    }
}

void PictureWorker::finish(const PictureSource& source,
                           const std::shared_ptr<const PictureLoop>& pictures,
                           const std::string& error) {
    if (pictures != nullptr) {
        recent_.remove_if([&](const Entry& entry) { return entry.source == source; });
        recent_.push_front({source, pictures});
        if (recent_.size() > mostLoops)
            recent_.pop_back();
    }
    ready_(source, pictures, error);
}

}  // namespace board
