#include "control/audio/driftrule.h"

#include <algorithm>

namespace drift {

namespace {

constexpr double lowLevel_periods = 7.0;

}  // namespace

std::size_t bytesToTake(std::size_t remain, std::size_t periodBytes, std::size_t frameBytes) {
    const double fill = static_cast<double>(remain) / static_cast<double>(periodBytes);
    if (fill > lowLevel_periods || periodBytes <= frameBytes) {
        return periodBytes;
    }
    return periodBytes - frameBytes;
}

void completePeriod(unsigned char* period, std::size_t taken, std::size_t periodBytes,
                    std::size_t frameBytes) {
    const std::size_t frames = taken / frameBytes;
    const std::size_t periodFrames = periodBytes / frameBytes;
    if (2 * frames < periodFrames) {
        return;  // less than half a period cannot be repeated into a whole one
    }
    unsigned char* const from = period + (2 * frames - periodFrames) * frameBytes;
    std::copy(from, period + frames * frameBytes, period + frames * frameBytes);
}

}  // namespace drift
