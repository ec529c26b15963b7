// Which modes an EDID gives, rule by rule.
#include "board/edid/edidmodes.h"

#include <drm_mode.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "tests/unit/edid/edidbuilder.h"

using board::DisplayMode;
using board::modesFromEdid;
using edidtest::Edid;
using edidtest::fullHd60;
using edidtest::hd60;
using edidtest::Timing;

namespace {

// "1920x1080@60 148500", an asterisk before a preferred one.
std::vector<std::string> listOf(const std::vector<std::uint8_t>& edid) {
    std::vector<std::string> list;
    for (const DisplayMode& mode : modesFromEdid(edid))
        list.push_back((mode.type & DRM_MODE_TYPE_PREFERRED ? "*" : "") + mode.name + "@" +
                       std::to_string(mode.vrefresh_Hz) + " " + std::to_string(mode.clock_kHz));
    return list;
}

using List = std::vector<std::string>;

constexpr std::uint8_t video = 2 << 5, vendor = 3 << 5;

}  // namespace

TEST(EdidModes, DetailedTimingIsTakenFieldByField) {
    const auto modes = modesFromEdid(Edid().descriptor(0, fullHd60).bytes());
    ASSERT_EQ(modes.size(), 1U);
    const DisplayMode& mode = modes[0];
    EXPECT_EQ(mode.name, "1920x1080");
    EXPECT_EQ(mode.clock_kHz, 148500U);
    EXPECT_EQ(mode.hdisplay, 1920);
    EXPECT_EQ(mode.hsyncStart, 2008);
    EXPECT_EQ(mode.hsyncEnd, 2052);
    EXPECT_EQ(mode.htotal, 2200);
    EXPECT_EQ(mode.vdisplay, 1080);
    EXPECT_EQ(mode.vsyncStart, 1084);
    EXPECT_EQ(mode.vsyncEnd, 1089);
    EXPECT_EQ(mode.vtotal, 1125);
    EXPECT_EQ(mode.vrefresh_Hz, 60U);
    EXPECT_EQ(mode.flags, unsigned(DRM_MODE_FLAG_PHSYNC | DRM_MODE_FLAG_PVSYNC));
    EXPECT_EQ(mode.type, unsigned(DRM_MODE_TYPE_PREFERRED | DRM_MODE_TYPE_DRIVER));
}

TEST(EdidModes, LargeFrontPorchesUseTheHighBits) {
    const Timing wide{29700, 2560, 300, 260, 700, 1440, 20, 19, 60, 0x18};
    const auto modes = modesFromEdid(Edid().descriptor(0, wide).bytes());
    ASSERT_EQ(modes.size(), 1U);
    EXPECT_EQ(modes[0].hsyncStart, 2860);
    EXPECT_EQ(modes[0].hsyncEnd, 3120);
    EXPECT_EQ(modes[0].vsyncStart, 1460);
    EXPECT_EQ(modes[0].vsyncEnd, 1479);
    EXPECT_EQ(modes[0].flags, unsigned(DRM_MODE_FLAG_NHSYNC | DRM_MODE_FLAG_NVSYNC));
}

TEST(EdidModes, FirstTimingIsPreferredAlsoWhereItIsNotTheLargest) {
    const Edid edid = Edid().descriptor(0, hd60).descriptor(1, fullHd60);
    EXPECT_EQ(listOf(edid.bytes()), (List{"*1280x720@60 74250", "1920x1080@60 148500"}));
    EXPECT_EQ(listOf(Edid(edid).set(24, 0).bytes()),
              (List{"1920x1080@60 148500", "1280x720@60 74250"}))
        << "before revision 4 a bit tells whether there is a preferred timing";
    EXPECT_EQ(listOf(Edid(edid).set(24, 0).set(19, 4).bytes()),
              (List{"*1280x720@60 74250", "1920x1080@60 148500"}));
}

TEST(EdidModes, InterlacedTimingIsListedAsWholePicture) {
    const Timing fields{7425, 1920, 88, 44, 280, 540, 2, 5, 22, 0x9e};
    const auto modes = modesFromEdid(Edid().descriptor(0, fields).bytes());
    ASSERT_EQ(modes.size(), 1U);
    EXPECT_EQ(modes[0].name, "1920x1080i");
    EXPECT_EQ(modes[0].vsyncStart, 1084);
    EXPECT_EQ(modes[0].vsyncEnd, 1094);
    EXPECT_EQ(modes[0].vtotal, 1125);
    EXPECT_EQ(modes[0].vrefresh_Hz, 60U);
    EXPECT_TRUE(modes[0].flags & DRM_MODE_FLAG_INTERLACE);
}

TEST(EdidModes, UnusableTimingsAreLeftOut) {
    Timing stereo = hd60, tiny = hd60, noSync = hd60, noClock = hd60, late = hd60;
    stereo.flags |= 0x60;
    tiny.hactive = 60;
    noSync.vsync = 0;
    noClock.clock_10kHz = 0;
    late.hfront = late.hblank + 10;
    for (const Timing& wrong : {stereo, tiny, noSync, noClock, late})
        EXPECT_EQ(listOf(Edid().descriptor(0, wrong).descriptor(1, fullHd60).bytes()),
                  (List{"*1920x1080@60 148500"}));
}

TEST(EdidModes, SyncBeyondTheTotalIsCut) {
    Timing wrong = fullHd60;
    wrong.hblank = 120;
    const auto modes = modesFromEdid(Edid().descriptor(0, wrong).bytes());
    ASSERT_EQ(modes.size(), 1U);
    EXPECT_EQ(modes[0].htotal, 2040);
    EXPECT_EQ(modes[0].hsyncEnd, 2040);
}

TEST(EdidModes, ClockOfACtaFormatIsMadeExact) {
    Timing ntsc = fullHd60;
    ntsc.clock_10kHz = 14835;
    EXPECT_EQ(listOf(Edid().descriptor(0, ntsc).bytes()), (List{"*1920x1080@60 148352"}));
}

TEST(EdidModes, CtaFormatsComeWithTheirOtherRate) {
    const Edid edid = Edid().descriptor(0, hd60).cta({video | 3, 0x80 | 16, 31, 97});
    EXPECT_EQ(listOf(edid.bytes()),
              (List{"*1280x720@60 74250", "3840x2160@60 594000", "3840x2160@60 593407",
                    "1920x1080@60 148500", "1920x1080@60 148352", "1920x1080@50 148500",
                    "1280x720@60 74176"}));
}

TEST(EdidModes, OtherRatesNeedACtaExtension) {
    EXPECT_EQ(listOf(Edid().descriptor(0, hd60).bytes()).size(), 1U);
    EXPECT_EQ(listOf(Edid().descriptor(0, hd60).cta({}).bytes()).size(), 2U);
}

TEST(EdidModes, FormatsOfTheHdmiBlock) {
    const Edid plain = Edid().cta({vendor | 10, 0x03, 0x0c, 0, 0, 0, 0, 0, 0x20, 0, 0x60 | 0});
    EXPECT_EQ(listOf(plain.bytes()), List{}) << "the list ends with the data block";
    const Edid edid =
        Edid().cta({vendor | 14, 0x03, 0x0c, 0, 0, 0, 0, 0, 0xa0, 1, 2, 0, 0x40, 1, 4});
    EXPECT_EQ(listOf(edid.bytes()), (List{"4096x2160@24 297000", "4096x2160@24 296703",
                                          "3840x2160@30 297000", "3840x2160@30 296703"}));
    const Edid other =
        Edid().cta({vendor | 14, 0x04, 0x0c, 0, 0, 0, 0, 0, 0xa0, 1, 2, 0, 0x40, 1, 4});
    EXPECT_EQ(listOf(other.bytes()), List{}) << "another vendor's block";
}

TEST(EdidModes, TimingsOfTheCtaExtension) {
    const Edid edid = Edid().descriptor(0, hd60).cta({}, {fullHd60, hd60});
    EXPECT_EQ(listOf(edid.bytes()), (List{"*1280x720@60 74250", "1920x1080@60 148500",
                                          "1920x1080@60 148352", "1280x720@60 74176"}));
}

TEST(EdidModes, EstablishedAndStandardTimings) {
    // 640x480@60, 1024x768@75; 1280x1024@60, 1440x900@60 (16:10), 1920x1080@60 (16:9).
    const Edid edid = Edid()
                          .set(35, 0x20)
                          .set(36, 0x02)
                          .set(38, 0x81)
                          .set(39, 0x80)
                          .set(40, 0x95)
                          .set(41, 0x00)
                          .set(42, 0xd1)
                          .set(43, 0xc0);
    EXPECT_EQ(listOf(edid.bytes()),
              (List{"1920x1080@60 148500", "1280x1024@60 108000", "1440x900@60 88750",
                    "1024x768@75 78750", "640x480@60 25175"}))
        << "digital displays take reduced blanking";
    EXPECT_EQ(listOf(Edid(edid).set(20, 0).bytes())[2], "1440x900@60 106500");
}

TEST(EdidModes, StandardTimingThatIsThereAlreadyAddsNothing) {
    Timing own = fullHd60;
    own.clock_10kHz = 14000;
    own.hblank = 155;
    const Edid edid = Edid().descriptor(0, own).set(38, 0xd1).set(39, 0xc0);
    EXPECT_EQ(listOf(edid.bytes()), (List{"*1920x1080@60 140000"}));
}

TEST(EdidModes, PanelOf1366) {
    // 1360x765 and 1368x769 are what eight-pixel steps can say.
    for (const std::uint8_t code : {0x8b, 0x8c}) {
        const auto modes = modesFromEdid(Edid().set(38, code).set(39, 0xc0).bytes());
        ASSERT_EQ(modes.size(), 1U);
        EXPECT_EQ(modes[0].name, "1366x768");
        EXPECT_EQ(modes[0].clock_kHz, 84750U);
        EXPECT_EQ(modes[0].hsyncStart, 1431);
        EXPECT_EQ(modes[0].hsyncEnd, 1567);
        EXPECT_EQ(modes[0].htotal, 1776);
    }
}

TEST(EdidModes, StandardTimingWithoutTableEntryFollowsTheFormula) {
    const Edid edid = Edid().set(38, 0x71).set(39, 0x40);  // 1152x864@60
    EXPECT_EQ(listOf(edid.bytes()), List{});
    EXPECT_EQ(listOf(Edid(edid).set(24, 0x01).bytes()), (List{"1152x864@60 81624"}));
    EXPECT_EQ(listOf(Edid(edid).set(24, 0x01).set(19, 4).bytes()), (List{"1152x864@60 81750"}));
}

TEST(EdidModes, MoreTimingsInDescriptors) {
    const Edid edid = Edid()
                          .text(0, {0, 0, 0, 0xfa, 0, 0x81, 0x80, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1})
                          .text(1, {0, 0, 0, 0xf7, 0, 10, 0x08, 0, 0, 0, 0, 0})
                          .text(2, {0, 0, 0, 0xf8, 0, 1, 0x1b, 0x24, 0x08, 0, 0, 0});
    EXPECT_EQ(listOf(edid.bytes()),
              (List{"1920x1080@60 173000", "1280x1024@60 108000", "848x480@60 33750"}));
}

TEST(EdidModes, ContinuousFrequencyAddsSmallerTimings) {
    const Edid edid = Edid().descriptor(0, hd60).text(
        1, {0, 0, 0, 0xfd, 0, 56, 61, 30, 50, 8, 0, 10, 32, 32, 32, 32, 32, 32});
    EXPECT_EQ(listOf(edid.bytes()), (List{"*1280x720@60 74250"}));
    const List list = listOf(Edid(edid).set(24, 0x03).bytes());
    EXPECT_EQ(list, (List{"*1280x720@60 74250", "1024x576@60 46996", "800x600@60 40000",
                          "800x600@56 36000", "848x480@60 33750", "640x480@60 25175"}));
}

TEST(EdidModes, DisplayIdTimings) {
    std::vector<std::uint8_t> block = {0x70, 0x12, 23, 0, 0, 0x03, 0, 20};
    const std::vector<std::uint8_t> timing = {0x0f, 0xe4, 0x00, 0x88, 0xff, 0x09, 0x9f,
                                              0x00, 0x2f, 0x80, 0x1f, 0x00, 0x9f, 0x05,
                                              0x3e, 0x00, 0x02, 0x00, 0x04, 0x00};
    block.insert(block.end(), timing.begin(), timing.end());
    const auto modes = modesFromEdid(Edid().extension(block).bytes());
    ASSERT_EQ(modes.size(), 1U);
    EXPECT_EQ(modes[0].name, "2560x1440");
    EXPECT_EQ(modes[0].clock_kHz, 583840U);
    EXPECT_EQ(modes[0].hsyncStart, 2608);
    EXPECT_EQ(modes[0].hsyncEnd, 2640);
    EXPECT_EQ(modes[0].htotal, 2720);
    EXPECT_EQ(modes[0].vsyncStart, 1443);
    EXPECT_EQ(modes[0].vsyncEnd, 1448);
    EXPECT_EQ(modes[0].vtotal, 1503);
    EXPECT_EQ(modes[0].flags, unsigned(DRM_MODE_FLAG_PHSYNC | DRM_MODE_FLAG_NVSYNC));
    EXPECT_TRUE(modes[0].type & DRM_MODE_TYPE_PREFERRED);
}

TEST(EdidModes, SameTimingIsListedOnce) {
    const Edid edid = Edid()
                          .descriptor(0, fullHd60)
                          .descriptor(1, fullHd60)
                          .set(38, 0xd1)
                          .set(39, 0xc0)
                          .cta({video | 2, 16, 0x80 | 16}, {fullHd60});
    EXPECT_EQ(listOf(edid.bytes()), (List{"*1920x1080@60 148500", "1920x1080@60 148352"}));
}

TEST(EdidModes, BlockWithWrongCheckSumIsSkipped) {
    auto edid = Edid().descriptor(0, hd60).cta({video | 1, 97}).cta({video | 1, 31}).bytes();
    edid[255] ^= 1;
    EXPECT_EQ(listOf(edid),
              (List{"*1280x720@60 74250", "1920x1080@50 148500", "1280x720@60 74176"}));
    edid[127] ^= 1;
    EXPECT_EQ(listOf(edid), List{});
}

TEST(EdidModes, NothingComesOfWhatIsNoEdid) {
    EXPECT_TRUE(modesFromEdid({}).empty());
    EXPECT_TRUE(modesFromEdid(std::vector<std::uint8_t>(127, 0)).empty());
    EXPECT_TRUE(modesFromEdid(std::vector<std::uint8_t>(256, 0)).empty());
    EXPECT_TRUE(modesFromEdid(Edid().descriptor(0, hd60).set(3, 0).bytes()).empty());
    auto cut = Edid().descriptor(0, hd60).cta({video | 1, 97}).bytes();
    cut.resize(200);
    EXPECT_EQ(listOf(cut), (List{"*1280x720@60 74250"}));
}
