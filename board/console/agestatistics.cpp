#include "board/console/agestatistics.h"

#include "board/daemon/jsonfields.h"

#include <algorithm>
#include <cmath>

namespace board::console {

namespace {

constexpr std::chrono::seconds window(1);
constexpr std::size_t mostFlips = 1000;  // in a second; no display is that fast

// The value that `share` of the sorted values do not exceed.
double quantile(const std::vector<double>& sorted, double share) {
    return sorted.empty() ? 0 : sorted[std::size_t(std::lround(double(sorted.size() - 1) * share))];
}

}  // namespace

std::string AgeSecond::json(std::uint64_t lost) const {
    JsonFields fields;
    fields.add("median_ms", median_ms).add("p95_ms", p95_ms).add("shown", shown);
    fields.add("lost", lost).add("repeated", repeated).add("skipped", skipped);
    return fields.object();
}

void AgeStatistics::take(const wire::ViewFlip& flip, Clock::time_point now) {
    const std::lock_guard<std::mutex> hold(lock_);
    flips_.push_back({now, flip});
    while (flips_.size() > mostFlips || flips_.front().seen < now - window)
        flips_.pop_front();
}

AgeSecond AgeStatistics::lastSecond(Clock::time_point now) {
    const std::lock_guard<std::mutex> hold(lock_);
    while (!flips_.empty() && flips_.front().seen < now - window)
        flips_.pop_front();
    AgeSecond second;
    std::vector<double> ages_ms;
    for (const Flip& each : flips_) {
        const wire::ViewFlip& flip = each.flip;
        second.repeated += flip.repeated;
        second.skipped += flip.skipped;
        if (flip.marked == 0 || flip.repeated != 0)
            continue;
        ++second.shown;
        ages_ms.push_back(double(flip.shown_ns - flip.taken_ns) / 1e6);
    }
    std::sort(ages_ms.begin(), ages_ms.end());
    second.median_ms = quantile(ages_ms, 0.5);
    second.p95_ms = quantile(ages_ms, 0.95);
    return second;
}

}  // namespace board::console
