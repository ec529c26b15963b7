// How playback keeps up with a camera whose clock is not the board's.
#pragma once

#include <cstddef>

namespace drift {

// Playing begins with so many periods in the FIFO.
constexpr unsigned int prefillPeriods = 10;

// Bytes to take for the next period out of `remain` held ones (at least a period): one frame less
// than a period while no more than 7 periods are held, so that the FIFO empties more slowly than
// the device plays. A period of a single frame is always taken whole.
std::size_t bytesToTake(std::size_t remain, std::size_t periodBytes, std::size_t frameBytes);

// Completes a period of which only the first `taken` bytes are there: the last real frames are
// repeated, as many as are missing.
void completePeriod(unsigned char* period, std::size_t taken, std::size_t periodBytes,
                    std::size_t frameBytes);

}  // namespace drift
