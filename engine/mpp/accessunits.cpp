#include "engine/mpp/accessunits.h"

#include <algorithm>
#include <utility>

namespace mpp {
namespace {

constexpr std::size_t startCode = 3;  // 0 0 1

enum class Begins { nothing, unit, slice, unitWithSlice };

// What the NAL unit at `nal` (its header; one more byte follows) begins.
Begins classify(const std::uint8_t* nal) {
    const int type = nal[0] & 0x1f;
    if (type == 1 || type == 2 || type == 5) {
        // first_mb_in_slice 0 is the single bit 1
        return (nal[1] & 0x80) != 0 ? Begins::unitWithSlice : Begins::slice;
    }
    // Delimiter, parameter sets, supplementary information and the reserved types around them
    // stand before a picture's data.
    const bool before = (type >= 6 && type <= 9) || (type >= 14 && type <= 18);
    return before ? Begins::unit : Begins::nothing;
}

bool beginsUnit(const std::uint8_t* data, std::size_t size) {
    std::size_t zeros = 0;
    while (zeros < size && data[zeros] == 0) {
        ++zeros;
    }
    if (zeros < 2 || size - zeros < 3 || data[zeros] != 1) {
        return false;
    }
    const Begins begins = classify(data + zeros + 1);
    return begins == Begins::unit || begins == Begins::unitWithSlice;
}

}  // namespace

void AccessUnits::push(const std::uint8_t* data, std::size_t size, std::int64_t pts, bool split) {
    if (size == 0) {
        return;
    }
    if (!split) {
        end();
        unitPts_ = pts;
        pending_.assign(data, data + size);
        scan(false);
        end();
        return;
    }
    wholePackets_ = beginsUnit(data, size) ? std::min(wholePackets_ + 1, trusted) : 0;
    if (pending_.size() + size > largestUnit) {
        clear();
    }
    if (pending_.empty()) {
        unitPts_ = pts;
    }
    packetBegin_ = pending_.size();
    packetPts_ = pts;
    pending_.insert(pending_.end(), data, data + size);
    scan(true);
    if (wholePackets_ == trusted) {
        end();
    }
}

// Looks at what came; cuts where a unit begins unless the whole is one.
void AccessUnits::scan(bool cutting) {
    while (scanned_ + startCode + 2 <= pending_.size()) {
        const std::uint8_t* at = pending_.data() + scanned_;
        if (at[0] != 0 || at[1] != 0 || at[2] != 1) {
            scanned_ += at[2] > 1 ? startCode : 1;  // no start code has such a byte
            continue;
        }
        const Begins begins = classify(at + startCode);
        if (cutting && hasSlice_ && (begins == Begins::unit || begins == Begins::unitWithSlice)) {
            // The longer start code's first zero goes with it.
            cut(scanned_ > 0 && at[-1] == 0 ? scanned_ - 1 : scanned_);
        }
        hasSlice_ = hasSlice_ || begins == Begins::slice || begins == Begins::unitWithSlice;
        scanned_ += startCode;
    }
}

// Makes a unit of what lies before `at`.
void AccessUnits::cut(std::size_t at) {
    const auto middle = pending_.begin() + static_cast<std::ptrdiff_t>(at);
    AccessUnit unit;
    unit.pts = unitPts_;
    unit.hasSlice = hasSlice_;
    unit.bytes.assign(pending_.begin(), middle);
    units_.push_back(std::move(unit));
    pending_.erase(pending_.begin(), middle);
    // A start code that lies across two packets counts with the later one.
    if (at + startCode >= packetBegin_) {
        unitPts_ = packetPts_;
    }
    packetBegin_ -= std::min(packetBegin_, at);
    scanned_ -= at;
    hasSlice_ = false;
}

void AccessUnits::end() {
    if (!pending_.empty()) {
        scanned_ = pending_.size();
        cut(scanned_);
    }
}

bool AccessUnits::next(AccessUnit& unit) {
    if (units_.empty()) {
        return false;
    }
    unit = std::move(units_.front());
    units_.pop_front();
    return true;
}

void AccessUnits::clear() {
    pending_.clear();
    units_.clear();
    scanned_ = 0;
    packetBegin_ = 0;
    hasSlice_ = false;
}

}  // namespace mpp
