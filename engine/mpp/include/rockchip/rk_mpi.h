// The board's video decoder: contexts and what they can do. MJPEG goes through tasks (mpp_task.h),
// H.264 through decode_put_packet and decode_get_frame.
//
// A context's calls may come from different threads; mpp_destroy only when no other call is under
// way. Waiting calls end with MPP_NOK when another thread resets the context.
#pragma once

#include "mpp_task.h"
#include "rk_mpi_cmd.h"

typedef struct MppApi_t {
    RK_U32 size;
    RK_U32 version;

    MPP_RET (*decode)(MppCtx ctx, MppPacket packet, MppFrame* frame);
    // Copies what the packet has not read yet. MPP_ERR_BUFFER_FULL when four packets wait already
    // (and the input time-out, 0 at the start, has passed).
    MPP_RET (*decode_put_packet)(MppCtx ctx, MppPacket packet);
    // The next frame, which becomes the caller's: a picture, an information change, or an end of
    // stream. With nothing ready: MPP_OK and null when the output time-out is 0 (as at the start),
    // MPP_ERR_TIMEOUT and null when a positive one has passed.
    // Pictures get memory from the program's group only, and only after the program has answered
    // the information change; while the group has no free buffer decoding waits.
    // Error information: the picture, or one before it since the last key frame, was damaged.
    // Discard: the stream did not start with a key frame; not a picture to rely on.
    MPP_RET (*decode_get_frame)(MppCtx ctx, MppFrame* frame);

    MPP_RET (*encode)(MppCtx ctx, MppFrame frame, MppPacket* packet);
    MPP_RET (*encode_put_frame)(MppCtx ctx, MppFrame frame);
    MPP_RET (*encode_get_packet)(MppCtx ctx, MppPacket* packet);
    MPP_RET (*isp)(MppCtx ctx, MppFrame dst, MppFrame src);
    MPP_RET (*isp_put_frame)(MppCtx ctx, MppFrame frame);
    MPP_RET (*isp_get_frame)(MppCtx ctx, MppFrame* frame);

    // MPP_OK when dequeue has a task to give, MPP_ERR_TIMEOUT when the time has passed.
    MPP_RET (*poll)(MppCtx ctx, MppPortType type, MppPollType timeout);
    // MPP_NOK and null when the port has none.
    MPP_RET (*dequeue)(MppCtx ctx, MppPortType type, MppTask* task);
    MPP_RET (*enqueue)(MppCtx ctx, MppPortType type, MppTask task);

    // Drops everything that waits, in and out, and returns when the decoder is idle. Frames the
    // program holds stay valid.
    MPP_RET (*reset)(MppCtx ctx);
    // Also before mpp_init.
    MPP_RET (*control)(MppCtx ctx, MpiCmd cmd, MppParam param);

    RK_U32 reserv[16];
} MppApi;

#ifdef __cplusplus
extern "C" {
#endif

MPP_RET mpp_create(MppCtx* ctx, MppApi** mpi);
// MPP_NOK for what mpp_check_support_format refuses. Starts the decoder's thread.
MPP_RET mpp_init(MppCtx ctx, MppCtxType type, MppCodingType coding);
// Ends the decoder's thread, whatever it is at, and frees what waits.
MPP_RET mpp_destroy(MppCtx ctx);
MPP_RET mpp_check_support_format(MppCtxType type, MppCodingType coding);
void mpp_show_support_format(void);
void mpp_show_color_format(void);

#ifdef __cplusplus
}
#endif
