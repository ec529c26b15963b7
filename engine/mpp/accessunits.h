// Cuts an H.264 byte stream into access units: all that belongs to one picture.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <vector>

namespace mpp {

struct AccessUnit {
    std::vector<std::uint8_t> bytes;
    std::int64_t pts = 0;   // of the packet that it begins in
    bool hasSlice = false;  // picture data, not only parameter sets and the like
};

// Where a unit ends shows only where the next begins. Cameras send whole units, and waiting for the
// next one would cost a frame's time: once `trusted` packets in a row have begun with a unit's
// beginning, a packet's end is taken for a unit's end, until a packet begins in the middle of one.
class AccessUnits {
  public:
    static constexpr int trusted = 3;
    // No picture's data is larger; longer stretches without a unit's beginning are thrown away.
    static constexpr std::size_t largestUnit = std::size_t{16} << 20;

    // `split`: packets may be cut anywhere; otherwise each packet is one unit.
    void push(const std::uint8_t* data, std::size_t size, std::int64_t pts, bool split);
    // What is left is a unit (end of stream).
    void end();
    bool next(AccessUnit& unit);
    void clear();

  private:
    void scan(bool cutting);
    void cut(std::size_t at);

    std::vector<std::uint8_t> pending_;
    std::size_t scanned_ = 0;      // of pending_
    std::size_t packetBegin_ = 0;  // in pending_
    bool hasSlice_ = false;        // a picture's data lies before scanned_
    std::int64_t unitPts_ = 0, packetPts_ = 0;
    int wholePackets_ = 0;  // in a row
    std::deque<AccessUnit> units_;
};

}  // namespace mpp
