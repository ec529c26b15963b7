// Everything that a camera was told, in order. Loop thread only.
#pragma once

#include <cstdint>
#include <deque>
#include <string>
#include <vector>

namespace board {

struct Told {
    std::int64_t time_ns = 0;  // board time
    std::int32_t result = 0;   // 0, or -errno: then the camera itself heard nothing
    bool isControl = false;
    // A control: what was asked for and what the driver made of it.
    std::uint32_t id = 0;
    std::int64_t asked = 0, given = 0;
    // A write to an extension unit.
    std::uint8_t unit = 0, selector = 0;
    std::vector<std::uint8_t> bytes;
};

class ToldList {
  public:
    void add(Told told);
    std::uint64_t count() const { return first_ + told_.size(); }
    // Number `from` and those after it, as far as they are still kept; `from` becomes the number
    // of the first.
    std::vector<Told> since(std::uint64_t& from) const;

  private:
    std::deque<Told> told_;
    std::uint64_t first_ = 0;  // number of the oldest that is kept
};

}  // namespace board
