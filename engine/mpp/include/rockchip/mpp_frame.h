// A decoded picture and what is known of it. One thread at a time.
#pragma once

#include "mpp_buffer.h"

#define MPP_FRAME_FMT_MASK 0x000fffff
#define MPP_FRAME_FMT_COLOR_MASK 0x000f0000
#define MPP_FRAME_FMT_YUV 0x00000000
#define MPP_FRAME_FMT_RGB 0x00010000
#define MPP_FRAME_FBC_MASK 0x00f00000
#define MPP_FRAME_FBC_AFBC_V1 0x00100000
#define MPP_FRAME_FBC_AFBC_V2 0x00200000
#define MPP_FRAME_FBC_RKFBC 0x00400000
#define MPP_FRAME_FMT_LE_MASK 0x01000000
#define MPP_FRAME_TILE_FLAG 0x02000000
#define MPP_FRAME_HDR 0x04000000

// Mask with MPP_FRAME_FMT_MASK before comparing.
typedef enum {
    MPP_FMT_YUV420SP = 0,
    MPP_FMT_YUV420SP_10BIT = 1,
    MPP_FMT_YUV422SP = 2,
    MPP_FMT_YUV422SP_10BIT = 3,
    MPP_FMT_YUV420P = 4,
    MPP_FMT_YUV420SP_VU = 5,
    MPP_FMT_YUV422P = 6,
    MPP_FMT_YUV422SP_VU = 7,
    MPP_FMT_YUV422_YUYV = 8,
    MPP_FMT_YUV422_YVYU = 9,
    MPP_FMT_YUV422_UYVY = 10,
    MPP_FMT_YUV422_VYUY = 11,
    MPP_FMT_YUV400 = 12,
    MPP_FMT_YUV440SP = 13,
    MPP_FMT_YUV411SP = 14,
    MPP_FMT_YUV444SP = 15,
    MPP_FMT_YUV444P = 16,
    MPP_FMT_YUV444SP_10BIT = 17,
    MPP_FMT_AYUV2BPP = 18,
    MPP_FMT_AYUV1BPP = 19,
    MPP_FMT_YUV_BUTT = 20,

    MPP_FMT_RGB565 = MPP_FRAME_FMT_RGB,
    MPP_FMT_BGR565 = MPP_FRAME_FMT_RGB + 1,
    MPP_FMT_RGB555 = MPP_FRAME_FMT_RGB + 2,
    MPP_FMT_BGR555 = MPP_FRAME_FMT_RGB + 3,
    MPP_FMT_RGB444 = MPP_FRAME_FMT_RGB + 4,
    MPP_FMT_BGR444 = MPP_FRAME_FMT_RGB + 5,
    MPP_FMT_RGB888 = MPP_FRAME_FMT_RGB + 6,
    MPP_FMT_BGR888 = MPP_FRAME_FMT_RGB + 7,
    MPP_FMT_RGB101010 = MPP_FRAME_FMT_RGB + 8,
    MPP_FMT_BGR101010 = MPP_FRAME_FMT_RGB + 9,
    MPP_FMT_ARGB8888 = MPP_FRAME_FMT_RGB + 10,
    MPP_FMT_ABGR8888 = MPP_FRAME_FMT_RGB + 11,
    MPP_FMT_BGRA8888 = MPP_FRAME_FMT_RGB + 12,
    MPP_FMT_RGBA8888 = MPP_FRAME_FMT_RGB + 13,
    MPP_FMT_ARGB4444 = MPP_FRAME_FMT_RGB + 14,
    MPP_FMT_ARGB1555 = MPP_FRAME_FMT_RGB + 15,
    MPP_FMT_RGB_BUTT = MPP_FRAME_FMT_RGB + 16
} MppFrameFormat;

// Bits of the error information.
typedef enum {
    MPP_FRAME_ERR_UNKNOW = 0x1,
    MPP_FRAME_ERR_UNSUPPORT = 0x2,
    MPP_FRAME_ERR_DEC_INVALID = 0x10,
    MPP_FRAME_ERR_DEC_HW_ERR = 0x100,
    MPP_FRAME_ERR_DEC_MISS_REF = 0x200
} MppFrameError;

#ifdef __cplusplus
extern "C" {
#endif

MPP_RET mpp_frame_init(MppFrame* frame);
// Gives the frame's reference on its buffer back.
MPP_RET mpp_frame_deinit(MppFrame* frame);
MppFrame mpp_frame_get_next(MppFrame frame);  // null: frames come one by one

RK_U32 mpp_frame_get_width(const MppFrame frame);
void mpp_frame_set_width(MppFrame frame, RK_U32 width);
RK_U32 mpp_frame_get_height(const MppFrame frame);
void mpp_frame_set_height(MppFrame frame, RK_U32 height);
// Strides: bytes of a luma line, and lines before the chroma plane begins.
RK_U32 mpp_frame_get_hor_stride(const MppFrame frame);
void mpp_frame_set_hor_stride(MppFrame frame, RK_U32 hor_stride);
RK_U32 mpp_frame_get_ver_stride(const MppFrame frame);
void mpp_frame_set_ver_stride(MppFrame frame, RK_U32 ver_stride);
RK_U32 mpp_frame_get_hor_stride_pixel(const MppFrame frame);
void mpp_frame_set_hor_stride_pixel(MppFrame frame, RK_U32 hor_stride_pixel);
RK_U32 mpp_frame_get_offset_x(const MppFrame frame);
void mpp_frame_set_offset_x(MppFrame frame, RK_U32 offset_x);
RK_U32 mpp_frame_get_offset_y(const MppFrame frame);
void mpp_frame_set_offset_y(MppFrame frame, RK_U32 offset_y);
RK_U32 mpp_frame_get_mode(const MppFrame frame);
void mpp_frame_set_mode(MppFrame frame, RK_U32 mode);
RK_U32 mpp_frame_get_discard(const MppFrame frame);
void mpp_frame_set_discard(MppFrame frame, RK_U32 discard);
RK_U32 mpp_frame_get_viewid(const MppFrame frame);
void mpp_frame_set_viewid(MppFrame frame, RK_U32 viewid);
RK_U32 mpp_frame_get_poc(const MppFrame frame);
void mpp_frame_set_poc(MppFrame frame, RK_U32 poc);
RK_U32 mpp_frame_get_errinfo(const MppFrame frame);
void mpp_frame_set_errinfo(MppFrame frame, RK_U32 errinfo);
RK_U32 mpp_frame_get_eos(const MppFrame frame);
void mpp_frame_set_eos(MppFrame frame, RK_U32 eos);
// The picture size became known or changed: no picture, only sizes, strides and buf_size.
RK_U32 mpp_frame_get_info_change(const MppFrame frame);
void mpp_frame_set_info_change(MppFrame frame, RK_U32 info_change);
RK_S64 mpp_frame_get_pts(const MppFrame frame);
void mpp_frame_set_pts(MppFrame frame, RK_S64 pts);
RK_S64 mpp_frame_get_dts(const MppFrame frame);
void mpp_frame_set_dts(MppFrame frame, RK_S64 dts);
size_t mpp_frame_get_buf_size(const MppFrame frame);
void mpp_frame_set_buf_size(MppFrame frame, size_t buf_size);
// The buffer stays the frame's; set_buffer takes a reference of its own.
MppBuffer mpp_frame_get_buffer(const MppFrame frame);
void mpp_frame_set_buffer(MppFrame frame, MppBuffer buffer);
RK_S32 mpp_frame_has_meta(const MppFrame frame);
MppMeta mpp_frame_get_meta(const MppFrame frame);  // made when there is none; stays the frame's
void mpp_frame_set_meta(MppFrame frame, MppMeta meta);
MppFrameFormat mpp_frame_get_fmt(MppFrame frame);
void mpp_frame_set_fmt(MppFrame frame, MppFrameFormat fmt);

#ifdef __cplusplus
}
#endif
