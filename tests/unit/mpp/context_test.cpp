// Contexts: what they take, and that they end at any moment.
#include <gtest/gtest.h>
#include <pthread.h>
#include <sched.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <set>
#include <string>
#include <thread>

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
    RK_U32 wait = 1;
    EXPECT_EQ(mpi->control(ctx, MPP_SET_INPUT_BLOCK, &wait), MPP_OK) << "of the other port";
    EXPECT_EQ(mpi->control(ctx, MPP_SET_OUTPUT_BLOCK, &block), MPP_OK);
    EXPECT_EQ(mpi->decode_get_frame(ctx, &frame), MPP_OK);
    EXPECT_EQ(frame, nullptr);
    EXPECT_EQ(mpp_destroy(ctx), MPP_OK);
}

// The decoders stand for hardware: their threads (libavcodec's too) take none of the program's
// signals and are not pinned where the thread that made them is.
TEST(MppContext, ThreadsKeepClearOfTheProgram) {
    cpu_set_t all;
    ASSERT_EQ(sched_getaffinity(getpid(), sizeof all, &all), 0);
    std::set<std::string> before;
    for (const auto& thread : std::filesystem::directory_iterator("/proc/self/task")) {
        before.insert(thread.path().string());
    }
    MppCtx ctx = nullptr;
    MppApi* mpi = nullptr;
    ASSERT_EQ(mpp_create(&ctx, &mpi), MPP_OK);
    std::thread pinned([&ctx, &all] {
        cpu_set_t one;
        CPU_ZERO(&one);
        for (int cpu = 0; cpu < CPU_SETSIZE; ++cpu) {
            if (CPU_ISSET(cpu, &all)) {
                CPU_SET(cpu, &one);
                break;
            }
        }
        pthread_setaffinity_np(pthread_self(), sizeof one, &one);
        EXPECT_EQ(mpp_init(ctx, MPP_CTX_DEC, MPP_VIDEO_CodingAVC), MPP_OK);
    });
    pinned.join();
    int threads = 0;
    for (const auto& thread : std::filesystem::directory_iterator("/proc/self/task")) {
        const std::string path = thread.path().string();
        cpu_set_t allowed;
        if (before.count(path) != 0 ||
            sched_getaffinity(std::stoi(thread.path().filename()), sizeof allowed, &allowed) != 0) {
            continue;  // an old one, or the one that has just ended
        }
        std::ifstream status(path + "/status");
        std::string line;
        while (std::getline(status, line) && line.rfind("SigBlk:", 0) != 0) {
        }
        if (line.empty()) {
            continue;
        }
        ++threads;
        EXPECT_TRUE(CPU_EQUAL(&allowed, &all)) << path;
        const std::uint64_t blocked = std::stoull(line.substr(7), nullptr, 16);
        EXPECT_NE(blocked & (1ULL << (SIGIO - 1)), 0U) << line;
        EXPECT_NE(blocked & (1ULL << (SIGTERM - 1)), 0U) << line;
    }
    EXPECT_GE(threads, 1);
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
    for (std::size_t i = 5; i < 8; ++i) {
        decoder.feed(units[i]);
    }
    while (query(decoder.ctx, decoder.mpi).rt_status != 0) {
        std::this_thread::yield();  // until their pictures wait
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
        // The cut one is the good one's beginning: no later send changes what is under way.
        std::memcpy(mpp_buffer_get_ptr(decoder.packetBuffer), good.data(), good.size());
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
