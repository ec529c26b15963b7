// Tasks through the two ports.
#include <gtest/gtest.h>

#include <chrono>
#include <vector>

#include "tests/unit/mpp/client.h"
#include "tests/unit/mpp/coded.h"

using client::Clock;
using client::frameBytes;
using client::millisecondsSince;
using client::Mjpeg;
using client::picture;
using client::query;
using client::Shown;
using coded::Bytes;

TEST(MppTasks, PortsGiveWhatTheyHave) {
    Mjpeg decoder(frameBytes);
    MppApi* mpi = decoder.mpi;
    MppCtx ctx = decoder.ctx;
    MppTask task = nullptr;
    EXPECT_EQ(mpi->poll(ctx, MPP_PORT_OUTPUT, MPP_POLL_NON_BLOCK), MPP_ERR_TIMEOUT);
    EXPECT_EQ(mpi->dequeue(ctx, MPP_PORT_OUTPUT, &task), MPP_NOK);
    EXPECT_EQ(task, nullptr);
    EXPECT_EQ(mpi->poll(ctx, MPP_PORT_BUTT, MPP_POLL_NON_BLOCK), MPP_ERR_VALUE);
    EXPECT_EQ(mpi->dequeue(ctx, MPP_PORT_BUTT, &task), MPP_ERR_VALUE);
    EXPECT_EQ(mpi->dequeue(ctx, MPP_PORT_INPUT, nullptr), MPP_ERR_NULL_PTR);
    std::vector<MppTask> taken;
    while (mpi->poll(ctx, MPP_PORT_INPUT, MPP_POLL_NON_BLOCK) == MPP_OK) {
        ASSERT_EQ(mpi->dequeue(ctx, MPP_PORT_INPUT, &task), MPP_OK);
        taken.push_back(task);
        ASSERT_LE(taken.size(), 16U);
    }
    EXPECT_EQ(taken.size(), 4U);
    EXPECT_EQ(mpi->enqueue(ctx, MPP_PORT_OUTPUT, taken[0]), MPP_ERR_VALUE) << "the wrong port";
    EXPECT_EQ(mpi->enqueue(ctx, MPP_PORT_INPUT, nullptr), MPP_ERR_NULL_PTR);
    EXPECT_EQ(mpi->enqueue(ctx, MPP_PORT_INPUT, decoder.frame), MPP_ERR_VALUE);
    Mjpeg other(frameBytes);
    EXPECT_EQ(mpi->enqueue(other.ctx, MPP_PORT_INPUT, taken[0]), MPP_ERR_VALUE) << "not its own";
    // Without packet or frame: an error frame, not a hang.
    ASSERT_EQ(mpi->enqueue(ctx, MPP_PORT_INPUT, taken[0]), MPP_OK);
    EXPECT_EQ(mpi->enqueue(ctx, MPP_PORT_INPUT, taken[0]), MPP_NOK) << "it is not the program's";
    Shown shown;
    ASSERT_TRUE(decoder.receive(shown));
    EXPECT_NE(shown.errinfo, 0U);
    EXPECT_FALSE(shown.hasBuffer);
}

TEST(MppTasks, MetasCarryValuesAndDefaults) {
    Mjpeg decoder(frameBytes);
    MppTask task = nullptr;
    ASSERT_EQ(decoder.mpi->dequeue(decoder.ctx, MPP_PORT_INPUT, &task), MPP_OK);
    RK_S32 small = 0;
    RK_S64 large = 0;
    void* pointer = nullptr;
    EXPECT_EQ(mpp_task_meta_get_s32(task, KEY_TEMPORAL_ID, &small, 7), MPP_NOK);
    EXPECT_EQ(small, 7);
    EXPECT_EQ(mpp_task_meta_set_s32(task, KEY_TEMPORAL_ID, 3), MPP_OK);
    EXPECT_EQ(mpp_task_meta_get_s32(task, KEY_TEMPORAL_ID, &small, 7), MPP_OK);
    EXPECT_EQ(small, 3);
    EXPECT_EQ(mpp_task_meta_set_s64(task, KEY_INPUT_FRAME, 1LL << 40), MPP_OK);
    EXPECT_EQ(mpp_task_meta_get_s64(task, KEY_INPUT_FRAME, &large, 0), MPP_OK);
    EXPECT_EQ(large, 1LL << 40);
    EXPECT_EQ(mpp_task_meta_set_ptr(task, KEY_OUTPUT_PACKET, &small), MPP_OK);
    EXPECT_EQ(mpp_task_meta_get_ptr(task, KEY_OUTPUT_PACKET, &pointer, nullptr), MPP_OK);
    EXPECT_EQ(pointer, &small);
    EXPECT_EQ(mpp_task_meta_set_buffer(task, KEY_OUTPUT_PACKET, decoder.frameBuffer), MPP_OK);
    EXPECT_EQ(mpp_task_meta_get_buffer(task, KEY_OUTPUT_PACKET, &pointer), MPP_OK);
    EXPECT_EQ(pointer, decoder.frameBuffer);
    EXPECT_EQ(mpp_task_meta_get_frame(task, KEY_OUTPUT_FRAME, &pointer), MPP_NOK);
    EXPECT_EQ(pointer, nullptr);
    EXPECT_EQ(mpp_task_meta_set_packet(task, KEY_INPUT_PACKET, decoder.packet), MPP_OK);
    EXPECT_EQ(mpp_task_meta_get_packet(task, KEY_INPUT_PACKET, &pointer), MPP_OK);
    EXPECT_EQ(pointer, decoder.packet);
    EXPECT_EQ(mpp_task_meta_get_s32(task, KEY_TEMPORAL_ID, nullptr, 0), MPP_ERR_NULL_PTR);
    EXPECT_EQ(mpp_task_meta_set_s32(nullptr, KEY_TEMPORAL_ID, 0), MPP_ERR_NULL_PTR);
    EXPECT_EQ(mpp_task_meta_set_s32(decoder.frame, KEY_TEMPORAL_ID, 0), MPP_ERR_VALUE);
    ASSERT_EQ(decoder.mpi->enqueue(decoder.ctx, MPP_PORT_INPUT, task), MPP_OK);
}

TEST(MppTasks, PollsWaitAsLongAsTheyWereTold) {
    Mjpeg decoder(frameBytes);
    const auto start = Clock::now();
    const auto time = static_cast<MppPollType>(60);
    EXPECT_EQ(decoder.mpi->poll(decoder.ctx, MPP_PORT_OUTPUT, time), MPP_ERR_TIMEOUT);
    EXPECT_GE(millisecondsSince(start), 59);
    ASSERT_TRUE(decoder.send(picture(), 5));
    EXPECT_EQ(decoder.mpi->poll(decoder.ctx, MPP_PORT_OUTPUT, MPP_POLL_MAX), MPP_OK);
    Shown shown;
    ASSERT_TRUE(decoder.receive(shown));
    EXPECT_EQ(shown.pts, 5);
}

TEST(MppTasks, SeveralAreUnderWayInOrder) {
    Mjpeg decoder(frameBytes);
    for (RK_S64 i = 0; i < 8; ++i) {  // four decoded and waiting, four more behind them
        ASSERT_TRUE(decoder.send(picture(), i));
    }
    for (RK_S64 i = 0; i < 8; ++i) {
        Shown shown;
        ASSERT_TRUE(decoder.receive(shown));
        EXPECT_EQ(shown.pts, i);
        EXPECT_EQ(shown.errinfo, 0U);
    }
    const MppDecQueryCfg answer = query(decoder.ctx, decoder.mpi);
    EXPECT_EQ(answer.dec_in_pkt_cnt, 8U);
    EXPECT_EQ(answer.dec_hw_run_cnt, 8U);
    EXPECT_EQ(answer.dec_out_frm_cnt, 8U);
    EXPECT_EQ(answer.rt_status, 0U);
    EXPECT_EQ(answer.rt_wait, 1U);
}

TEST(MppTasks, EndOfStreamTravelsThrough) {
    Mjpeg decoder(frameBytes);
    mpp_packet_set_eos(decoder.packet);
    EXPECT_EQ(decoder.decode(picture()).eos, 1U);
}

TEST(MppTasks, ResetDropsWhatWaits) {
    Mjpeg decoder(frameBytes);
    for (int i = 0; i < 6; ++i) {
        ASSERT_TRUE(decoder.send(picture()));
    }
    EXPECT_EQ(decoder.mpi->reset(decoder.ctx), MPP_OK);
    EXPECT_EQ(decoder.mpi->poll(decoder.ctx, MPP_PORT_OUTPUT, MPP_POLL_NON_BLOCK), MPP_ERR_TIMEOUT);
    EXPECT_EQ(decoder.decode(picture()).errinfo, 0U);
}

TEST(MppTasks, PacketAndFrameMayGoWhileTheyAreUnderWay) {
    const RK_U32 before = mpp_buffer_total_now();
    for (int i = 0; i < 40; ++i) {
        EXPECT_EQ(mpp_buffer_total_now(), before) << "round " << i;
        Mjpeg decoder(frameBytes);
        ASSERT_TRUE(decoder.send(picture()));
        mpp_packet_deinit(&decoder.packet);
        mpp_frame_deinit(&decoder.frame);
        mpp_buffer_put(decoder.packetBuffer);
        mpp_buffer_put(decoder.frameBuffer);
        mpp_buffer_group_put(decoder.group);
        if (i % 2 == 0) {
            Shown shown;
            ASSERT_TRUE(decoder.receive(shown));
            EXPECT_EQ(shown.errinfo, 0U);
            EXPECT_TRUE(shown.hasBuffer);
        }
        decoder.packetBuffer = nullptr;
        decoder.frameBuffer = nullptr;
        decoder.group = nullptr;
    }
}
