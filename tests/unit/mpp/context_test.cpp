// Contexts: what they take, how calls wait, and that they end at any moment.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <random>
#include <thread>

#include "tests/unit/mpp/client.h"
#include "tests/unit/mpp/coded.h"

using client::Mjpeg;
using client::Shown;
using coded::Bytes;

namespace {

using Clock = std::chrono::steady_clock;

double millisecondsSince(Clock::time_point start) {
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

Bytes picture() {
    return coded::encode(coded::Jpeg{});
}

constexpr std::size_t frameBytes = 64 * 48 * 4;

MppDecQueryCfg query(MppCtx ctx, MppApi* mpi) {
    MppDecQueryCfg answer{};
    answer.query_flag = MPP_DEC_QUERY_ALL;
    EXPECT_EQ(mpi->control(ctx, MPP_DEC_QUERY, &answer), MPP_OK);
    return answer;
}

}  // namespace

TEST(MppContext, TakesWhatItSupports) {
    MppCtx ctx = nullptr;
    MppApi* mpi = nullptr;
    ASSERT_EQ(mpp_create(&ctx, &mpi), MPP_OK);
    EXPECT_EQ(mpp_init(ctx, MPP_CTX_ENC, MPP_VIDEO_CodingAVC), MPP_NOK);
    EXPECT_EQ(mpp_init(ctx, MPP_CTX_DEC, MPP_VIDEO_CodingHEVC), MPP_NOK);
    MppFrame frame = nullptr;
    EXPECT_EQ(mpi->decode_get_frame(ctx, &frame), MPP_ERR_INIT);
    EXPECT_EQ(mpi->poll(ctx, MPP_PORT_INPUT, MPP_POLL_BLOCK), MPP_ERR_INIT);
    EXPECT_EQ(mpp_init(ctx, MPP_CTX_DEC, MPP_VIDEO_CodingMJPEG), MPP_OK);
    EXPECT_EQ(mpp_init(ctx, MPP_CTX_DEC, MPP_VIDEO_CodingMJPEG), MPP_NOK) << "only once";
    EXPECT_EQ(mpi->decode_get_frame(ctx, &frame), MPP_NOK) << "MJPEG goes through tasks";
    EXPECT_EQ(mpp_destroy(ctx), MPP_OK);
    EXPECT_EQ(mpp_check_support_format(MPP_CTX_DEC, MPP_VIDEO_CodingAVC), MPP_OK);
    EXPECT_EQ(mpp_check_support_format(MPP_CTX_DEC, MPP_VIDEO_CodingMJPEG), MPP_OK);
    EXPECT_EQ(mpp_check_support_format(MPP_CTX_DEC, MPP_VIDEO_CodingVP9), MPP_NOK);
    EXPECT_EQ(mpp_check_support_format(MPP_CTX_ENC, MPP_VIDEO_CodingMJPEG), MPP_NOK);
}

TEST(MppContext, WrongArgumentsAreRefused) {
    MppCtx ctx = nullptr;
    MppApi* mpi = nullptr;
    EXPECT_EQ(mpp_create(nullptr, &mpi), MPP_ERR_NULL_PTR);
    EXPECT_EQ(mpp_create(&ctx, nullptr), MPP_ERR_NULL_PTR);
    EXPECT_EQ(mpp_init(nullptr, MPP_CTX_DEC, MPP_VIDEO_CodingAVC), MPP_ERR_NULL_PTR);
    EXPECT_EQ(mpp_destroy(nullptr), MPP_ERR_NULL_PTR);
    ASSERT_EQ(mpp_create(&ctx, &mpi), MPP_OK);
    MppFrame frame = nullptr;
    ASSERT_EQ(mpp_frame_init(&frame), MPP_OK);
    EXPECT_EQ(mpp_destroy(frame), MPP_ERR_VALUE) << "a frame is not a context";
    EXPECT_EQ(mpi->reset(nullptr), MPP_ERR_NULL_PTR);
    EXPECT_EQ(mpi->reset(frame), MPP_ERR_VALUE);
    EXPECT_EQ(mpi->control(nullptr, MPP_DEC_QUERY, nullptr), MPP_ERR_NULL_PTR);
    for (const MpiCmd command :
         {MPP_DEC_QUERY, MPP_SET_INPUT_TIMEOUT, MPP_SET_OUTPUT_TIMEOUT, MPP_SET_INPUT_BLOCK,
          MPP_DEC_SET_PARSER_SPLIT_MODE, MPP_DEC_SET_DISABLE_ERROR, MPP_DEC_GET_STREAM_COUNT}) {
        EXPECT_EQ(mpi->control(ctx, command, nullptr), MPP_ERR_NULL_PTR) << command;
    }
    EXPECT_EQ(mpi->control(ctx, MPP_DEC_SET_EXT_BUF_GROUP, frame), MPP_ERR_VALUE);
    EXPECT_EQ(mpi->control(ctx, MPP_DEC_SET_EXT_BUF_GROUP, nullptr), MPP_OK);
    EXPECT_EQ(mpi->control(ctx, MPI_CMD_BUTT, nullptr), MPP_ERR_VALUE);
    MppFrameFormat format = MPP_FMT_YUV420SP;
    EXPECT_EQ(mpi->control(ctx, MPP_DEC_SET_OUTPUT_FORMAT, &format), MPP_OK);
    ASSERT_EQ(mpp_init(ctx, MPP_CTX_DEC, MPP_VIDEO_CodingAVC), MPP_OK);
    EXPECT_EQ(mpi->decode_put_packet(ctx, nullptr), MPP_ERR_NULL_PTR);
    EXPECT_EQ(mpi->decode_put_packet(ctx, frame), MPP_ERR_VALUE);
    EXPECT_EQ(mpi->decode_get_frame(ctx, nullptr), MPP_ERR_NULL_PTR);
    MppTask task = nullptr;
    EXPECT_EQ(mpi->dequeue(ctx, MPP_PORT_INPUT, &task), MPP_NOK) << "H.264 has no tasks";
    EXPECT_EQ(mpp_frame_deinit(&frame), MPP_OK);
    EXPECT_EQ(mpp_destroy(ctx), MPP_OK);
}

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
    for (int i = 0; i < 40; ++i) {
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

TEST(MppContext, ResetEndsTheWaitsOfOthers) {
    Mjpeg jpeg(frameBytes);
    client::Avc avc;
    RK_S64 forever = -1;
    EXPECT_EQ(avc.mpi->control(avc.ctx, MPP_SET_OUTPUT_TIMEOUT, &forever), MPP_OK);
    std::atomic<int> ended{0};
    std::thread poller([&] {
        EXPECT_EQ(jpeg.mpi->poll(jpeg.ctx, MPP_PORT_OUTPUT, MPP_POLL_BLOCK), MPP_NOK);
        ++ended;
    });
    std::thread getter([&] {
        MppFrame frame = nullptr;
        EXPECT_EQ(avc.mpi->decode_get_frame(avc.ctx, &frame), MPP_NOK);
        EXPECT_EQ(frame, nullptr);
        ++ended;
    });
    // Whether they wait already cannot be seen from here: reset until they are through.
    while (ended < 2) {
        EXPECT_EQ(jpeg.mpi->reset(jpeg.ctx), MPP_OK);
        EXPECT_EQ(avc.mpi->reset(avc.ctx), MPP_OK);
        std::this_thread::yield();
    }
    poller.join();
    getter.join();
}

TEST(MppContext, SettingsBeforeTheBeginningCount) {
    MppCtx ctx = nullptr;
    MppApi* mpi = nullptr;
    ASSERT_EQ(mpp_create(&ctx, &mpi), MPP_OK);
    RK_S64 time = 40;
    EXPECT_EQ(mpi->control(ctx, MPP_SET_OUTPUT_TIMEOUT, &time), MPP_OK);
    EXPECT_EQ(query(ctx, mpi).dec_in_pkt_cnt, 0U);
    ASSERT_EQ(mpp_init(ctx, MPP_CTX_DEC, MPP_VIDEO_CodingAVC), MPP_OK);
    MppFrame frame = nullptr;
    const auto start = Clock::now();
    EXPECT_EQ(mpi->decode_get_frame(ctx, &frame), MPP_ERR_TIMEOUT);
    EXPECT_GE(millisecondsSince(start), 39);
    RK_U32 block = 0;
    EXPECT_EQ(mpi->control(ctx, MPP_SET_OUTPUT_BLOCK, &block), MPP_OK);
    EXPECT_EQ(mpi->decode_get_frame(ctx, &frame), MPP_OK);
    EXPECT_EQ(frame, nullptr);
    EXPECT_EQ(mpp_destroy(ctx), MPP_OK);
}

TEST(MppContext, ResetStartsAStreamAfresh) {
    const std::vector<Bytes> units = coded::encode(coded::Avc{});
    const std::vector<coded::Picture> expected = coded::decodeAvc(units);
    client::Avc decoder;
    for (std::size_t i = 0; i < 5; ++i) {
        decoder.feed(units[i]);
        decoder.drain();
    }
    EXPECT_EQ(decoder.mpi->reset(decoder.ctx), MPP_OK);
    EXPECT_EQ(decoder.take(0), nullptr);
    RK_S32 backlog = 9;
    EXPECT_EQ(decoder.mpi->control(decoder.ctx, MPP_DEC_GET_STREAM_COUNT, &backlog), MPP_OK);
    EXPECT_EQ(backlog, 0);
    decoder.shown.clear();
    for (const Bytes& unit : units) {
        decoder.feed(unit);
    }
    decoder.finish();
    ASSERT_EQ(decoder.shown.size(), expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i) {
        EXPECT_EQ(decoder.shown[i].errinfo, 0U);
        EXPECT_TRUE(decoder.shown[i].picture.y == expected[i].y);
    }
}

TEST(MppContext, EndsAtAnyMomentWithPictures) {
    std::minstd_rand random(7);
    const Bytes good = picture();
    const Bytes cut(good.begin(), good.begin() + static_cast<std::ptrdiff_t>(good.size() / 2));
    for (int round = 0; round < 100; ++round) {
        Mjpeg decoder(frameBytes);
        const unsigned sent = random() % 5;
        for (unsigned i = 0; i < sent; ++i) {
            ASSERT_TRUE(decoder.send(random() % 3 == 0 ? cut : good));
        }
        if (sent > 0 && random() % 2 == 0) {
            Shown shown;
            ASSERT_TRUE(decoder.receive(shown));
        }
        if (random() % 4 == 0) {
            MppTask task = nullptr;  // stays with the program
            decoder.mpi->dequeue(decoder.ctx, MPP_PORT_OUTPUT, &task);
        }
        if (random() % 4 == 0) {
            EXPECT_EQ(decoder.mpi->reset(decoder.ctx), MPP_OK);
        }
    }
}

TEST(MppContext, EndsAtAnyMomentWithStreams) {
    std::minstd_rand random(8);
    coded::Avc how;
    how.bFrames = 1;
    const std::vector<Bytes> units = coded::encode(how);
    for (int round = 0; round < 60; ++round) {
        client::Avc decoder;
        decoder.limit = static_cast<RK_S32>(1 + random() % 4);
        const std::size_t steps = random() % 16;
        std::size_t next = 0;
        std::vector<MppFrame> held;
        for (std::size_t i = 0; i < steps; ++i) {
            if (next < units.size() && decoder.put(units[next]) == MPP_OK) {
                ++next;
            }
            MppFrame frame = decoder.take(static_cast<RK_S64>(random() % 3));
            if (frame == nullptr) {
                continue;
            }
            if (mpp_frame_get_info_change(frame) != 0 && random() % 4 != 0) {
                decoder.answer(frame);
            }
            if (random() % 2 == 0) {
                held.push_back(frame);  // until the group has no more
            } else {
                mpp_frame_deinit(&frame);
            }
        }
        if (random() % 3 == 0) {
            EXPECT_EQ(decoder.mpi->reset(decoder.ctx), MPP_OK);
        }
        const bool late = random() % 2 == 0;
        if (!late) {
            for (MppFrame& frame : held) {
                mpp_frame_deinit(&frame);
            }
            held.clear();
        }
        mpp_destroy(decoder.ctx);
        decoder.ctx = nullptr;
        for (MppFrame& frame : held) {
            mpp_frame_deinit(&frame);
        }
    }
}
