// The 2D engine's public interface: names, types, values and layouts that a program built for a
// board relies on. Nearly all of it is checked by the compiler.
#include <cerrno>

#include <rga/RgaApi.h>
#include <rga/RockchipRga.h>

#include <rga/rga.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <type_traits>

namespace {

template <class One, class Other>
constexpr bool same = std::is_same_v<One, Other>;

// --- the rectangle

static_assert(same<rga_rect_t, struct rga_rect> && sizeof(rga_rect_t) == 32);
static_assert(offsetof(rga_rect_t, xoffset) == 0 && offsetof(rga_rect_t, yoffset) == 4);
static_assert(offsetof(rga_rect_t, width) == 8 && offsetof(rga_rect_t, height) == 12);
static_assert(offsetof(rga_rect_t, wstride) == 16 && offsetof(rga_rect_t, hstride) == 20);
static_assert(offsetof(rga_rect_t, format) == 24 && offsetof(rga_rect_t, size) == 28);
static_assert(same<decltype(rga_rect_t::xoffset), int> && same<decltype(rga_rect_t::size), int>);

// --- the picture's record

static_assert(same<rga_info_t, struct rga_info>);  // the tag stands in the library's symbols
static_assert(same<decltype(rga_info_t::fd), int> && same<decltype(rga_info_t::hnd), unsigned>);
static_assert(same<decltype(rga_info_t::virAddr), void*>);
static_assert(same<decltype(rga_info_t::phyAddr), void*>);
static_assert(same<decltype(rga_info_t::format), int>);
static_assert(same<decltype(rga_info_t::rect), rga_rect_t>);
static_assert(same<decltype(rga_info_t::blend), unsigned int>);
static_assert(same<decltype(rga_info_t::rotation), int>);
static_assert(same<decltype(rga_info_t::color), int>);
static_assert(same<decltype(rga_info_t::nn), rga_nn_t> && sizeof(rga_nn_t) == 7 * sizeof(int));
static_assert(same<decltype(rga_info_t::dither), rga_dither_t>);
static_assert(sizeof(rga_dither_t) == 6 * sizeof(int));
#if defined(__LP64__)
static_assert(offsetof(rga_info_t, fd) == 0 && offsetof(rga_info_t, virAddr) == 8);
static_assert(offsetof(rga_info_t, phyAddr) == 16 && offsetof(rga_info_t, hnd) == 24);
static_assert(offsetof(rga_info_t, format) == 28 && offsetof(rga_info_t, rect) == 32);
static_assert(offsetof(rga_info_t, blend) == 64 && offsetof(rga_info_t, bufferSize) == 68);
static_assert(offsetof(rga_info_t, rotation) == 72 && offsetof(rga_info_t, color) == 76);
static_assert(offsetof(rga_info_t, testLog) == 80 && offsetof(rga_info_t, mmuFlag) == 84);
static_assert(offsetof(rga_info_t, colorkey_en) == 88 && offsetof(rga_info_t, colorkey_mode) == 92);
static_assert(offsetof(rga_info_t, colorkey_max) == 96);
static_assert(offsetof(rga_info_t, colorkey_min) == 100);
static_assert(offsetof(rga_info_t, scale_mode) == 104);
static_assert(offsetof(rga_info_t, color_space_mode) == 108);
static_assert(offsetof(rga_info_t, sync_mode) == 112 && offsetof(rga_info_t, nn) == 116);
static_assert(offsetof(rga_info_t, dither) == 144 && offsetof(rga_info_t, rop_code) == 168);
static_assert(sizeof(rga_info_t) == 680);
#endif

// --- values

static_assert(RK_FORMAT_RGBA_8888 == 0x0 && RK_FORMAT_RGBX_8888 == 0x100);
static_assert(RK_FORMAT_RGB_888 == 0x200 && RK_FORMAT_BGRA_8888 == 0x300);
static_assert(RK_FORMAT_RGB_565 == 0x400 && RK_FORMAT_RGBA_5551 == 0x500);
static_assert(RK_FORMAT_RGBA_4444 == 0x600 && RK_FORMAT_BGR_888 == 0x700);
static_assert(RK_FORMAT_YCbCr_422_SP == 0x800 && RK_FORMAT_YCbCr_422_P == 0x900);
static_assert(RK_FORMAT_YCbCr_420_SP == 0xa00 && RK_FORMAT_YCbCr_420_P == 0xb00);
static_assert(RK_FORMAT_YCrCb_422_SP == 0xc00 && RK_FORMAT_YCrCb_422_P == 0xd00);
static_assert(RK_FORMAT_YCrCb_420_SP == 0xe00 && RK_FORMAT_YCrCb_420_P == 0xf00);
static_assert(RK_FORMAT_UNKNOWN == 0x10000);
static_assert(RK_FORMAT_BPP1 == 0x1000 && RK_FORMAT_BPP2 == 0x1100);
static_assert(RK_FORMAT_BPP4 == 0x1200 && RK_FORMAT_BPP8 == 0x1300);
static_assert(RK_FORMAT_Y4 == 0x1400 && RK_FORMAT_YCbCr_400 == 0x1500);
static_assert(RK_FORMAT_BGRX_8888 == 0x1600);
static_assert(RK_FORMAT_YVYU_422 == 0x1800 && RK_FORMAT_YVYU_420 == 0x1900);
static_assert(RK_FORMAT_VYUY_422 == 0x1a00 && RK_FORMAT_VYUY_420 == 0x1b00);
static_assert(RK_FORMAT_YUYV_422 == 0x1c00 && RK_FORMAT_YUYV_420 == 0x1d00);
static_assert(RK_FORMAT_UYVY_422 == 0x1e00 && RK_FORMAT_UYVY_420 == 0x1f00);
static_assert(RK_FORMAT_YCbCr_420_SP_10B == 0x2000 && RK_FORMAT_YCrCb_420_SP_10B == 0x2100);
static_assert(RK_FORMAT_YCbCr_422_10b_SP == 0x2200 && RK_FORMAT_YCrCb_422_10b_SP == 0x2300);
static_assert(yuv2rgb_mode0 == 0 && yuv2rgb_mode1 == 1 && yuv2rgb_mode2 == 2);
static_assert(rgb2yuv_601_full == 0x100 && rgb2yuv_709_full == 0x200);
static_assert(HAL_TRANSFORM_FLIP_H == 0x01 && HAL_TRANSFORM_FLIP_V == 0x02);
static_assert(HAL_TRANSFORM_ROT_90 == 0x04 && HAL_TRANSFORM_ROT_180 == 0x03);
static_assert(HAL_TRANSFORM_ROT_270 == 0x07 && HAL_TRANSFORM_FLIP_H_V == 0x08);

// --- the engine

static_assert(std::is_default_constructible_v<RockchipRga> && std::is_destructible_v<RockchipRga>);
static_assert(!std::has_virtual_destructor_v<RockchipRga> && !std::is_polymorphic_v<RockchipRga>);
static_assert(!std::is_copy_constructible_v<RockchipRga>);
static_assert(std::is_base_of_v<Singleton<RockchipRga>, RockchipRga>);
static_assert(same<decltype(&RockchipRga::get), RockchipRga& (*)()>);
static_assert(same<decltype(&RockchipRga::RkRgaGetContext), void (RockchipRga::*)(void**)>);
static_assert(same<decltype(&RockchipRga::RkRgaFlush), int (RockchipRga::*)()>);
static_assert(same<decltype(&RockchipRga::RkRgaInit), int (RockchipRga::*)()>);
static_assert(same<decltype(&RockchipRga::RkRgaDeInit), void (RockchipRga::*)()>);
static_assert(same<decltype(&RockchipRga::RkRgaIsReady), bool (RockchipRga::*)()>);
static_assert(
    same<decltype(&RockchipRga::RkRgaBlit), int (RockchipRga::*)(rga_info*, rga_info*, rga_info*)>);
static_assert(same<decltype(&RockchipRga::RkRgaCollorFill), int (RockchipRga::*)(rga_info*)>);
static_assert(
    same<decltype(&rga_set_rect), int (*)(rga_rect_t*, int, int, int, int, int, int, int)>);
static_assert(same<decltype(&rga_set_rotation), void (*)(rga_info_t*, int)>);

}  // namespace

TEST(RgaInterface, RotationsByAngle) {
    rga_info_t info{};
    const int angles[][2] = {
        {90, HAL_TRANSFORM_ROT_90}, {180, HAL_TRANSFORM_ROT_180}, {270, HAL_TRANSFORM_ROT_270}};
    for (const auto& angle : angles) {
        rga_set_rotation(&info, angle[0]);
        EXPECT_EQ(info.rotation, angle[1]);
    }
    info.rotation = 77;
    rga_set_rotation(&info, 45);
    EXPECT_EQ(info.rotation, 77);
}

TEST(RgaInterface, StartsAndEnds) {
    RockchipRga engine;
    EXPECT_EQ(engine.RkRgaInit(), 0);
    EXPECT_TRUE(engine.RkRgaIsReady());
    EXPECT_EQ(engine.RkRgaFlush(), 0);
    engine.RkRgaDeInit();
}

// What a C program calls reaches the one engine of the process.
TEST(RgaInterface, CallsForCPrograms) {
    void* context = nullptr;
    EXPECT_EQ(c_RkRgaInit(), 0);
    EXPECT_TRUE(Singleton<RockchipRga>::hasInstance());
    c_RkRgaGetContext(&context);
    EXPECT_EQ(context, &RockchipRga::get());
    c_RkRgaGetContext(nullptr);

    constexpr int side = 16;
    unsigned char black[side * side * 3 / 2] = {};
    rga_info_t picture{};
    picture.virAddr = black;
    rga_set_rect(&picture.rect, 0, 0, side, side, side, side, RK_FORMAT_YCbCr_420_SP);
    EXPECT_EQ(RgaCollorFill(&picture), 0);
    EXPECT_EQ(black[0], 16);
    EXPECT_EQ(black[side * side], 128);
    unsigned char copied[sizeof black] = {};
    rga_info_t copy = picture;
    copy.virAddr = copied;
    EXPECT_EQ(RgaBlit(&picture, &copy, nullptr), 0);
    EXPECT_TRUE(std::equal(std::begin(black), std::end(black), std::begin(copied)));
    EXPECT_EQ(c_RkRgaBlit(nullptr, &copy, nullptr), -EINVAL);
    EXPECT_EQ(RgaFlush(), 0);
    c_RkRgaDeInit();
}
