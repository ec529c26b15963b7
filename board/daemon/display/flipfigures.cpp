#include "board/daemon/display/flipfigures.h"

#include <algorithm>

namespace board {

namespace {

constexpr std::uint32_t frameMask = (1u << 24) - 1;
constexpr std::uint32_t halfOfFrames = 1u << 23;

// Nearest rank; `sorted` is not empty.
double percentile_ms(const std::vector<std::uint32_t>& sorted, unsigned percent) {
    const std::size_t rank = (sorted.size() * percent + 99) / 100;
    return sorted[rank > 0 ? rank - 1 : 0] / 10.0;
}

}  // namespace

FlipStep FlipFigures::count(const std::optional<Stamp>& stamp, std::uint32_t now_100us,
                            bool overwritten) {
    FlipStep result;
    ++counts_.flips;
    counts_.overwritten += overwritten ? 1 : 0;
    if (!stamp)
        return result;
    ++counts_.shown;
    if (lastFrame_ && *lastFrame_ == stamp->frame) {
        ++counts_.repeated;
        result.repeated = true;
        return result;
    }
    result.isNew = true;
    if (lastFrame_) {
        const std::uint32_t step = (stamp->frame - *lastFrame_) & frameMask;
        if (step < halfOfFrames)
            result.skipped = step - 1;
        else
            ++counts_.outOfOrder;
    }
    counts_.skipped += result.skipped;
    lastFrame_ = stamp->frame;
    counts_.lastFrame = stamp->frame;
    const std::uint32_t latency = now_100us - stamp->time_100us;
    // A mark from the future is another run's: its age says nothing.
    if (std::int32_t(latency) >= 0) {
        if (latencies_100us_.size() < window)
            latencies_100us_.push_back(latency);
        else
            latencies_100us_[nextLatency_] = latency;
        nextLatency_ = (nextLatency_ + 1) % window;
    }
    return result;
}

DisplayFigures FlipFigures::figures() const {
    DisplayFigures result = counts_;
    if (!latencies_100us_.empty()) {
        std::vector<std::uint32_t> sorted = latencies_100us_;
        std::sort(sorted.begin(), sorted.end());
        result.latencyMedian_ms = percentile_ms(sorted, 50);
        result.latencyP95_ms = percentile_ms(sorted, 95);
        result.latencyP99_ms = percentile_ms(sorted, 99);
    }
    return result;
}

void FlipFigures::reset() {
    *this = FlipFigures();
}

}  // namespace board
