#include <algorithm>

#include "board/edid/edidblock.h"
#include "board/edid/timings.h"

namespace board {
namespace {

constexpr std::size_t firstDataBlock = 4, checkSum = 127, descriptorBytes = 18;
constexpr unsigned videoBlock = 2, vendorBlock = 3;
constexpr std::uint32_t hdmiVendor = 0x000c03;

// Where the data blocks end and the detailed timings begin.
std::size_t timingsStart(const EdidBlock& block) {
    return block[2] == 0 ? 0 : std::clamp<std::size_t>(block[2], firstDataBlock, checkSum);
}

void add(const DisplayMode* mode, ModeList& list) {
    if (mode != nullptr)
        list.add(*mode);
}

void addVideoBlock(const std::uint8_t* content, std::size_t length, ModeList& list) {
    for (std::size_t i = 0; i < length; ++i) {
        // The highest bit marks native formats, of the first 64 codes only.
        const unsigned code = content[i];
        const bool marked = code > 128 && code <= 192;
        add(modeForVic(marked ? code & 127 : code), list);
    }
}

void addHdmiBlock(const std::uint8_t* content, std::size_t length, ModeList& list) {
    constexpr std::size_t flagsAt = 7;
    constexpr std::uint8_t hasVideo = 0x20, hasLatency = 0x80, hasInterlacedLatency = 0x40;
    if (length <= flagsAt || !(content[flagsAt] & hasVideo))
        return;
    std::size_t at = flagsAt + 1;
    at += content[flagsAt] & hasLatency ? 2 : 0;
    at += content[flagsAt] & hasInterlacedLatency ? 2 : 0;
    ++at;  // stereo
    if (at >= length)
        return;
    const std::size_t formats = content[at] >> 5;
    for (std::size_t i = at + 1; i <= at + formats && i < length; ++i)
        add(modeForHdmiVic(content[i]), list);
}

}  // namespace

void addCtaDetailedTimings(const EdidBlock& block, ModeList& list) {
    const std::size_t start = timingsStart(block);
    if (start == 0)
        return;
    for (std::size_t at = start; at + descriptorBytes <= checkSum; at += descriptorBytes)
        addDetailedTiming(&block[at], false, list);
}

void addCtaFormats(const EdidBlock& block, ModeList& list) {
    constexpr std::uint8_t withDataBlocks = 3;
    const std::size_t end = timingsStart(block);
    if (block[1] < withDataBlocks)
        return;
    for (std::size_t at = firstDataBlock; at < end;) {
        const std::size_t length = block[at] & 0x1f;
        const unsigned kind = block[at] >> 5;
        if (at + 1 + length > end)
            return;
        const std::uint8_t* content = &block[at] + 1;
        if (kind == videoBlock)
            addVideoBlock(content, length, list);
        else if (kind == vendorBlock && length >= 3 &&
                 (content[0] | content[1] << 8 | std::uint32_t(content[2]) << 16) == hdmiVendor)
            addHdmiBlock(content, length, list);
        at += 1 + length;
    }
}

void addAlternateRates(ModeList& list) {
    const std::vector<DisplayMode> listed = list.modes();
    for (const DisplayMode& mode : listed) {
        for (const DisplayMode& cta : ctaModes()) {
            const std::uint32_t other = alternateClock(cta);
            if (!sameTiming(cta, mode) || other == cta.clock_kHz)
                continue;
            if (mode.clock_kHz != cta.clock_kHz && mode.clock_kHz != other)
                continue;
            DisplayMode variant = cta;
            variant.clock_kHz = mode.clock_kHz == other ? cta.clock_kHz : other;
            finishMode(variant);
            list.add(variant);
            break;
        }
    }
}

}  // namespace board
