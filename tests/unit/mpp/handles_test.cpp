// Packets, frames and metas.
#include <rockchip/rk_mpi.h>

#include <gtest/gtest.h>

#include <vector>

TEST(MppPackets, TellDataAndWhatIsNotReadYet) {
    std::vector<unsigned char> memory(100);
    MppPacket packet = nullptr;
    ASSERT_EQ(mpp_packet_init(&packet, memory.data(), memory.size()), MPP_OK);
    EXPECT_EQ(mpp_packet_get_data(packet), memory.data());
    EXPECT_EQ(mpp_packet_get_pos(packet), memory.data());
    EXPECT_EQ(mpp_packet_get_size(packet), 100U);
    EXPECT_EQ(mpp_packet_get_length(packet), 100U);
    mpp_packet_set_pos(packet, memory.data() + 30);
    EXPECT_EQ(mpp_packet_get_length(packet), 70U);
    EXPECT_EQ(mpp_packet_get_pos(packet), memory.data() + 30);
    mpp_packet_set_length(packet, 20);
    EXPECT_EQ(mpp_packet_get_length(packet), 20U);
    EXPECT_EQ(mpp_packet_get_size(packet), 100U);
    mpp_packet_set_pts(packet, -5);
    mpp_packet_set_dts(packet, 1LL << 40);
    EXPECT_EQ(mpp_packet_get_pts(packet), -5);
    EXPECT_EQ(mpp_packet_get_dts(packet), 1LL << 40);
    EXPECT_EQ(mpp_packet_get_eos(packet), 0U);
    EXPECT_EQ(mpp_packet_set_eos(packet), MPP_OK);
    EXPECT_EQ(mpp_packet_get_eos(packet), 1U);
    EXPECT_EQ(mpp_packet_set_extra_data(packet), MPP_OK);
    EXPECT_EQ(mpp_packet_clr_eos(packet), MPP_OK);
    EXPECT_EQ(mpp_packet_get_eos(packet), 0U);
    EXPECT_NE(mpp_packet_get_flag(packet), 0U) << "the extra data's stays";
    mpp_packet_set_flag(packet, 0);
    EXPECT_EQ(mpp_packet_get_flag(packet), 0U);
    EXPECT_EQ(mpp_packet_deinit(&packet), MPP_OK);
    EXPECT_EQ(packet, nullptr);
}

// As a program fills an empty packet for every piece of its stream.
TEST(MppPackets, GrowFromEmpty) {
    std::vector<unsigned char> memory(5000);
    MppPacket packet = nullptr;
    ASSERT_EQ(mpp_packet_init(&packet, nullptr, 0), MPP_OK);
    EXPECT_EQ(mpp_packet_get_data(packet), nullptr);
    EXPECT_EQ(mpp_packet_get_length(packet), 0U);
    mpp_packet_set_data(packet, memory.data());
    mpp_packet_set_size(packet, memory.size());
    mpp_packet_set_pos(packet, memory.data());
    EXPECT_EQ(mpp_packet_get_length(packet), 5000U);
    mpp_packet_set_length(packet, 4321);
    EXPECT_EQ(mpp_packet_get_length(packet), 4321U);
    mpp_packet_set_data(packet, nullptr);
    MppPacket copy = nullptr;
    EXPECT_EQ(mpp_packet_copy_init(&copy, packet), MPP_OK);
    EXPECT_EQ(mpp_packet_get_length(copy), 0U) << "no data, whatever the position says";
    EXPECT_EQ(mpp_packet_deinit(&copy), MPP_OK);
    EXPECT_EQ(mpp_packet_deinit(&packet), MPP_OK);
}

TEST(MppPackets, NeverReachBeyondTheirMemory) {
    std::vector<unsigned char> memory(64, 3);
    MppPacket packet = nullptr;
    MppPacket copy = nullptr;
    ASSERT_EQ(mpp_packet_init(&packet, memory.data(), memory.size()), MPP_OK);
    mpp_packet_set_pos(packet, memory.data() + 60);
    mpp_packet_set_length(packet, 1 << 20);
    ASSERT_EQ(mpp_packet_copy_init(&copy, packet), MPP_OK);
    EXPECT_EQ(mpp_packet_get_length(copy), 4U);
    EXPECT_EQ(mpp_packet_deinit(&copy), MPP_OK);
    mpp_packet_set_pos(packet, memory.data() + 65);
    EXPECT_EQ(mpp_packet_get_length(packet), 0U);
    mpp_packet_set_pos(packet, memory.data() - 1);
    EXPECT_EQ(mpp_packet_get_length(packet), 0U);
    char byte = 0;
    EXPECT_EQ(mpp_packet_read(packet, 63, &byte, 1), MPP_OK);
    EXPECT_EQ(byte, 3);
    EXPECT_EQ(mpp_packet_read(packet, 64, &byte, 1), MPP_ERR_VALUE);
    EXPECT_EQ(mpp_packet_write(packet, ~size_t{0}, &byte, 2), MPP_ERR_VALUE);
    byte = 9;
    EXPECT_EQ(mpp_packet_write(packet, 63, &byte, 1), MPP_OK);
    EXPECT_EQ(memory[63], 9);
    EXPECT_EQ(mpp_packet_deinit(&packet), MPP_OK);
}

TEST(MppPackets, CopiesStandAlone) {
    std::vector<unsigned char> memory = {1, 2, 3, 4};
    MppPacket packet = nullptr;
    MppPacket copy = nullptr;
    ASSERT_EQ(mpp_packet_init(&packet, memory.data(), memory.size()), MPP_OK);
    mpp_packet_set_pts(packet, 12);
    ASSERT_EQ(mpp_packet_copy_init(&copy, packet), MPP_OK);
    memory.assign(4, 0);
    EXPECT_EQ(mpp_packet_deinit(&packet), MPP_OK);
    EXPECT_EQ(static_cast<unsigned char*>(mpp_packet_get_data(copy))[3], 4);
    EXPECT_EQ(mpp_packet_get_pts(copy), 12);
    EXPECT_EQ(mpp_packet_deinit(&copy), MPP_OK);
}

TEST(MppPackets, WrongArgumentsAreRefused) {
    MppPacket packet = nullptr;
    MppFrame frame = nullptr;
    ASSERT_EQ(mpp_frame_init(&frame), MPP_OK);
    EXPECT_EQ(mpp_packet_init(nullptr, nullptr, 0), MPP_ERR_NULL_PTR);
    EXPECT_EQ(mpp_packet_deinit(nullptr), MPP_ERR_NULL_PTR);
    EXPECT_EQ(mpp_packet_deinit(&packet), MPP_ERR_NULL_PTR);
    EXPECT_EQ(mpp_packet_deinit(&frame), MPP_ERR_VALUE);
    EXPECT_EQ(mpp_packet_init_with_buffer(&packet, nullptr), MPP_ERR_NULL_PTR);
    EXPECT_EQ(mpp_packet_init_with_buffer(&packet, frame), MPP_ERR_VALUE);
    EXPECT_EQ(packet, nullptr);
    EXPECT_EQ(mpp_packet_copy_init(&packet, frame), MPP_ERR_VALUE);
    EXPECT_EQ(mpp_packet_set_eos(frame), MPP_ERR_VALUE);
    mpp_packet_set_length(nullptr, 3);
    mpp_packet_set_pos(frame, nullptr);
    EXPECT_EQ(mpp_packet_get_length(nullptr), 0U);
    EXPECT_EQ(mpp_packet_get_data(frame), nullptr);
    EXPECT_EQ(mpp_frame_deinit(&frame), MPP_OK);
}

TEST(MppFrames, KeepWhatTheyAreTold) {
    MppFrame frame = nullptr;
    ASSERT_EQ(mpp_frame_init(&frame), MPP_OK);
    using Get = RK_U32 (*)(const MppFrame);
    using Set = void (*)(MppFrame, RK_U32);
    const std::pair<Set, Get> fields[] = {
        {mpp_frame_set_width, mpp_frame_get_width},
        {mpp_frame_set_height, mpp_frame_get_height},
        {mpp_frame_set_hor_stride, mpp_frame_get_hor_stride},
        {mpp_frame_set_ver_stride, mpp_frame_get_ver_stride},
        {mpp_frame_set_hor_stride_pixel, mpp_frame_get_hor_stride_pixel},
        {mpp_frame_set_offset_x, mpp_frame_get_offset_x},
        {mpp_frame_set_offset_y, mpp_frame_get_offset_y},
        {mpp_frame_set_mode, mpp_frame_get_mode},
        {mpp_frame_set_discard, mpp_frame_get_discard},
        {mpp_frame_set_viewid, mpp_frame_get_viewid},
        {mpp_frame_set_poc, mpp_frame_get_poc},
        {mpp_frame_set_errinfo, mpp_frame_get_errinfo},
        {mpp_frame_set_eos, mpp_frame_get_eos},
        {mpp_frame_set_info_change, mpp_frame_get_info_change},
    };
    RK_U32 value = 100;
    for (const auto& [set, get] : fields) {
        EXPECT_EQ(get(frame), 0U);
        set(frame, ++value);
    }
    value = 100;
    for (const auto& [set, get] : fields) {
        EXPECT_EQ(get(frame), ++value);
    }
    mpp_frame_set_pts(frame, -1);
    mpp_frame_set_dts(frame, -2);
    mpp_frame_set_buf_size(frame, 1U << 31);
    mpp_frame_set_fmt(frame, MPP_FMT_YUV422SP);
    EXPECT_EQ(mpp_frame_get_pts(frame), -1);
    EXPECT_EQ(mpp_frame_get_dts(frame), -2);
    EXPECT_EQ(mpp_frame_get_buf_size(frame), 1U << 31);
    EXPECT_EQ(mpp_frame_get_fmt(frame), MPP_FMT_YUV422SP);
    EXPECT_EQ(mpp_frame_get_buffer(frame), nullptr);
    EXPECT_EQ(mpp_frame_get_next(frame), nullptr);
    EXPECT_EQ(mpp_frame_deinit(&frame), MPP_OK);
    EXPECT_EQ(frame, nullptr);
    EXPECT_EQ(mpp_frame_deinit(&frame), MPP_ERR_NULL_PTR);
    EXPECT_EQ(mpp_frame_get_width(nullptr), 0U);
    mpp_frame_set_width(nullptr, 1);
}

TEST(MppFrames, CarryMetas) {
    MppFrame frame = nullptr;
    ASSERT_EQ(mpp_frame_init(&frame), MPP_OK);
    EXPECT_EQ(mpp_frame_has_meta(frame), 0);
    MppMeta meta = mpp_frame_get_meta(frame);
    ASSERT_NE(meta, nullptr);
    EXPECT_EQ(mpp_frame_has_meta(frame), 1);
    EXPECT_EQ(mpp_frame_get_meta(frame), meta);
    EXPECT_EQ(mpp_meta_set_s32(meta, KEY_TEMPORAL_ID, 3), MPP_OK);
    MppMeta own = nullptr;
    ASSERT_EQ(mpp_meta_get(&own), MPP_OK);
    EXPECT_EQ(mpp_meta_set_s32(own, KEY_TEMPORAL_ID, 4), MPP_OK);
    mpp_frame_set_meta(frame, own);
    EXPECT_EQ(mpp_meta_put(own), MPP_OK);
    RK_S32 value = 0;
    EXPECT_EQ(mpp_meta_get_s32(mpp_frame_get_meta(frame), KEY_TEMPORAL_ID, &value), MPP_OK);
    EXPECT_EQ(value, 4);
    EXPECT_EQ(mpp_frame_deinit(&frame), MPP_OK);
}

TEST(MppMetas, HoldValuesByKeyAndType) {
    MppMeta meta = nullptr;
    ASSERT_EQ(mpp_meta_get(&meta), MPP_OK);
    RK_S32 number = 5;
    EXPECT_EQ(mpp_meta_get_s32(meta, KEY_TEMPORAL_ID, &number), MPP_NOK);
    EXPECT_EQ(number, 5);
    EXPECT_EQ(mpp_meta_set_s32(meta, KEY_TEMPORAL_ID, 1), MPP_OK);
    EXPECT_EQ(mpp_meta_set_s32(meta, KEY_TEMPORAL_ID, 2), MPP_OK);
    EXPECT_EQ(mpp_meta_size(meta), 1);
    EXPECT_EQ(mpp_meta_get_s32(meta, KEY_TEMPORAL_ID, &number), MPP_OK);
    EXPECT_EQ(number, 2);
    RK_S64 large = 0;
    EXPECT_EQ(mpp_meta_get_s64(meta, KEY_TEMPORAL_ID, &large), MPP_NOK) << "it is an s32";
    EXPECT_EQ(mpp_meta_set_s64(meta, KEY_TEMPORAL_ID, 1LL << 50), MPP_OK);
    EXPECT_EQ(mpp_meta_get_s64(meta, KEY_TEMPORAL_ID, &large), MPP_OK);
    EXPECT_EQ(large, 1LL << 50);
    int target = 0;
    void* back = nullptr;
    EXPECT_EQ(mpp_meta_set_ptr(meta, KEY_INPUT_FRAME, &target), MPP_OK);
    EXPECT_EQ(mpp_meta_get_ptr(meta, KEY_INPUT_FRAME, &back), MPP_OK);
    EXPECT_EQ(back, &target);
    MppFrame frame = nullptr;
    EXPECT_EQ(mpp_meta_get_frame(meta, KEY_INPUT_FRAME, &frame), MPP_NOK);
    EXPECT_EQ(mpp_meta_set_frame(meta, KEY_OUTPUT_FRAME, &target), MPP_OK);
    EXPECT_EQ(mpp_meta_get_frame(meta, KEY_OUTPUT_FRAME, &frame), MPP_OK);
    EXPECT_EQ(frame, &target);
    EXPECT_EQ(mpp_meta_set_packet(meta, KEY_INPUT_PACKET, &target), MPP_OK);
    EXPECT_EQ(mpp_meta_get_packet(meta, KEY_INPUT_PACKET, &back), MPP_OK);
    EXPECT_EQ(mpp_meta_set_buffer(meta, KEY_OUTPUT_PACKET, &target), MPP_OK);
    EXPECT_EQ(mpp_meta_get_buffer(meta, KEY_OUTPUT_PACKET, &back), MPP_OK);
    EXPECT_EQ(mpp_meta_get_s32(meta, KEY_TEMPORAL_ID, nullptr), MPP_ERR_NULL_PTR);
    EXPECT_EQ(mpp_meta_put(meta), MPP_OK);
    EXPECT_EQ(mpp_meta_put(nullptr), MPP_ERR_NULL_PTR);
    EXPECT_EQ(mpp_meta_set_s32(nullptr, KEY_TEMPORAL_ID, 1), MPP_ERR_NULL_PTR);
    EXPECT_EQ(mpp_meta_get(nullptr), MPP_ERR_NULL_PTR);
}
