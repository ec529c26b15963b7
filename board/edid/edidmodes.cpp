#include "board/edid/edidmodes.h"

#include <algorithm>
#include <numeric>

#include "board/edid/edidblock.h"

namespace board {
namespace {

constexpr std::uint8_t header[] = {0x00, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0x00};
constexpr std::size_t firstDescriptor = 54, descriptorBytes = 18, descriptors = 4;
constexpr std::size_t revisionByte = 19, featureByte = 24;
constexpr std::uint8_t firstIsPreferred = 0x02, continuousFrequency = 0x01;

// The blocks that are whole and have a right check sum.
std::vector<EdidBlock> goodBlocks(const std::vector<std::uint8_t>& edid) {
    std::vector<EdidBlock> blocks;
    for (std::size_t at = 0; edid.size() - at >= edidBlockBytes; at += edidBlockBytes) {
        EdidBlock block;
        std::copy_n(edid.begin() + std::ptrdiff_t(at), edidBlockBytes, block.begin());
        if (std::accumulate(block.begin(), block.end(), 0U) % 256 == 0)
            blocks.push_back(block);
        else if (at == 0)
            return {};  // without its base block an EDID says nothing
    }
    return blocks;
}

void addBaseTimings(const EdidBlock& base, ModeList& list) {
    // From revision 4 on the first timing is always the preferred one.
    bool preferred = base[revisionByte] >= 4 || (base[featureByte] & firstIsPreferred) != 0;
    for (std::size_t i = 0; i < descriptors; ++i)
        if (addDetailedTiming(&base[firstDescriptor + i * descriptorBytes], preferred, list))
            preferred = false;
}

}  // namespace

std::vector<DisplayMode> modesFromEdid(const std::vector<std::uint8_t>& edid) {
    const std::vector<EdidBlock> blocks = goodBlocks(edid);
    if (blocks.empty() || !std::equal(std::begin(header), std::end(header), blocks[0].begin()))
        return {};
    const EdidBlock& base = blocks[0];
    const auto forEach = [&blocks](std::uint8_t tag, auto use) {
        for (std::size_t i = 1; i < blocks.size(); ++i)
            if (blocks[i][0] == tag)
                use(blocks[i]);
    };
    // In the kernel's order: standard timings look for modes that are there already.
    ModeList list;
    addBaseTimings(base, list);
    forEach(ctaTag, [&](const EdidBlock& block) { addCtaDetailedTimings(block, list); });
    addCoordinatedTimings(base, list);
    addStandardTimings(base, list);
    addEstablishedTimings(base, list);
    bool hasCta = false;
    forEach(ctaTag, [&](const EdidBlock& block) {
        addCtaFormats(block, list);
        hasCta = true;
    });
    if (hasCta)
        addAlternateRates(list);
    forEach(displayIdTag, [&](const EdidBlock& block) { addDisplayIdTimings(block, list); });
    if (base[featureByte] & continuousFrequency)
        addTimingsInRange(base, list);
    return list.sorted();
}

}  // namespace board
