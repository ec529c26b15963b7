// Bytes that mean harm: every read stays inside (the sanitizers see it), every mode stays sane.
#include <gtest/gtest.h>

#include <filesystem>
#include <random>

#include "board/edid/edidmodes.h"
#include "tests/unit/edid/edidbuilder.h"

namespace {

using Bytes = std::vector<std::uint8_t>;

std::vector<Bytes> realEdids() {
    std::vector<Bytes> edids;
    const std::string folder = std::string(SCENARIO_FOLDER) + "/displays";
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        const Bytes edid = board::loadDisplay(entry.path()).edid;
        if (!edid.empty())
            edids.push_back(edid);
    }
    return edids;
}

// Reads a copy of exactly this size: the first byte behind it does not belong to the program.
void readAndCheck(const Bytes& edid) {
    const Bytes exact(edid.begin(), edid.end());
    const auto modes = board::modesFromEdid(exact);
    ASSERT_LT(modes.size(), 4000U);
    for (const board::DisplayMode& mode : modes) {
        ASSERT_GT(mode.clock_kHz, 0U);
        ASSERT_GT(mode.hdisplay, 0);
        ASSERT_LE(mode.hdisplay, mode.hsyncStart);
        ASSERT_LE(mode.hsyncStart, mode.hsyncEnd);
        ASSERT_LE(mode.hsyncEnd, mode.htotal);
        ASSERT_GT(mode.vdisplay, 0);
        ASSERT_LE(mode.vdisplay, mode.vsyncStart);
        ASSERT_LE(mode.vsyncStart, mode.vsyncEnd);
        ASSERT_LE(mode.vsyncEnd, mode.vtotal);
        ASSERT_LT(mode.name.size(), 32U);
    }
}

}  // namespace

TEST(HostileEdid, RandomBytes) {
    std::mt19937 random(1);
    for (int round = 0; round < 20000; ++round) {
        Bytes edid(random() % 700);
        for (std::uint8_t& byte : edid)
            byte = std::uint8_t(random());
        readAndCheck(edid);
    }
}

TEST(HostileEdid, RandomBytesBehindAValidHeaderAndCheckSums) {
    std::mt19937 random(2);
    for (int round = 0; round < 20000; ++round) {
        Bytes edid = edidtest::Edid().bytes();
        edid.resize(128 * (1 + random() % 4));
        for (std::size_t i = 18; i < edid.size(); ++i)
            edid[i] = std::uint8_t(random());
        for (std::size_t block = 128; block < edid.size(); block += 128) {
            edid[block] = random() % 2 ? 0x02 : 0x70;
            edid[block + 1] = 3;
        }
        edidtest::fixCheckSums(edid);
        readAndCheck(edid);
    }
}

TEST(HostileEdid, RealOnesDamagedAndCut) {
    std::mt19937 random(3);
    const std::vector<Bytes> edids = realEdids();
    ASSERT_GT(edids.size(), 40U);
    for (const Bytes& original : edids) {
        for (std::size_t length = 0; length <= original.size(); length += 7)
            readAndCheck(Bytes(original.begin(), original.begin() + std::ptrdiff_t(length)));
        for (int round = 0; round < 300; ++round) {
            Bytes edid = original;
            for (unsigned damage = 1 + random() % 4; damage > 0; --damage)
                edid[8 + random() % (edid.size() - 8)] = std::uint8_t(random());
            edidtest::fixCheckSums(edid);
            readAndCheck(edid);
        }
    }
}
