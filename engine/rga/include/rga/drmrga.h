// Records that describe the pictures of a blit. Field order and types are those of the board's
// library, so that a program built against either finds the same record.
#pragma once

#include <rga/rga.h>
#include <cerrno>

// Degrees clockwise. The three low bits combine: flips first, then the quarter turn.
#define HAL_TRANSFORM_FLIP_H 0x01
#define HAL_TRANSFORM_FLIP_V 0x02
#define HAL_TRANSFORM_ROT_90 0x04
#define HAL_TRANSFORM_ROT_180 0x03
#define HAL_TRANSFORM_ROT_270 0x07
#define HAL_TRANSFORM_FLIP_H_V 0x08

// Part of a picture, in pixels. The strides are the whole picture's: chroma begins at
// wstride * hstride.
typedef struct rga_rect {
    int xoffset;
    int yoffset;
    int width;
    int height;
    int wstride;
    int hstride;
    int format;
    int size;  // not read
} rga_rect_t;

typedef struct rga_nn {
    int nn_flag;
    int scale_r;
    int scale_g;
    int scale_b;
    int offset_r;
    int offset_g;
    int offset_b;
} rga_nn_t;

typedef struct rga_dither {
    int enable;
    int mode;
    int lut0_l;
    int lut0_h;
    int lut1_l;
    int lut1_h;
} rga_dither_t;

// Clear it to zero before use and set fields by name. The software engine reads virAddr, rect,
// rotation, blend and color; it does not know dma-bufs (fd) or physical addresses.
typedef struct rga_info {
    int fd;
    void* virAddr;
    void* phyAddr;
    unsigned hnd;
    int format;  // used where rect.format is 0 and this is not
    rga_rect_t rect;
    unsigned int blend;
    int bufferSize;
    int rotation;  // HAL_TRANSFORM_..., 0: none
    int color;     // of a fill: red in the low byte, then green, blue, alpha
    int testLog;
    int mmuFlag;
    int colorkey_en;
    int colorkey_mode;
    int colorkey_max;
    int colorkey_min;
    int scale_mode;
    int color_space_mode;
    int sync_mode;
    rga_nn_t nn;
    rga_dither_t dither;
    int rop_code;
    int reserve[127];
} rga_info_t;

static inline int rga_set_rect(rga_rect_t* rect, int x, int y, int w, int h, int sw, int sh,
                               int f) {
    if (rect == nullptr) {
        return -EINVAL;
    }
    rect->xoffset = x;
    rect->yoffset = y;
    rect->width = w;
    rect->height = h;
    rect->wstride = sw;
    rect->hstride = sh;
    rect->format = f;
    return 0;
}

static inline void rga_set_rotation(rga_info_t* info, int angle) {
    if (angle == 90) {
        info->rotation = HAL_TRANSFORM_ROT_90;
    } else if (angle == 180) {
        info->rotation = HAL_TRANSFORM_ROT_180;
    } else if (angle == 270) {
        info->rotation = HAL_TRANSFORM_ROT_270;
    }
}
