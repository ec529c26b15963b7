// Basic types and handles of the board's video decoder library.
#pragma once

#include <stddef.h>

typedef unsigned char RK_U8;
typedef unsigned short RK_U16;
typedef unsigned int RK_U32;
typedef unsigned long long int RK_U64;
typedef signed char RK_S8;
typedef signed short RK_S16;
typedef signed int RK_S32;
typedef signed long long int RK_S64;

// Names the program in the library's records; a source file may define it before the include.
#ifndef MODULE_TAG
#define MODULE_TAG NULL
#endif

// Handles. A handle of the wrong kind is refused with MPP_ERR_VALUE, a null one with
// MPP_ERR_NULL_PTR; one that was released before must not be used any more.
typedef void* MppCtx;
typedef void* MppParam;
typedef void* MppFrame;
typedef void* MppPacket;
typedef void* MppBuffer;
typedef void* MppBufferGroup;
typedef void* MppTask;
typedef void* MppMeta;
typedef void* MppDecCfg;

typedef enum { MPP_CTX_DEC = 0, MPP_CTX_ENC = 1, MPP_CTX_ISP = 2, MPP_CTX_BUTT = 3 } MppCtxType;

typedef enum {
    MPP_VIDEO_CodingUnused = 0,
    MPP_VIDEO_CodingAutoDetect = 1,
    MPP_VIDEO_CodingMPEG2 = 2,
    MPP_VIDEO_CodingH263 = 3,
    MPP_VIDEO_CodingMPEG4 = 4,
    MPP_VIDEO_CodingWMV = 5,
    MPP_VIDEO_CodingRV = 6,
    MPP_VIDEO_CodingAVC = 7,
    MPP_VIDEO_CodingMJPEG = 8,
    MPP_VIDEO_CodingVP8 = 9,
    MPP_VIDEO_CodingVP9 = 10,
    MPP_VIDEO_CodingVC1 = 0x01000000,
    MPP_VIDEO_CodingFLV1 = 0x01000001,
    MPP_VIDEO_CodingDIVX3 = 0x01000002,
    MPP_VIDEO_CodingVP6 = 0x01000003,
    MPP_VIDEO_CodingHEVC = 0x01000004,
    MPP_VIDEO_CodingAVSPLUS = 0x01000005,
    MPP_VIDEO_CodingAVS = 0x01000006,
    MPP_VIDEO_CodingAVS2 = 0x01000007,
    MPP_VIDEO_CodingAV1 = 0x01000008,
    MPP_VIDEO_CodingKhronosExtensions = 0x6F000000,
    MPP_VIDEO_CodingVendorStartUnused = 0x7F000000,
    MPP_VIDEO_CodingMax = 0x7FFFFFFF
} MppCodingType;
