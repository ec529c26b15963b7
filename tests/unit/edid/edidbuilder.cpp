#include "tests/unit/edid/edidbuilder.h"

#include <algorithm>
#include <numeric>

namespace edidtest {
namespace {

constexpr std::size_t blockBytes = 128, firstDescriptor = 54, descriptorBytes = 18;

std::vector<std::uint8_t> describe(const Timing& t) {
    const auto low = [](unsigned value) { return std::uint8_t(value); };
    return {low(t.clock_10kHz),
            low(t.clock_10kHz >> 8),
            low(t.hactive),
            low(t.hblank),
            low((t.hactive >> 8) << 4 | t.hblank >> 8),
            low(t.vactive),
            low(t.vblank),
            low((t.vactive >> 8) << 4 | t.vblank >> 8),
            low(t.hfront),
            low(t.hsync),
            low((t.vfront & 15) << 4 | (t.vsync & 15)),
            low(t.hfront >> 8 << 6 | t.hsync >> 8 << 4 | t.vfront >> 4 << 2 | t.vsync >> 4),
            0,
            0,
            0,
            0,
            0,
            t.flags};
}

}  // namespace

Edid::Edid() : bytes_(blockBytes, 0) {
    std::fill(bytes_.begin() + 1, bytes_.begin() + 7, std::uint8_t(0xff));
    bytes_[18] = 1;
    bytes_[19] = 3;
    bytes_[20] = 0x80;
    bytes_[24] = 0x02;
    std::fill(bytes_.begin() + 38, bytes_.begin() + 54, std::uint8_t(0x01));
}

Edid& Edid::set(std::size_t at, std::uint8_t value) {
    bytes_.at(at) = value;
    return *this;
}

Edid& Edid::descriptor(std::size_t number, const Timing& timing) {
    const std::vector<std::uint8_t> bytes = describe(timing);
    std::copy(bytes.begin(), bytes.end(),
              bytes_.begin() + std::ptrdiff_t(firstDescriptor + number * descriptorBytes));
    return *this;
}

Edid& Edid::text(std::size_t number, std::initializer_list<std::uint8_t> bytes) {
    std::copy(bytes.begin(), bytes.end(),
              bytes_.begin() + std::ptrdiff_t(firstDescriptor + number * descriptorBytes));
    return *this;
}

Edid& Edid::cta(const std::vector<std::uint8_t>& dataBlocks, const std::vector<Timing>& timings) {
    std::vector<std::uint8_t> block = {0x02, 0x03, std::uint8_t(4 + dataBlocks.size()), 0};
    block.insert(block.end(), dataBlocks.begin(), dataBlocks.end());
    for (const Timing& timing : timings) {
        const std::vector<std::uint8_t> bytes = describe(timing);
        block.insert(block.end(), bytes.begin(), bytes.end());
    }
    return extension(block);
}

Edid& Edid::extension(const std::vector<std::uint8_t>& block) {
    ++bytes_[126];
    const std::size_t start = bytes_.size();
    bytes_.insert(bytes_.end(), block.begin(), block.end());
    bytes_.resize(start + blockBytes, 0);
    return *this;
}

std::vector<std::uint8_t> Edid::bytes() const {
    std::vector<std::uint8_t> edid = bytes_;
    fixCheckSums(edid);
    return edid;
}

void fixCheckSums(std::vector<std::uint8_t>& edid) {
    for (auto start = edid.begin(); edid.end() - start >= std::ptrdiff_t(blockBytes);
         start += blockBytes) {
        const unsigned sum = std::accumulate(start, start + blockBytes - 1, 0U);
        start[blockBytes - 1] = std::uint8_t(256 - sum % 256);
    }
}

}  // namespace edidtest
