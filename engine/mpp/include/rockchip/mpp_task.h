// Task mode (MJPEG): work travels in tasks. The program takes an empty task from the input port,
// sets the packet (KEY_INPUT_PACKET) and a frame with its buffer (KEY_OUTPUT_FRAME) and enqueues
// it; the decoder's own thread decodes; the program takes the finished task from the output port,
// reads KEY_OUTPUT_FRAME and enqueues the task to the output port again. Tasks come out in the
// order of the pictures.
//
// What comes out:
//  - a good picture: the program's frame, its sizes, 16-aligned strides, format, pts set and its
//    buffer filled. 4:2:0 is MPP_FMT_YUV420SP, 4:2:2 MPP_FMT_YUV422SP; 4:0:0, 4:4:0, 4:1:1 and
//    4:4:4 come as MPP_FMT_YUV400, _YUV440SP, _YUV411SP and _YUV444SP. Nothing is written beyond
//    the buffer's size.
//  - anything else (damaged, not a baseline JPEG, larger than the buffer, no buffer): another
//  frame,
//    with its error information set and without a buffer. It is the decoder's, valid until the task
//    is enqueued again. The program's frame and what its buffer tells are not to be looked at.
#pragma once

#include "mpp_meta.h"

typedef enum { MPP_PORT_INPUT = 0, MPP_PORT_OUTPUT = 1, MPP_PORT_BUTT = 2 } MppPortType;

// Values between NON_BLOCK and MAX are milliseconds.
typedef enum {
    MPP_POLL_BUTT = -2,
    MPP_POLL_BLOCK = -1,
    MPP_POLL_NON_BLOCK = 0,
    MPP_POLL_MAX = 8000
} MppPollType;

#define MPP_TIMEOUT_BUTT (-2L)
#define MPP_TIMEOUT_BLOCK (-1L)
#define MPP_TIMEOUT_NON_BLOCK (0L)
#define MPP_TIMEOUT_MAX (8000L)

typedef enum { MPP_TASK_ASYNC = 0, MPP_TASK_SYNC = 1, MPP_TASK_WORK_MODE_BUTT = 2 } MppTaskWorkMode;

#ifdef __cplusplus
extern "C" {
#endif

// Only while the task is the program's: between dequeue and enqueue. The decoder holds references
// on packet and frame of its own from enqueue on: releasing them then is safe.
MPP_RET mpp_task_meta_set_s32(MppTask task, MppMetaKey key, RK_S32 val);
MPP_RET mpp_task_meta_set_s64(MppTask task, MppMetaKey key, RK_S64 val);
MPP_RET mpp_task_meta_set_ptr(MppTask task, MppMetaKey key, void* val);
MPP_RET mpp_task_meta_set_frame(MppTask task, MppMetaKey key, MppFrame frame);
MPP_RET mpp_task_meta_set_packet(MppTask task, MppMetaKey key, MppPacket packet);
MPP_RET mpp_task_meta_set_buffer(MppTask task, MppMetaKey key, MppBuffer buffer);

// MPP_NOK, and the default (null), when there is none of that type under the key.
MPP_RET mpp_task_meta_get_s32(MppTask task, MppMetaKey key, RK_S32* val, RK_S32 default_val);
MPP_RET mpp_task_meta_get_s64(MppTask task, MppMetaKey key, RK_S64* val, RK_S64 default_val);
MPP_RET mpp_task_meta_get_ptr(MppTask task, MppMetaKey key, void** val, void* default_val);
MPP_RET mpp_task_meta_get_frame(MppTask task, MppMetaKey key, MppFrame* frame);
MPP_RET mpp_task_meta_get_packet(MppTask task, MppMetaKey key, MppPacket* packet);
MPP_RET mpp_task_meta_get_buffer(MppTask task, MppMetaKey key, MppBuffer* buffer);

#ifdef __cplusplus
}
#endif
