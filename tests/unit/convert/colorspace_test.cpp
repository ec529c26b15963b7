// The conversion table and what it asks of the engine.
#include "control/convert/colorspacetransform.h"
#include "control/convert/rkrga.h"
#include "control/task/fourcc.h"

#include "tests/unit/convert/fakeengine.h"

#include <gtest/gtest.h>
#include <cerrno>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

namespace {

int code(const char (&text)[5]) {
    return static_cast<int>(fourccOf(text));
}

class ColorSpace : public testing::Test {
  protected:
    void SetUp() override { FakeEngine::instance() = FakeEngine(); }

    // Converts source of the size to a destination of 1280 x 720.
    bool convert(int from, int to, unsigned width, unsigned height) {
        source.assign(static_cast<std::size_t>(width) * height * 3, 7);
        target.assign(1280 * 720 * 2, 0);
        planes[0] = source.data();
        message.outData[0] = target.data();
        message.width = message.virWidth = 1280;
        message.height = message.virHeight = 720;
        const ColorSpaceTransform transform(from, to, 1280, 720);
        return transform.receiveImage(planes, nullptr, width, height, &message);
    }
    const FakeEngine::Blit& blit() const { return FakeEngine::instance().blits.at(0); }

    std::vector<unsigned char> source, target;
    unsigned char* planes[3] = {};
    msgVideo message;
};

struct Row {
    int from, to;
    unsigned strideWidth, strideHeight;  // of a source of 1900 x 1074
    int srcCode, dstCode;
    bool copied;  // the engine gets another buffer than the source
    bool counted;
};

const Row rows[] = {
    {code("YUYV"), code("RGBP"), 1900, 1074, 0xF00, 0x400, true, true},
    {code("YU12"), code("RGBP"), 1904, 1088, 0xF00, 0x400, false, true},
    {code("NV12"), code("RGBP"), 1904, 1088, 0xE00, 0x400, false, true},
    {code("NV16"), code("RGBP"), 1904, 1088, 0xC00, 0x400, false, true},
    {code("YUYV"), code("NV12"), 1900, 1074, 0xF00, 0xE00, true, false},
    {code("YU12"), code("NV12"), 1904, 1088, 0xF00, 0xE00, false, true},
    {code("NV12"), code("NV12"), 1904, 1088, 0xE00, 0xE00, false, true},
    {code("NV16"), code("NV12"), 1904, 1088, 0xC00, 0xE00, false, true},
    {code("RGB3"), code("NV12"), 1900, 1074, 0x700, 0xE00, false, true},
};

void expectRect(const rga_rect_t& rect, unsigned width, unsigned height, unsigned wstride,
                unsigned hstride, int format) {
    EXPECT_EQ(rect.xoffset, 0);
    EXPECT_EQ(rect.yoffset, 0);
    EXPECT_EQ(rect.width, static_cast<int>(width));
    EXPECT_EQ(rect.height, static_cast<int>(height));
    EXPECT_EQ(rect.wstride, static_cast<int>(wstride));
    EXPECT_EQ(rect.hstride, static_cast<int>(hstride));
    EXPECT_EQ(rect.format, format);
}

}  // namespace

TEST_F(ColorSpace, SizesOfAPicture) {
    for (const Row& row : rows) {
        const bool rgb = row.to == code("RGBP");
        EXPECT_EQ(ColorSpaceTransform(row.from, row.to, 1920, 1080).getDstSize(),
                  rgb ? 4147200U : 3110400U);
        EXPECT_EQ(ColorSpaceTransform(row.from, row.to, 5, 3).getDstSize(), rgb ? 30U : 22U);
    }
}

TEST_F(ColorSpace, SizesAreThirtyTwoBitsWide) {
    // 65536 x 32768 x 3 does not fit; as a signed number it is halved toward zero.
    EXPECT_EQ(ColorSpaceTransform(code("NV12"), code("NV12"), 65536, 32768).getDstSize(),
              0xC0000000U);
    EXPECT_EQ(ColorSpaceTransform(code("NV12"), code("NV12"), 32768, 30001).getDstSize(),
              static_cast<unsigned>(static_cast<int>(32768U * 30001U * 3U) / 2));
    EXPECT_EQ(ColorSpaceTransform(code("NV12"), code("RGBP"), 65536, 32768).getDstSize(), 0U);
}

TEST_F(ColorSpace, UnknownPairsHaveNoConversion) {
    RkRga engine;
    for (const auto& [from, to] :
         {std::make_pair(code("MJPG"), code("NV12")), std::make_pair(code("H264"), code("NV12")),
          std::make_pair(code("YUYV"), code("YU12")), std::make_pair(code("RGB3"), code("RGBP"))}) {
        EXPECT_EQ(ColorSpaceTransform(from, to, 1280, 720).getDstSize(), 0U);
        EXPECT_FALSE(convert(from, to, 64, 64));
    }
    EXPECT_TRUE(FakeEngine::instance().blits.empty());
}

TEST_F(ColorSpace, EveryRowAsksTheEngineForItsLayout) {
    RkRga engine;
    for (const Row& row : rows) {
        SCOPED_TRACE(testing::Message() << std::hex << row.from << " to " << row.to);
        FakeEngine::instance().blits.clear();
        message.size[0] = message.length[0] = 77;
        ASSERT_TRUE(convert(row.from, row.to, 1900, 1074));
        expectRect(blit().src.rect, 1900, 1074, row.strideWidth, row.strideHeight, row.srcCode);
        expectRect(blit().dst.rect, 1280, 720, 1280, 720, row.dstCode);
        EXPECT_EQ(blit().src.fd, -1);
        EXPECT_EQ(blit().dst.fd, -1);
        EXPECT_EQ(blit().src.mmuFlag, 1);
        EXPECT_EQ(blit().dst.mmuFlag, 1);
        EXPECT_EQ(blit().src.virAddr != source.data(), row.copied);
        EXPECT_EQ(blit().dst.virAddr, target.data());
        EXPECT_EQ(blit().src.rotation, 0);
        EXPECT_FALSE(blit().thirdPicture);
        const unsigned bytes = row.to == code("RGBP") ? 1280 * 720 * 2 : 1280 * 720 * 3 / 2;
        EXPECT_EQ(message.size[0], row.counted ? bytes : 77U);
        EXPECT_EQ(message.length[0], row.counted ? bytes : 77U);
    }
}

TEST_F(ColorSpace, DecodedFullHdHasStridesOfSixteen) {
    RkRga engine;
    ASSERT_TRUE(convert(code("NV12"), code("NV12"), 1920, 1080));
    expectRect(blit().src.rect, 1920, 1080, 1920, 1088, 0xE00);
}

TEST_F(ColorSpace, YuyvIsSplitIntoPlanes) {
    std::vector<unsigned char> planar;
    FakeEngine::instance().answer = [&planar](const FakeEngine::Blit& asked) {
        const auto* bytes = static_cast<const unsigned char*>(asked.src.virAddr);
        planar.assign(bytes, bytes + 4 * 2 * 3 / 2);
        return 0;
    };
    RkRga engine;
    unsigned char packed[] = {1, 100, 2, 200, 3, 102, 4, 202, 5, 110, 6, 210, 7, 112, 8, 212};
    unsigned char* packedPlanes[3] = {packed, nullptr, nullptr};
    unsigned char out[64];
    message.outData[0] = out;
    message.width = message.virWidth = 4;
    message.height = 2;
    ASSERT_TRUE(ColorSpaceTransform::yuyv422ToNv12(packedPlanes, nullptr, 4, 2, &message));
    const std::vector<unsigned char> expected = {1, 2, 3, 4, 5, 6, 7, 8, 105, 107, 205, 207};
    EXPECT_EQ(planar, expected);
}

TEST_F(ColorSpace, LinesOfTheDestinationMayBeFurtherApart) {
    RkRga engine;
    unsigned char out[16];
    unsigned char* in[3] = {out, nullptr, nullptr};
    message.outData[0] = out;
    message.width = 1366;
    message.height = message.virHeight = 768;
    message.virWidth = 1408;
    ASSERT_TRUE(ColorSpaceTransform::nv12ToNv12(in, nullptr, 640, 480, &message));
    expectRect(blit().dst.rect, 1366, 768, 1408, 768, 0xE00);
    EXPECT_EQ(message.length[0], 1366U * 768 * 3 / 2);
}

TEST_F(ColorSpace, NothingHappensWithoutADestinationOrAnEngine) {
    EXPECT_EQ(RkRga::getRgaDev(), nullptr);
    for (const Row& row : rows) {
        EXPECT_FALSE(convert(row.from, row.to, 64, 64));
    }
    RkRga engine;
    EXPECT_EQ(RkRga::getRgaDev(), &engine);
    for (const Row& row : rows) {
        const ColorSpaceTransform transform(row.from, row.to, 1280, 720);
        message.outData[0] = nullptr;
        message.length[0] = 77;
        EXPECT_FALSE(transform.receiveImage(planes, nullptr, 64, 64, &message));
        EXPECT_EQ(message.length[0], 77U);
    }
    EXPECT_TRUE(FakeEngine::instance().blits.empty());
}

TEST_F(ColorSpace, ARefusedBlitIsPrintedAndStillCounts) {
    RkRga engine;
    FakeEngine::instance().answer = [](const FakeEngine::Blit&) {
        errno = ENODEV;
        return -ENODEV;
    };
    CaptureStdout();
    EXPECT_TRUE(convert(code("NV12"), code("NV12"), 64, 64));
    EXPECT_EQ(GetCapturedStdout(), "rgaFillColor error : No such device\n");
}

TEST_F(ColorSpace, TheEngineIsMadeAndGivenBackOnce) {
    auto engine = std::make_unique<RkRga>();
    EXPECT_EQ(FakeEngine::instance().initialised, 1);
    EXPECT_EQ(RkRga::getRgaDev(), engine.get());
    engine.reset();
    EXPECT_EQ(FakeEngine::instance().released, 1);
    EXPECT_EQ(RkRga::getRgaDev(), nullptr);
}

TEST_F(ColorSpace, ARotationGoesToTheSource) {
    RkRga engine;
    unsigned char in[16], out[16];
    EXPECT_TRUE(engine.rgaRotaSpaceSwitch(in, 2, 4, 16, 8, 0xE00, out, 4, 2, 32, 6, 0x400,
                                          HAL_TRANSFORM_ROT_90));
    expectRect(blit().src.rect, 2, 4, 16, 8, 0xE00);
    expectRect(blit().dst.rect, 4, 2, 32, 6, 0x400);
    EXPECT_EQ(blit().src.rotation, HAL_TRANSFORM_ROT_90);
    EXPECT_EQ(blit().dst.rotation, 0);
    FakeEngine::instance().answer = [](const FakeEngine::Blit&) {
        errno = EINVAL;
        return -1;
    };
    CaptureStdout();
    EXPECT_FALSE(engine.rgaRotaSpaceSwitch(in, 2, 4, 2, 4, 1, out, 4, 2, 4, 2, 1, 0));
    EXPECT_FALSE(engine.rgaColorSpaceSwitch(in, 2, 4, 2, 4, 1, out, 4, 2, 4, 2, 1));
    const std::string line = "rgaFillColor error : Invalid argument\n";
    EXPECT_EQ(GetCapturedStdout(), line + line);
}
