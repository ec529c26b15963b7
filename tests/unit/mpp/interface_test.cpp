// The decoder library's public interface: names, types, values and layouts that a program built for
// a board relies on. Nearly all of it is checked by the compiler.
#include <rockchip/rk_mpi.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <type_traits>

namespace {

template <class One, class Other>
constexpr bool same = std::is_same_v<One, Other>;

// --- types

static_assert(same<RK_U8, unsigned char> && same<RK_S8, signed char>);
static_assert(same<RK_U16, unsigned short> && same<RK_S16, signed short>);
static_assert(same<RK_U32, unsigned int> && same<RK_S32, signed int>);
static_assert(same<RK_U64, unsigned long long> && same<RK_S64, signed long long>);
static_assert(same<MppCtx, void*> && same<MppParam, void*> && same<MppFrame, void*>);
static_assert(same<MppPacket, void*> && same<MppBuffer, void*> && same<MppBufferGroup, void*>);
static_assert(same<MppTask, void*> && same<MppMeta, void*> && same<MppDecCfg, void*>);

// --- values

static_assert(MPP_CTX_DEC == 0 && MPP_CTX_ENC == 1 && MPP_CTX_ISP == 2 && MPP_CTX_BUTT == 3);

static_assert(MPP_VIDEO_CodingUnused == 0 && MPP_VIDEO_CodingAutoDetect == 1);
static_assert(MPP_VIDEO_CodingMPEG2 == 2 && MPP_VIDEO_CodingH263 == 3);
static_assert(MPP_VIDEO_CodingMPEG4 == 4 && MPP_VIDEO_CodingWMV == 5 && MPP_VIDEO_CodingRV == 6);
static_assert(MPP_VIDEO_CodingAVC == 7 && MPP_VIDEO_CodingMJPEG == 8);
static_assert(MPP_VIDEO_CodingVP8 == 9 && MPP_VIDEO_CodingVP9 == 10);
static_assert(MPP_VIDEO_CodingVC1 == 0x01000000 && MPP_VIDEO_CodingFLV1 == 0x01000001);
static_assert(MPP_VIDEO_CodingDIVX3 == 0x01000002 && MPP_VIDEO_CodingVP6 == 0x01000003);
static_assert(MPP_VIDEO_CodingHEVC == 0x01000004 && MPP_VIDEO_CodingAVSPLUS == 0x01000005);
static_assert(MPP_VIDEO_CodingAVS == 0x01000006 && MPP_VIDEO_CodingAVS2 == 0x01000007);
static_assert(MPP_VIDEO_CodingAV1 == 0x01000008);
static_assert(MPP_VIDEO_CodingKhronosExtensions == 0x6F000000);
static_assert(MPP_VIDEO_CodingVendorStartUnused == 0x7F000000);
static_assert(MPP_VIDEO_CodingMax == 0x7FFFFFFF);

static_assert(MPP_OK == 0 && MPP_SUCCESS == 0 && RK_OK == 0 && RK_SUCCESS == 0);
static_assert(MPP_NOK == -1 && MPP_ERR_UNKNOW == -2 && MPP_ERR_NULL_PTR == -3);
static_assert(MPP_ERR_MALLOC == -4 && MPP_ERR_OPEN_FILE == -5 && MPP_ERR_VALUE == -6);
static_assert(MPP_ERR_READ_BIT == -7 && MPP_ERR_TIMEOUT == -8 && MPP_ERR_PERM == -9);
static_assert(MPP_ERR_BASE == -1000 && MPP_ERR_LIST_STREAM == -1001 && MPP_ERR_INIT == -1002);
static_assert(MPP_ERR_VPU_CODEC_INIT == -1003 && MPP_ERR_STREAM == -1004);
static_assert(MPP_ERR_FATAL_THREAD == -1005 && MPP_ERR_NOMEM == -1006 && MPP_ERR_PROTOL == -1007);
static_assert(MPP_FAIL_SPLIT_FRAME == -1008 && MPP_ERR_VPUHW == -1009);
static_assert(MPP_EOS_STREAM_REACHED == -1011 && MPP_ERR_BUFFER_FULL == -1012);
static_assert(MPP_ERR_DISPLAY_FULL == -1013);

static_assert(MPP_FMT_YUV420SP == 0 && MPP_FMT_YUV420SP_10BIT == 1 && MPP_FMT_YUV422SP == 2);
static_assert(MPP_FMT_YUV422SP_10BIT == 3 && MPP_FMT_YUV420P == 4 && MPP_FMT_YUV420SP_VU == 5);
static_assert(MPP_FMT_YUV422P == 6 && MPP_FMT_YUV422SP_VU == 7);
static_assert(MPP_FMT_YUV422_YUYV == 8 && MPP_FMT_YUV422_YVYU == 9);
static_assert(MPP_FMT_YUV422_UYVY == 10 && MPP_FMT_YUV422_VYUY == 11);
static_assert(MPP_FMT_YUV400 == 12 && MPP_FMT_YUV440SP == 13 && MPP_FMT_YUV411SP == 14);
static_assert(MPP_FMT_YUV444SP == 15 && MPP_FMT_YUV444P == 16 && MPP_FMT_YUV444SP_10BIT == 17);
static_assert(MPP_FMT_AYUV2BPP == 18 && MPP_FMT_AYUV1BPP == 19 && MPP_FMT_YUV_BUTT == 20);
static_assert(MPP_FMT_RGB565 == 0x10000 && MPP_FMT_BGR565 == 0x10001);
static_assert(MPP_FMT_RGB555 == 0x10002 && MPP_FMT_BGR555 == 0x10003);
static_assert(MPP_FMT_RGB444 == 0x10004 && MPP_FMT_BGR444 == 0x10005);
static_assert(MPP_FMT_RGB888 == 0x10006 && MPP_FMT_BGR888 == 0x10007);
static_assert(MPP_FMT_RGB101010 == 0x10008 && MPP_FMT_BGR101010 == 0x10009);
static_assert(MPP_FMT_ARGB8888 == 0x1000a && MPP_FMT_ABGR8888 == 0x1000b);
static_assert(MPP_FMT_BGRA8888 == 0x1000c && MPP_FMT_RGBA8888 == 0x1000d);
static_assert(MPP_FMT_ARGB4444 == 0x1000e && MPP_FMT_ARGB1555 == 0x1000f);
static_assert(MPP_FRAME_FMT_MASK == 0x000fffff && MPP_FRAME_FMT_COLOR_MASK == 0x000f0000);
static_assert(MPP_FRAME_FBC_MASK == 0x00f00000 && MPP_FRAME_FBC_AFBC_V1 == 0x00100000);
static_assert(MPP_FRAME_FBC_AFBC_V2 == 0x00200000 && MPP_FRAME_FBC_RKFBC == 0x00400000);
static_assert(MPP_FRAME_FMT_LE_MASK == 0x01000000 && MPP_FRAME_TILE_FLAG == 0x02000000);
static_assert(MPP_FRAME_HDR == 0x04000000);
static_assert(MPP_FRAME_ERR_UNKNOW == 0x1 && MPP_FRAME_ERR_UNSUPPORT == 0x2);
static_assert(MPP_FRAME_ERR_DEC_INVALID == 0x10 && MPP_FRAME_ERR_DEC_HW_ERR == 0x100);
static_assert(MPP_FRAME_ERR_DEC_MISS_REF == 0x200);

static_assert(MPP_PORT_INPUT == 0 && MPP_PORT_OUTPUT == 1 && MPP_PORT_BUTT == 2);
static_assert(MPP_POLL_BUTT == -2 && MPP_POLL_BLOCK == -1 && MPP_POLL_NON_BLOCK == 0);
static_assert(MPP_POLL_MAX == 8000);
static_assert(MPP_TIMEOUT_BUTT == -2L && MPP_TIMEOUT_BLOCK == -1L);
static_assert(MPP_TIMEOUT_NON_BLOCK == 0L && MPP_TIMEOUT_MAX == 8000L);
static_assert(MPP_TASK_ASYNC == 0 && MPP_TASK_SYNC == 1 && MPP_TASK_WORK_MODE_BUTT == 2);

static_assert(MPP_BUFFER_INTERNAL == 0 && MPP_BUFFER_EXTERNAL == 1);
static_assert(MPP_BUFFER_MODE_BUTT == 2);
static_assert(MPP_BUFFER_TYPE_NORMAL == 0 && MPP_BUFFER_TYPE_ION == 1);
static_assert(MPP_BUFFER_TYPE_EXT_DMA == 2 && MPP_BUFFER_TYPE_DRM == 3);
static_assert(MPP_BUFFER_TYPE_DMA_HEAP == 4 && MPP_BUFFER_TYPE_BUTT == 5);
static_assert(MPP_BUFFER_FLAGS_CONTIG == 0x00010000 && MPP_BUFFER_FLAGS_CACHABLE == 0x00020000);
static_assert(MPP_BUFFER_FLAGS_WC == 0x00040000 && MPP_BUFFER_FLAGS_SECURE == 0x00080000);
static_assert(MPP_BUFFER_FLAGS_ALLOC_KMAP == 0x00100000 && MPP_BUFFER_FLAGS_DMA32 == 0x00200000);
static_assert(MPP_BUFFER_TYPE_MASK == 0x0000FFFF && MPP_BUFFER_FLAGS_MASK == 0x003f0000);

static_assert(MPP_DEC_SET_EXT_BUF_GROUP == 0x310002);
static_assert(MPP_DEC_SET_INFO_CHANGE_READY == 0x310003);
static_assert(MPP_DEC_SET_PARSER_SPLIT_MODE == 0x310005);
static_assert(MPP_DEC_SET_OUTPUT_FORMAT == 0x31000a);
static_assert(MPP_SET_INPUT_TIMEOUT == 0x200006 && MPP_SET_OUTPUT_TIMEOUT == 0x200007);
static_assert(MPP_DEC_QUERY == 0x310101);
static_assert(MPP_SET_INPUT_BLOCK == 0x200002 && MPP_SET_INTPUT_BLOCK_TIMEOUT == 0x200003);
static_assert(MPP_SET_OUTPUT_BLOCK == 0x200004 && MPP_SET_OUTPUT_BLOCK_TIMEOUT == 0x200005);
static_assert(MPP_DEC_SET_FRAME_INFO == 0x310001 && MPP_DEC_SET_PRESENT_TIME_ORDER == 0x310004);
static_assert(MPP_DEC_SET_PARSER_FAST_MODE == 0x310006 && MPP_DEC_GET_STREAM_COUNT == 0x310007);
static_assert(MPP_DEC_GET_VPUMEM_USED_COUNT == 0x310008);
static_assert(MPP_DEC_SET_VC1_EXTRA_DATA == 0x310009 && MPP_DEC_SET_DISABLE_ERROR == 0x31000b);
static_assert(MPP_DEC_SET_IMMEDIATE_OUT == 0x31000c);
static_assert(MPP_DEC_SET_ENABLE_DEINTERLACE == 0x31000d);
static_assert(MPP_DEC_SET_ENABLE_FAST_PLAY == 0x31000e && MPP_DEC_SET_DISABLE_THREAD == 0x31000f);
static_assert(MPP_DEC_SET_MAX_USE_BUFFER_SIZE == 0x310010 && MPP_DEC_SET_ENABLE_MVC == 0x310011);
static_assert(MPP_DEC_SET_CFG == 0x310201 && MPP_DEC_GET_CFG == 0x310202);
static_assert(CMD_MODULE_OSAL == 0x00100000 && CMD_MODULE_MPP == 0x00200000);
static_assert(CMD_MODULE_CODEC == 0x00300000 && CMD_MODULE_HAL == 0x00400000);
static_assert(CMD_CTX_ID_DEC == 0x10000 && CMD_CTX_ID_ENC == 0x20000 && CMD_CTX_ID_ISP == 0x30000);

static_assert(MPP_DEC_QUERY_STATUS == 0x1 && MPP_DEC_QUERY_WAIT == 0x2);
static_assert(MPP_DEC_QUERY_FPS == 0x4 && MPP_DEC_QUERY_BPS == 0x8);
static_assert(MPP_DEC_QUERY_DEC_IN_PKT == 0x10 && MPP_DEC_QUERY_DEC_WORK == 0x20);
static_assert(MPP_DEC_QUERY_DEC_OUT_FRM == 0x40 && MPP_DEC_QUERY_ALL == 0x7f);

static_assert(KEY_INPUT_FRAME == 0x6966726d && KEY_INPUT_PACKET == 0x69706b74);
static_assert(KEY_OUTPUT_FRAME == 0x6f66726d && KEY_OUTPUT_PACKET == 0x6f706b74);
static_assert(KEY_TEMPORAL_ID == 0x746c6964);
static_assert(FOURCC_META('t', 'l', 'i', 'd') == 0x746c6964);

// What a program can test before it uses them.
#if !defined(CMD_DEC_QUERY) || !defined(MPP_DEC_QUERY_ALL) || !defined(MPP_TIMEOUT_BLOCK) || \
    !defined(MPP_FRAME_FMT_MASK) || !defined(MODULE_TAG)
#error "a macro that programs test for is missing"
#endif

// --- layouts

#if defined(__LP64__)
constexpr std::size_t slot(std::size_t number) {
    return 8 + (number - 3) * sizeof(void*);
}
static_assert(sizeof(MppApi) == 8 + 14 * 8 + 64);
static_assert(offsetof(MppApi, size) == 0 && offsetof(MppApi, version) == 4);
static_assert(offsetof(MppApi, decode) == slot(3));
static_assert(offsetof(MppApi, decode_put_packet) == slot(4));
static_assert(offsetof(MppApi, decode_get_frame) == slot(5));
static_assert(offsetof(MppApi, encode) == slot(6));
static_assert(offsetof(MppApi, encode_put_frame) == slot(7));
static_assert(offsetof(MppApi, encode_get_packet) == slot(8));
static_assert(offsetof(MppApi, isp) == slot(9));
static_assert(offsetof(MppApi, isp_put_frame) == slot(10));
static_assert(offsetof(MppApi, isp_get_frame) == slot(11));
static_assert(offsetof(MppApi, poll) == slot(12));
static_assert(offsetof(MppApi, dequeue) == slot(13));
static_assert(offsetof(MppApi, enqueue) == slot(14));
static_assert(offsetof(MppApi, reset) == slot(15));
static_assert(offsetof(MppApi, control) == slot(16));
static_assert(offsetof(MppApi, reserv) == slot(17));
static_assert(offsetof(MppBufferInfo, type) == 0 && offsetof(MppBufferInfo, size) == 8);
static_assert(offsetof(MppBufferInfo, ptr) == 16 && offsetof(MppBufferInfo, hnd) == 24);
static_assert(offsetof(MppBufferInfo, fd) == 32 && offsetof(MppBufferInfo, index) == 36);
static_assert(sizeof(MppBufferInfo) == 40);
#endif
static_assert(sizeof(MppDecQueryCfg) == 32);
static_assert(offsetof(MppDecQueryCfg, query_flag) == 0);
static_assert(offsetof(MppDecQueryCfg, rt_status) == 4 && offsetof(MppDecQueryCfg, rt_wait) == 8);
static_assert(offsetof(MppDecQueryCfg, rt_fps) == 12 && offsetof(MppDecQueryCfg, rt_bps) == 16);
static_assert(offsetof(MppDecQueryCfg, dec_in_pkt_cnt) == 20);
static_assert(offsetof(MppDecQueryCfg, dec_hw_run_cnt) == 24);
static_assert(offsetof(MppDecQueryCfg, dec_out_frm_cnt) == 28);
static_assert(sizeof(MPP_RET) == 4 && sizeof(MpiCmd) == 4 && sizeof(MppFrameFormat) == 4);
static_assert(sizeof(MppPollType) == 4 && sizeof(MppMetaKey) == 4);

// --- calls

using Context = MppCtx;
static_assert(same<decltype(MppApi::decode), MPP_RET (*)(Context, MppPacket, MppFrame*)>);
static_assert(same<decltype(MppApi::decode_put_packet), MPP_RET (*)(Context, MppPacket)>);
static_assert(same<decltype(MppApi::decode_get_frame), MPP_RET (*)(Context, MppFrame*)>);
static_assert(same<decltype(MppApi::encode), MPP_RET (*)(Context, MppFrame, MppPacket*)>);
static_assert(same<decltype(MppApi::encode_put_frame), MPP_RET (*)(Context, MppFrame)>);
static_assert(same<decltype(MppApi::encode_get_packet), MPP_RET (*)(Context, MppPacket*)>);
static_assert(same<decltype(MppApi::isp), MPP_RET (*)(Context, MppFrame, MppFrame)>);
static_assert(same<decltype(MppApi::isp_put_frame), MPP_RET (*)(Context, MppFrame)>);
static_assert(same<decltype(MppApi::isp_get_frame), MPP_RET (*)(Context, MppFrame*)>);
static_assert(same<decltype(MppApi::poll), MPP_RET (*)(Context, MppPortType, MppPollType)>);
static_assert(same<decltype(MppApi::dequeue), MPP_RET (*)(Context, MppPortType, MppTask*)>);
static_assert(same<decltype(MppApi::enqueue), MPP_RET (*)(Context, MppPortType, MppTask)>);
static_assert(same<decltype(MppApi::reset), MPP_RET (*)(Context)>);
static_assert(same<decltype(MppApi::control), MPP_RET (*)(Context, MpiCmd, MppParam)>);
static_assert(same<decltype(MppApi::reserv), RK_U32[16]>);

// The function with C linkage and that type; taking its address makes the linker find it.
#define EXPECT_CALL_TYPE(function, ...)                              \
    static_assert(std::is_same_v<decltype(&function), __VA_ARGS__>); \
    EXPECT_NE(reinterpret_cast<const void*>(&function), nullptr)

}  // namespace

TEST(MppInterface, ContextCalls) {
    EXPECT_CALL_TYPE(mpp_create, MPP_RET(*)(MppCtx*, MppApi**));
    EXPECT_CALL_TYPE(mpp_init, MPP_RET(*)(MppCtx, MppCtxType, MppCodingType));
    EXPECT_CALL_TYPE(mpp_destroy, MPP_RET(*)(MppCtx));
    EXPECT_CALL_TYPE(mpp_check_support_format, MPP_RET(*)(MppCtxType, MppCodingType));
    EXPECT_CALL_TYPE(mpp_show_support_format, void (*)());
    EXPECT_CALL_TYPE(mpp_show_color_format, void (*)());
}

TEST(MppInterface, BufferCalls) {
    using Name = const char*;
    EXPECT_CALL_TYPE(mpp_buffer_import_with_tag,
                     MPP_RET(*)(MppBufferGroup, MppBufferInfo*, MppBuffer*, Name, Name));
    EXPECT_CALL_TYPE(mpp_buffer_get_with_tag,
                     MPP_RET(*)(MppBufferGroup, MppBuffer*, size_t, Name, Name));
    EXPECT_CALL_TYPE(mpp_buffer_put_with_caller, MPP_RET(*)(MppBuffer, Name));
    EXPECT_CALL_TYPE(mpp_buffer_inc_ref_with_caller, MPP_RET(*)(MppBuffer, Name));
    EXPECT_CALL_TYPE(mpp_buffer_info_get_with_caller, MPP_RET(*)(MppBuffer, MppBufferInfo*, Name));
    EXPECT_CALL_TYPE(mpp_buffer_read_with_caller,
                     MPP_RET(*)(MppBuffer, size_t, void*, size_t, Name));
    EXPECT_CALL_TYPE(mpp_buffer_write_with_caller,
                     MPP_RET(*)(MppBuffer, size_t, void*, size_t, Name));
    EXPECT_CALL_TYPE(mpp_buffer_get_ptr_with_caller, void* (*)(MppBuffer, Name));
    EXPECT_CALL_TYPE(mpp_buffer_get_fd_with_caller, int (*)(MppBuffer, Name));
    EXPECT_CALL_TYPE(mpp_buffer_get_size_with_caller, size_t(*)(MppBuffer, Name));
    EXPECT_CALL_TYPE(mpp_buffer_get_index_with_caller, int (*)(MppBuffer, Name));
    EXPECT_CALL_TYPE(mpp_buffer_set_index_with_caller, MPP_RET(*)(MppBuffer, int, Name));
    EXPECT_CALL_TYPE(mpp_buffer_get_offset_with_caller, size_t(*)(MppBuffer, Name));
    EXPECT_CALL_TYPE(mpp_buffer_set_offset_with_caller, MPP_RET(*)(MppBuffer, size_t, Name));
    EXPECT_CALL_TYPE(mpp_buffer_group_get,
                     MPP_RET(*)(MppBufferGroup*, MppBufferType, MppBufferMode, Name, Name));
    EXPECT_CALL_TYPE(mpp_buffer_group_put, MPP_RET(*)(MppBufferGroup));
    EXPECT_CALL_TYPE(mpp_buffer_group_clear, MPP_RET(*)(MppBufferGroup));
    EXPECT_CALL_TYPE(mpp_buffer_group_unused, RK_S32(*)(MppBufferGroup));
    EXPECT_CALL_TYPE(mpp_buffer_group_usage, size_t(*)(MppBufferGroup));
    EXPECT_CALL_TYPE(mpp_buffer_group_mode, MppBufferMode(*)(MppBufferGroup));
    EXPECT_CALL_TYPE(mpp_buffer_group_type, MppBufferType(*)(MppBufferGroup));
    EXPECT_CALL_TYPE(mpp_buffer_group_limit_config, MPP_RET(*)(MppBufferGroup, size_t, RK_S32));
    EXPECT_CALL_TYPE(mpp_buffer_total_now, RK_U32(*)());
    EXPECT_CALL_TYPE(mpp_buffer_total_max, RK_U32(*)());
}

TEST(MppInterface, PacketCalls) {
    using Set64 = void (*)(MppPacket, RK_S64);
    using Get64 = RK_S64 (*)(const MppPacket);
    using SetSize = void (*)(MppPacket, size_t);
    using GetSize = size_t (*)(const MppPacket);
    using SetPointer = void (*)(MppPacket, void*);
    using GetPointer = void* (*)(const MppPacket);
    using Plain = MPP_RET (*)(MppPacket);
    using Copy = MPP_RET (*)(MppPacket, size_t, void*, size_t);
    EXPECT_CALL_TYPE(mpp_packet_new, MPP_RET(*)(MppPacket*));
    EXPECT_CALL_TYPE(mpp_packet_init, MPP_RET(*)(MppPacket*, void*, size_t));
    EXPECT_CALL_TYPE(mpp_packet_init_with_buffer, MPP_RET(*)(MppPacket*, MppBuffer));
    EXPECT_CALL_TYPE(mpp_packet_copy_init, MPP_RET(*)(MppPacket*, const MppPacket));
    EXPECT_CALL_TYPE(mpp_packet_deinit, MPP_RET(*)(MppPacket*));
    EXPECT_CALL_TYPE(mpp_packet_set_data, SetPointer);
    EXPECT_CALL_TYPE(mpp_packet_get_data, GetPointer);
    EXPECT_CALL_TYPE(mpp_packet_set_size, SetSize);
    EXPECT_CALL_TYPE(mpp_packet_get_size, GetSize);
    EXPECT_CALL_TYPE(mpp_packet_set_pos, SetPointer);
    EXPECT_CALL_TYPE(mpp_packet_get_pos, GetPointer);
    EXPECT_CALL_TYPE(mpp_packet_set_length, SetSize);
    EXPECT_CALL_TYPE(mpp_packet_get_length, GetSize);
    EXPECT_CALL_TYPE(mpp_packet_set_pts, Set64);
    EXPECT_CALL_TYPE(mpp_packet_get_pts, Get64);
    EXPECT_CALL_TYPE(mpp_packet_set_dts, Set64);
    EXPECT_CALL_TYPE(mpp_packet_get_dts, Get64);
    EXPECT_CALL_TYPE(mpp_packet_set_flag, void (*)(MppPacket, RK_U32));
    EXPECT_CALL_TYPE(mpp_packet_get_flag, RK_U32(*)(const MppPacket));
    EXPECT_CALL_TYPE(mpp_packet_set_eos, Plain);
    EXPECT_CALL_TYPE(mpp_packet_clr_eos, Plain);
    EXPECT_CALL_TYPE(mpp_packet_get_eos, RK_U32(*)(MppPacket));
    EXPECT_CALL_TYPE(mpp_packet_set_extra_data, Plain);
    EXPECT_CALL_TYPE(mpp_packet_set_buffer, void (*)(MppPacket, MppBuffer));
    EXPECT_CALL_TYPE(mpp_packet_get_buffer, MppBuffer(*)(const MppPacket));
    EXPECT_CALL_TYPE(mpp_packet_has_meta, RK_S32(*)(const MppPacket));
    EXPECT_CALL_TYPE(mpp_packet_get_meta, MppMeta(*)(const MppPacket));
    EXPECT_CALL_TYPE(mpp_packet_read, Copy);
    EXPECT_CALL_TYPE(mpp_packet_write, Copy);
}

TEST(MppInterface, FrameCalls) {
    using Get = RK_U32 (*)(const MppFrame);
    using Set = void (*)(MppFrame, RK_U32);
#define EXPECT_FIELD(field)                       \
    EXPECT_CALL_TYPE(mpp_frame_get_##field, Get); \
    EXPECT_CALL_TYPE(mpp_frame_set_##field, Set)
    EXPECT_FIELD(width);
    EXPECT_FIELD(height);
    EXPECT_FIELD(hor_stride);
    EXPECT_FIELD(ver_stride);
    EXPECT_FIELD(hor_stride_pixel);
    EXPECT_FIELD(offset_x);
    EXPECT_FIELD(offset_y);
    EXPECT_FIELD(mode);
    EXPECT_FIELD(discard);
    EXPECT_FIELD(viewid);
    EXPECT_FIELD(poc);
    EXPECT_FIELD(errinfo);
    EXPECT_FIELD(eos);
    EXPECT_FIELD(info_change);
#undef EXPECT_FIELD
    EXPECT_CALL_TYPE(mpp_frame_init, MPP_RET(*)(MppFrame*));
    EXPECT_CALL_TYPE(mpp_frame_deinit, MPP_RET(*)(MppFrame*));
    EXPECT_CALL_TYPE(mpp_frame_get_next, MppFrame(*)(MppFrame));
    EXPECT_CALL_TYPE(mpp_frame_get_pts, RK_S64(*)(const MppFrame));
    EXPECT_CALL_TYPE(mpp_frame_set_pts, void (*)(MppFrame, RK_S64));
    EXPECT_CALL_TYPE(mpp_frame_get_dts, RK_S64(*)(const MppFrame));
    EXPECT_CALL_TYPE(mpp_frame_set_dts, void (*)(MppFrame, RK_S64));
    EXPECT_CALL_TYPE(mpp_frame_get_buf_size, size_t(*)(const MppFrame));
    EXPECT_CALL_TYPE(mpp_frame_set_buf_size, void (*)(MppFrame, size_t));
    EXPECT_CALL_TYPE(mpp_frame_get_buffer, MppBuffer(*)(const MppFrame));
    EXPECT_CALL_TYPE(mpp_frame_set_buffer, void (*)(MppFrame, MppBuffer));
    EXPECT_CALL_TYPE(mpp_frame_has_meta, RK_S32(*)(const MppFrame));
    EXPECT_CALL_TYPE(mpp_frame_get_meta, MppMeta(*)(const MppFrame));
    EXPECT_CALL_TYPE(mpp_frame_set_meta, void (*)(MppFrame, MppMeta));
    EXPECT_CALL_TYPE(mpp_frame_get_fmt, MppFrameFormat(*)(MppFrame));
    EXPECT_CALL_TYPE(mpp_frame_set_fmt, void (*)(MppFrame, MppFrameFormat));
}

TEST(MppInterface, MetaAndTaskCalls) {
    EXPECT_CALL_TYPE(mpp_meta_get_with_tag, MPP_RET(*)(MppMeta*, const char*, const char*));
    EXPECT_CALL_TYPE(mpp_meta_put, MPP_RET(*)(MppMeta));
    EXPECT_CALL_TYPE(mpp_meta_size, RK_S32(*)(MppMeta));
    using Key = MppMetaKey;
    EXPECT_CALL_TYPE(mpp_meta_set_s32, MPP_RET(*)(MppMeta, Key, RK_S32));
    EXPECT_CALL_TYPE(mpp_meta_get_s32, MPP_RET(*)(MppMeta, Key, RK_S32*));
    EXPECT_CALL_TYPE(mpp_meta_set_s64, MPP_RET(*)(MppMeta, Key, RK_S64));
    EXPECT_CALL_TYPE(mpp_meta_get_s64, MPP_RET(*)(MppMeta, Key, RK_S64*));
    EXPECT_CALL_TYPE(mpp_task_meta_set_s32, MPP_RET(*)(MppTask, Key, RK_S32));
    EXPECT_CALL_TYPE(mpp_task_meta_get_s32, MPP_RET(*)(MppTask, Key, RK_S32*, RK_S32));
    EXPECT_CALL_TYPE(mpp_task_meta_set_s64, MPP_RET(*)(MppTask, Key, RK_S64));
    EXPECT_CALL_TYPE(mpp_task_meta_get_s64, MPP_RET(*)(MppTask, Key, RK_S64*, RK_S64));
    EXPECT_CALL_TYPE(mpp_task_meta_get_ptr, MPP_RET(*)(MppTask, Key, void**, void*));
#define EXPECT_HANDLE(name, type)                                            \
    EXPECT_CALL_TYPE(mpp_meta_set_##name, MPP_RET (*)(MppMeta, Key, type));  \
    EXPECT_CALL_TYPE(mpp_meta_get_##name, MPP_RET (*)(MppMeta, Key, type*)); \
    EXPECT_CALL_TYPE(mpp_task_meta_set_##name, MPP_RET (*)(MppTask, Key, type))
    EXPECT_HANDLE(ptr, void*);
    EXPECT_HANDLE(frame, MppFrame);
    EXPECT_HANDLE(packet, MppPacket);
    EXPECT_HANDLE(buffer, MppBuffer);
#undef EXPECT_HANDLE
    EXPECT_CALL_TYPE(mpp_task_meta_get_frame, MPP_RET(*)(MppTask, Key, MppFrame*));
    EXPECT_CALL_TYPE(mpp_task_meta_get_packet, MPP_RET(*)(MppTask, Key, MppPacket*));
    EXPECT_CALL_TYPE(mpp_task_meta_get_buffer, MPP_RET(*)(MppTask, Key, MppBuffer*));
}

// Not in the headers: programs declare them weakly, and must find them here.
extern "C" {
RK_S32 mpp_env_set_u32(const char* name, RK_U32 value) __attribute__((weak));
RK_S32 mpp_env_get_u32(const char* name, RK_U32* value, RK_U32 other) __attribute__((weak));
extern RK_U32 mpp_debug __attribute__((weak));
}

TEST(MppInterface, NamesOutsideTheHeaders) {
    ASSERT_NE(&mpp_env_set_u32, nullptr);
    ASSERT_NE(&mpp_env_get_u32, nullptr);
    ASSERT_NE(&mpp_debug, nullptr);
    RK_U32 value = 0;
    EXPECT_EQ(mpp_env_set_u32("mpi_debug", 77), 0);
    EXPECT_EQ(mpp_env_get_u32("mpi_debug", &value, 5), 0);
    EXPECT_EQ(value, 77U);
    EXPECT_EQ(mpp_env_get_u32("never_set", &value, 5), 0);
    EXPECT_EQ(value, 5U);
    EXPECT_EQ(mpp_env_set_u32(nullptr, 1), MPP_ERR_NULL_PTR);
    mpp_debug = 0x10000000;
    EXPECT_EQ(mpp_debug, 0x10000000U);
    mpp_debug = 0;
}

TEST(MppInterface, TableIsComplete) {
    MppCtx ctx = nullptr;
    MppApi* mpi = nullptr;
    ASSERT_EQ(mpp_create(&ctx, &mpi), MPP_OK);
    EXPECT_EQ(mpi->size, sizeof(MppApi));
    void* const* slots = reinterpret_cast<void* const*>(&mpi->decode);
    for (int i = 0; i < 14; ++i) {
        EXPECT_NE(slots[i], nullptr) << "slot " << i + 3;
    }
    // What a decoder cannot do is refused.
    MppPacket packet = nullptr;
    MppFrame frame = nullptr;
    EXPECT_EQ(mpi->encode(ctx, nullptr, &packet), MPP_NOK);
    EXPECT_EQ(mpi->encode_put_frame(ctx, nullptr), MPP_NOK);
    EXPECT_EQ(mpi->encode_get_packet(ctx, &packet), MPP_NOK);
    EXPECT_EQ(mpi->isp(ctx, nullptr, nullptr), MPP_NOK);
    EXPECT_EQ(mpi->isp_put_frame(ctx, nullptr), MPP_NOK);
    EXPECT_EQ(mpi->isp_get_frame(ctx, &frame), MPP_NOK);
    EXPECT_EQ(mpp_destroy(ctx), MPP_OK);
}
