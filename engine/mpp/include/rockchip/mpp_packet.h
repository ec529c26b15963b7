// A piece of coded data. data and size tell the whole memory, pos and length the part not read yet.
// One thread at a time.
#pragma once

#include "mpp_buffer.h"

#ifdef __cplusplus
extern "C" {
#endif

MPP_RET mpp_packet_new(MppPacket* packet);
// The memory stays the caller's; null and 0 make an empty packet.
MPP_RET mpp_packet_init(MppPacket* packet, void* data, size_t size);
// The packet takes a reference of its own on the buffer.
MPP_RET mpp_packet_init_with_buffer(MppPacket* packet, MppBuffer buffer);
// With a copy of what `src` has not read yet.
MPP_RET mpp_packet_copy_init(MppPacket* packet, const MppPacket src);
MPP_RET mpp_packet_deinit(MppPacket* packet);

void mpp_packet_set_data(MppPacket packet, void* data);
void* mpp_packet_get_data(const MppPacket packet);
void mpp_packet_set_size(MppPacket packet, size_t size);
size_t mpp_packet_get_size(const MppPacket packet);
// Sets the length to what lies behind the position.
void mpp_packet_set_pos(MppPacket packet, void* pos);
void* mpp_packet_get_pos(const MppPacket packet);
// The decoder reads no further than data + size, whatever the length says.
void mpp_packet_set_length(MppPacket packet, size_t size);
size_t mpp_packet_get_length(const MppPacket packet);
void mpp_packet_set_pts(MppPacket packet, RK_S64 pts);
RK_S64 mpp_packet_get_pts(const MppPacket packet);
void mpp_packet_set_dts(MppPacket packet, RK_S64 dts);
RK_S64 mpp_packet_get_dts(const MppPacket packet);
void mpp_packet_set_flag(MppPacket packet, RK_U32 flag);
RK_U32 mpp_packet_get_flag(const MppPacket packet);
MPP_RET mpp_packet_set_eos(MppPacket packet);
MPP_RET mpp_packet_clr_eos(MppPacket packet);
RK_U32 mpp_packet_get_eos(MppPacket packet);
MPP_RET mpp_packet_set_extra_data(MppPacket packet);
void mpp_packet_set_buffer(MppPacket packet, MppBuffer buffer);
MppBuffer mpp_packet_get_buffer(const MppPacket packet);
RK_S32 mpp_packet_has_meta(const MppPacket packet);
MppMeta mpp_packet_get_meta(const MppPacket packet);

// Offsets count from data. MPP_ERR_VALUE, and nothing copied, when the range leaves the memory.
MPP_RET mpp_packet_read(MppPacket packet, size_t offset, void* data, size_t size);
MPP_RET mpp_packet_write(MppPacket packet, size_t offset, void* data, size_t size);

#ifdef __cplusplus
}
#endif
