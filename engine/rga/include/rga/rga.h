// Pixel format codes of the 2D engine: the number of the layout shifted left by eight.
#pragma once

enum RgaSURF_FORMAT {
    RK_FORMAT_RGBA_8888 = 0x0 << 8,
    RK_FORMAT_RGBX_8888 = 0x1 << 8,
    RK_FORMAT_RGB_888 = 0x2 << 8,  // bytes R, G, B
    RK_FORMAT_BGRA_8888 = 0x3 << 8,
    RK_FORMAT_RGB_565 = 0x4 << 8,  // little-endian word, red in the high bits
    RK_FORMAT_RGBA_5551 = 0x5 << 8,
    RK_FORMAT_RGBA_4444 = 0x6 << 8,
    RK_FORMAT_BGR_888 = 0x7 << 8,  // bytes B, G, R

    RK_FORMAT_YCbCr_422_SP = 0x8 << 8,  // NV16
    RK_FORMAT_YCbCr_422_P = 0x9 << 8,
    RK_FORMAT_YCbCr_420_SP = 0xa << 8,  // NV12
    RK_FORMAT_YCbCr_420_P = 0xb << 8,   // planes Y, U, V
    RK_FORMAT_YCrCb_422_SP = 0xc << 8,  // NV61
    RK_FORMAT_YCrCb_422_P = 0xd << 8,
    RK_FORMAT_YCrCb_420_SP = 0xe << 8,  // NV21
    RK_FORMAT_YCrCb_420_P = 0xf << 8,   // planes Y, V, U

    // Known by name; a blit from or to one of these answers EINVAL.
    RK_FORMAT_BPP1 = 0x10 << 8,
    RK_FORMAT_BPP2 = 0x11 << 8,
    RK_FORMAT_BPP4 = 0x12 << 8,
    RK_FORMAT_BPP8 = 0x13 << 8,
    RK_FORMAT_Y4 = 0x14 << 8,
    RK_FORMAT_YCbCr_400 = 0x15 << 8,
    RK_FORMAT_BGRX_8888 = 0x16 << 8,
    RK_FORMAT_YVYU_422 = 0x18 << 8,
    RK_FORMAT_YVYU_420 = 0x19 << 8,
    RK_FORMAT_VYUY_422 = 0x1a << 8,
    RK_FORMAT_VYUY_420 = 0x1b << 8,
    RK_FORMAT_YUYV_422 = 0x1c << 8,
    RK_FORMAT_YUYV_420 = 0x1d << 8,
    RK_FORMAT_UYVY_422 = 0x1e << 8,
    RK_FORMAT_UYVY_420 = 0x1f << 8,
    RK_FORMAT_YCbCr_420_SP_10B = 0x20 << 8,
    RK_FORMAT_YCrCb_420_SP_10B = 0x21 << 8,
    RK_FORMAT_YCbCr_422_10b_SP = 0x22 << 8,
    RK_FORMAT_YCrCb_422_10b_SP = 0x23 << 8,

    RK_FORMAT_UNKNOWN = 0x100 << 8,
};

// Values of rga_info's color_space_mode; the software engine scales and reorders only.
enum {
    yuv2rgb_mode0 = 0x0,  // BT.601, limited range
    yuv2rgb_mode1 = 0x1,  // BT.601, full range
    yuv2rgb_mode2 = 0x2,  // BT.709
    rgb2yuv_601_full = 0x100,
    rgb2yuv_709_full = 0x200,
};
