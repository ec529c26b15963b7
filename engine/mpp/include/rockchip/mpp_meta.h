// Values by key that travel with a task, a frame or a packet. Handles in it stay their owners'.
// One thread at a time.
#pragma once

#include "mpp_frame.h"
#include "mpp_packet.h"

#define FOURCC_META(a, b, c, d)                                                \
    (((RK_U32)(unsigned char)(a) << 24) | ((RK_U32)(unsigned char)(b) << 16) | \
     ((RK_U32)(unsigned char)(c) << 8) | (RK_U32)(unsigned char)(d))

typedef enum MppMetaKey_e {
    KEY_INPUT_FRAME = FOURCC_META('i', 'f', 'r', 'm'),
    KEY_INPUT_PACKET = FOURCC_META('i', 'p', 'k', 't'),
    KEY_OUTPUT_FRAME = FOURCC_META('o', 'f', 'r', 'm'),
    KEY_OUTPUT_PACKET = FOURCC_META('o', 'p', 'k', 't'),
    KEY_TEMPORAL_ID = FOURCC_META('t', 'l', 'i', 'd')
} MppMetaKey;

#define mpp_meta_get(meta) mpp_meta_get_with_tag(meta, MODULE_TAG, __FUNCTION__)

#ifdef __cplusplus
extern "C" {
#endif

MPP_RET mpp_meta_get_with_tag(MppMeta* meta, const char* tag, const char* caller);
MPP_RET mpp_meta_put(MppMeta meta);
RK_S32 mpp_meta_size(MppMeta meta);  // number of values

MPP_RET mpp_meta_set_s32(MppMeta meta, MppMetaKey key, RK_S32 val);
MPP_RET mpp_meta_set_s64(MppMeta meta, MppMetaKey key, RK_S64 val);
MPP_RET mpp_meta_set_ptr(MppMeta meta, MppMetaKey key, void* val);
MPP_RET mpp_meta_set_frame(MppMeta meta, MppMetaKey key, MppFrame frame);
MPP_RET mpp_meta_set_packet(MppMeta meta, MppMetaKey key, MppPacket packet);
MPP_RET mpp_meta_set_buffer(MppMeta meta, MppMetaKey key, MppBuffer buffer);

// MPP_NOK, and the value untouched, when there is none of that type under the key.
MPP_RET mpp_meta_get_s32(MppMeta meta, MppMetaKey key, RK_S32* val);
MPP_RET mpp_meta_get_s64(MppMeta meta, MppMetaKey key, RK_S64* val);
MPP_RET mpp_meta_get_ptr(MppMeta meta, MppMetaKey key, void** val);
MPP_RET mpp_meta_get_frame(MppMeta meta, MppMetaKey key, MppFrame* frame);
MPP_RET mpp_meta_get_packet(MppMeta meta, MppMetaKey key, MppPacket* packet);
MPP_RET mpp_meta_get_buffer(MppMeta meta, MppMetaKey key, MppBuffer* buffer);

#ifdef __cplusplus
}
#endif
