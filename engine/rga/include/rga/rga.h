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

    RK_FORMAT_UNKNOWN = 0x100 << 8,
};
