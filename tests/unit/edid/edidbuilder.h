// EDIDs made byte by byte for tests.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <vector>

namespace edidtest {

struct Timing {
    unsigned clock_10kHz, hactive, hfront, hsync, hblank, vactive, vfront, vsync, vblank;
    std::uint8_t flags;  // 0x80 interlaced, 0x60 stereo, 0x1e digital with positive syncs
};

constexpr Timing fullHd60{14850, 1920, 88, 44, 280, 1080, 4, 5, 45, 0x1e};
constexpr Timing hd60{7425, 1280, 110, 40, 370, 720, 5, 5, 30, 0x1e};

class Edid {
  public:
    // A base block of revision 3 that says nothing but "the first timing is preferred".
    Edid();
    Edid& set(std::size_t at, std::uint8_t value);
    Edid& descriptor(std::size_t number, const Timing& timing);
    Edid& text(std::size_t number, std::initializer_list<std::uint8_t> bytes);
    // A CTA-861 extension with these data blocks and detailed timings.
    Edid& cta(const std::vector<std::uint8_t>& dataBlocks, const std::vector<Timing>& timings = {});
    Edid& extension(const std::vector<std::uint8_t>& block);
    // All blocks with right check sums.
    std::vector<std::uint8_t> bytes() const;

  private:
    std::vector<std::uint8_t> bytes_;
};

// Makes the check sum of every whole block right.
void fixCheckSums(std::vector<std::uint8_t>& edid);

}  // namespace edidtest
