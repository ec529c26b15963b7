// Commands of MppApi::control.
#pragma once

#include "rk_vdec_cmd.h"

#define CMD_MODULE_OSAL 0x00100000
#define CMD_MODULE_MPP 0x00200000
#define CMD_MODULE_CODEC 0x00300000
#define CMD_MODULE_HAL 0x00400000
#define CMD_CTX_ID_DEC 0x00010000
#define CMD_CTX_ID_ENC 0x00020000
#define CMD_CTX_ID_ISP 0x00030000
#define CMD_DEC_QUERY 0x00000100
#define CMD_DEC_CFG 0x00000200

// Commands that the software decoders have no use for are accepted without effect; those without a
// name here are refused with MPP_ERR_VALUE.
typedef enum {
    MPP_SET_INPUT_BLOCK = 0x200002,           // RK_U32*: 0, or 1 for a wait without end
    MPP_SET_INTPUT_BLOCK_TIMEOUT = 0x200003,  // RK_S64*, as the next but one
    MPP_SET_OUTPUT_BLOCK = 0x200004,
    MPP_SET_OUTPUT_BLOCK_TIMEOUT = 0x200005,
    MPP_SET_INPUT_TIMEOUT = 0x200006,   // RK_S64*: 0 no wait, negative for ever, positive ms
    MPP_SET_OUTPUT_TIMEOUT = 0x200007,  // RK_S64*, likewise

    MPP_DEC_SET_FRAME_INFO = 0x310001,
    MPP_DEC_SET_EXT_BUF_GROUP = 0x310002,      // MppBufferGroup: where frames get their memory
    MPP_DEC_SET_INFO_CHANGE_READY = 0x310003,  // no parameter
    MPP_DEC_SET_PRESENT_TIME_ORDER = 0x310004,
    // RK_U32*: 0 (as at the start): every packet is one picture; 1: packets may be cut anywhere
    MPP_DEC_SET_PARSER_SPLIT_MODE = 0x310005,
    MPP_DEC_SET_PARSER_FAST_MODE = 0x310006,
    MPP_DEC_GET_STREAM_COUNT = 0x310007,  // RK_S32*: packets that wait
    MPP_DEC_GET_VPUMEM_USED_COUNT = 0x310008,
    MPP_DEC_SET_VC1_EXTRA_DATA = 0x310009,
    MPP_DEC_SET_OUTPUT_FORMAT = 0x31000a,  // MppFrameFormat*; the format stays as decoded
    MPP_DEC_SET_DISABLE_ERROR = 0x31000b,  // RK_U32*: 1: no error information on damaged frames
    MPP_DEC_SET_IMMEDIATE_OUT = 0x31000c,
    MPP_DEC_SET_ENABLE_DEINTERLACE = 0x31000d,
    MPP_DEC_SET_ENABLE_FAST_PLAY = 0x31000e,
    MPP_DEC_SET_DISABLE_THREAD = 0x31000f,
    MPP_DEC_SET_MAX_USE_BUFFER_SIZE = 0x310010,
    MPP_DEC_SET_ENABLE_MVC = 0x310011,

    MPP_DEC_QUERY = 0x310101,  // MppDecQueryCfg*

    MPP_DEC_SET_CFG = 0x310201,
    MPP_DEC_GET_CFG = 0x310202,

    MPI_CMD_BUTT
} MpiCmd;
