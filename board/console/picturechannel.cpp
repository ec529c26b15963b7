#include "board/console/picturechannel.h"

namespace board::console {

PictureChannel::Viewer::Viewer(PictureChannel& channel) : channel_(channel) {
    const std::lock_guard<std::mutex> hold(channel_.lock_);
    ++channel_.viewers_;
    channel_.changed_.notify_all();
}

PictureChannel::Viewer::~Viewer() {
    const std::lock_guard<std::mutex> hold(channel_.lock_);
    --channel_.viewers_;
}

PictureChannel::Part PictureChannel::Viewer::next(std::chrono::milliseconds patience) {
    std::unique_lock<std::mutex> hold(channel_.lock_);
    channel_.changed_.wait_for(hold, patience,
                               [this] { return channel_.last_ && number_ != channel_.number_; });
    number_ = channel_.number_;
    return channel_.last_;
}

void PictureChannel::publish(Part part) {
    const std::lock_guard<std::mutex> hold(lock_);
    last_ = std::move(part);
    ++number_;
    changed_.notify_all();
}

void PictureChannel::forget() {
    const std::lock_guard<std::mutex> hold(lock_);
    last_.reset();
}

bool PictureChannel::hasViewers() const {
    const std::lock_guard<std::mutex> hold(lock_);
    return viewers_ > 0;
}

bool PictureChannel::waitForViewers(std::chrono::milliseconds patience) {
    std::unique_lock<std::mutex> hold(lock_);
    return changed_.wait_for(hold, patience, [this] { return viewers_ > 0; });
}

}  // namespace board::console
