// Parameters of the decoder's commands.
#pragma once

#include "rk_type.h"

#define MPP_DEC_QUERY_STATUS 0x00000001
#define MPP_DEC_QUERY_WAIT 0x00000002
#define MPP_DEC_QUERY_FPS 0x00000004
#define MPP_DEC_QUERY_BPS 0x00000008
#define MPP_DEC_QUERY_DEC_IN_PKT 0x00000010
#define MPP_DEC_QUERY_DEC_WORK 0x00000020
#define MPP_DEC_QUERY_DEC_OUT_FRM 0x00000040
#define MPP_DEC_QUERY_ALL 0x0000007f

typedef struct MppDecQueryCfg_t {
    RK_U32 query_flag;  // MPP_DEC_QUERY_...: which of the others are asked for
    RK_U32 rt_status;   // 1 while the decoder works or has work waiting
    RK_U32 rt_wait;     // bits: 1 for a packet, 2 for the program to take a task or a frame or to
                        // give a buffer, 4 for the answer to an information change
    RK_U32 rt_fps;      // pictures a second since the first
    RK_U32 rt_bps;      // coded bits a second since the first
    RK_U32 dec_in_pkt_cnt;   // packets taken
    RK_U32 dec_hw_run_cnt;   // pictures that decoding was tried of
    RK_U32 dec_out_frm_cnt;  // frames given out, without information changes
} MppDecQueryCfg;
