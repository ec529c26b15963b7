#include "control/audio/bytefifo.h"

#include <algorithm>
#include <limits>

void ByteFifo::push(const unsigned char* data, unsigned int length) {
    const std::lock_guard<std::mutex> lock(lock_);
    const std::size_t held = bytes_.size() - front_;
    // Room at the front is used again once more was taken than has to move.
    if (front_ >= held && bytes_.size() + length > bytes_.capacity()) {
        bytes_.erase(bytes_.begin(), bytes_.begin() + static_cast<std::ptrdiff_t>(front_));
        front_ = 0;
    }
    bytes_.insert(bytes_.end(), data, data + length);
}

unsigned int ByteFifo::pop(unsigned char* out, unsigned int length) {
    const std::lock_guard<std::mutex> lock(lock_);
    const std::size_t taken = std::min<std::size_t>(length, bytes_.size() - front_);
    std::copy_n(bytes_.data() + front_, taken, out);
    front_ += taken;
    if (front_ == bytes_.size()) {
        bytes_.clear();
        front_ = 0;
    }
    return static_cast<unsigned int>(taken);
}

unsigned int ByteFifo::length() const {
    const std::lock_guard<std::mutex> lock(lock_);
    constexpr std::size_t most = std::numeric_limits<unsigned int>::max();
    return static_cast<unsigned int>(std::min(most, bytes_.size() - front_));
}

void ByteFifo::clear() {
    const std::lock_guard<std::mutex> lock(lock_);
    bytes_.clear();
    front_ = 0;
}
