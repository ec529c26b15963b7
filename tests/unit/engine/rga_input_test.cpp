// What the engine refuses, and that it says so.
#include <gtest/gtest.h>

#include <cerrno>
#include <functional>
#include <ostream>

#include "tests/unit/engine/pictures.h"

using namespace pictures;

namespace {

struct Wrong {
    const char* name;
    int error;
    std::function<void(rga_info_t& src, rga_info_t& dst)> spoil;
};

void PrintTo(const Wrong& one, std::ostream* out) {
    *out << one.name;
}

void set(rga_info_t& info, int x, int y, int w, int h, int ws, int hs) {
    rga_set_rect(&info.rect, x, y, w, h, ws, hs, info.rect.format);
}

const std::vector<Wrong> wrongInputs = {
    {"source_memory_null", EINVAL, [](auto& src, auto&) { src.virAddr = nullptr; }},
    {"destination_memory_null", EINVAL, [](auto&, auto& dst) { dst.virAddr = nullptr; }},
    {"width_zero", EINVAL, [](auto& src, auto&) { set(src, 0, 0, 0, 32, 64, 32); }},
    {"height_zero", EINVAL, [](auto&, auto& dst) { set(dst, 0, 0, 64, 0, 64, 32); }},
    {"width_negative", EINVAL, [](auto& src, auto&) { set(src, 0, 0, -64, 32, 64, 32); }},
    {"height_negative", EINVAL, [](auto&, auto& dst) { set(dst, 0, 0, 64, -1, 64, 32); }},
    {"stride_below_width", EINVAL, [](auto& src, auto&) { set(src, 0, 0, 64, 32, 63, 32); }},
    {"lines_below_height", EINVAL, [](auto&, auto& dst) { set(dst, 0, 0, 64, 32, 64, 31); }},
    {"stride_zero", EINVAL, [](auto& src, auto&) { set(src, 0, 0, 64, 32, 0, 0); }},
    {"x_negative", EINVAL, [](auto& src, auto&) { set(src, -2, 0, 32, 32, 64, 32); }},
    {"y_negative", EINVAL, [](auto&, auto& dst) { set(dst, 0, -1, 32, 16, 64, 32); }},
    {"x_beyond", EINVAL, [](auto& src, auto&) { set(src, 33, 0, 32, 32, 64, 32); }},
    {"y_beyond", EINVAL, [](auto&, auto& dst) { set(dst, 0, 17, 32, 16, 64, 32); }},
    {"x_overflows", EINVAL, [](auto& src, auto&) { set(src, 0x7fffffff, 0, 2, 2, 64, 32); }},
    {"too_wide", EINVAL, [](auto& src, auto&) { set(src, 0, 0, 8193, 32, 8193, 32); }},
    {"too_high", EINVAL, [](auto&, auto& dst) { set(dst, 0, 0, 2, 8193, 2, 8193); }},
    {"stride_too_large", EINVAL, [](auto& src, auto&) { set(src, 0, 0, 2, 2, 0x7ffffff0, 2); }},
    {"source_code_unknown", EINVAL, [](auto& src, auto&) { src.rect.format = 0x10000; }},
    {"code_of_the_old_numbering", EINVAL, [](auto& src, auto&) { src.rect.format = 0xe; }},
    {"no_format_at_all", EINVAL, [](auto&, auto& dst) { dst.rect.format = 0; }},
    {"source_without_conversion", ENOTSUP, [](auto& src, auto&) { src.rect.format = 0x400; }},
    {"destination_without_conversion", ENOTSUP, [](auto&, auto& dst) { dst.rect.format = 0x800; }},
    {"rotation_unknown", EINVAL, [](auto& src, auto&) { src.rotation = 9; }},
    {"rotation_negative", EINVAL, [](auto& src, auto&) { src.rotation = -1; }},
    {"blending", ENOTSUP, [](auto& src, auto&) { src.blend = 0xff0105; }},
};

class RgaWrongInput : public testing::TestWithParam<Wrong> {};

}  // namespace

TEST_P(RgaWrongInput, IsRefusedAndNothingIsWritten) {
    // RGB sizes, so that every code of the table fits the memory.
    Picture sourceMemory(RK_FORMAT_RGB_888, 64, 32);
    Picture destinationMemory(RK_FORMAT_RGB_888, 64, 32);
    sourceMemory.fillRandom(1);
    destinationMemory.fillBytes(0x5a);
    rga_info_t src = sourceMemory.info();
    rga_info_t dst = destinationMemory.info();
    src.rect.format = RK_FORMAT_YCrCb_420_P;
    dst.rect.format = RK_FORMAT_YCrCb_420_SP;
    RockchipRga engine;
    rga_info_t goodSource = src;
    rga_info_t goodDestination = dst;

    GetParam().spoil(src, dst);
    errno = 0;
    EXPECT_NE(engine.RkRgaBlit(&src, &dst, nullptr), 0);
    EXPECT_EQ(errno, GetParam().error);
    for (std::size_t i = 0; i < destinationMemory.memory().size(); ++i) {
        ASSERT_EQ(destinationMemory.memory().data()[i], 0x5a) << "byte " << i;
    }
    EXPECT_EQ(engine.RkRgaBlit(&goodSource, &goodDestination, nullptr), 0);
}

INSTANTIATE_TEST_SUITE_P(Table, RgaWrongInput, testing::ValuesIn(wrongInputs),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(RgaInput, MissingRecordsAreRefused) {
    Picture picture(RK_FORMAT_YCrCb_420_SP, 16, 16);
    rga_info_t info = picture.info();
    RockchipRga engine;
    errno = 0;
    EXPECT_NE(engine.RkRgaBlit(nullptr, &info, nullptr), 0);
    EXPECT_EQ(errno, EINVAL);
    errno = 0;
    EXPECT_NE(engine.RkRgaBlit(&info, nullptr, nullptr), 0);
    EXPECT_EQ(errno, EINVAL);
    errno = 0;
    EXPECT_NE(engine.RkRgaCollorFill(nullptr), 0);
    EXPECT_EQ(errno, EINVAL);
    errno = 0;
    EXPECT_NE(engine.RkRgaBlit(&info, &info, &info), 0);
    EXPECT_EQ(errno, ENOTSUP);
}

TEST(RgaInput, RectangleHelperRefusesNull) {
    EXPECT_EQ(rga_set_rect(nullptr, 0, 0, 1, 1, 1, 1, 0), -EINVAL);
    rga_rect_t rect{};
    rect.size = 77;
    EXPECT_EQ(rga_set_rect(&rect, 1, 2, 3, 4, 5, 6, 0xe00), 0);
    EXPECT_EQ(rect.xoffset, 1);
    EXPECT_EQ(rect.yoffset, 2);
    EXPECT_EQ(rect.width, 3);
    EXPECT_EQ(rect.height, 4);
    EXPECT_EQ(rect.wstride, 5);
    EXPECT_EQ(rect.hstride, 6);
    EXPECT_EQ(rect.format, 0xe00);
    EXPECT_EQ(rect.size, 77);
}

TEST(RgaInput, LargestPictureIsTaken) {
    Picture source(RK_FORMAT_YCbCr_420_SP, 8192, 2);
    Picture destination(RK_FORMAT_YCbCr_420_SP, 2, 8192);
    source.fill(red(source.code()));
    rga_info_t src = source.info();
    rga_info_t dst = destination.info();
    RockchipRga engine;
    ASSERT_EQ(engine.RkRgaBlit(&src, &dst, nullptr), 0);
    EXPECT_LE(distance(destination.at(1, 8191), red(destination.code())), 2);
}

TEST(RgaFill, PaintsTheRectangleOnly) {
    for (const Code& code : destinations) {
        SCOPED_TRACE(code.name);
        Picture picture(code.code, 40, 20);
        picture.fillBytes(0x33);
        const Sample before = picture.at(0, 0);
        rga_info_t info = picture.info(4, 2, 20, 10);
        info.color = 0x0000ff;  // red
        RockchipRga engine;
        ASSERT_EQ(engine.RkRgaCollorFill(&info), 0);
        for (int y = 0; y < 20; ++y) {
            for (int x = 0; x < 40; ++x) {
                const bool inside = x >= 4 && x < 24 && y >= 2 && y < 12;
                ASSERT_LE(distance(picture.at(x, y), inside ? red(code.code) : before),
                          inside ? 1 : 0)
                    << x << "," << y;
            }
        }
    }
}
