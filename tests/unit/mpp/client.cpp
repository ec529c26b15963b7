#include "tests/unit/mpp/client.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstring>

namespace client {
namespace {

constexpr std::size_t packetBytes = 1U << 20;
constexpr RK_S64 patience_ms = 60000;

struct Chroma {
    MppFrameFormat format;
    int across, down;
};

constexpr Chroma chromas[] = {{MPP_FMT_YUV420SP, 2, 2},
                              {MPP_FMT_YUV422SP, 2, 1},
                              {MPP_FMT_YUV440SP, 1, 2},
                              {MPP_FMT_YUV411SP, 4, 1},
                              {MPP_FMT_YUV444SP, 1, 1}};

coded::Picture read(const Shown& shown, const std::uint8_t* memory, std::size_t size) {
    coded::Picture picture;
    picture.width = static_cast<int>(shown.width);
    picture.height = static_cast<int>(shown.height);
    const std::size_t stride = shown.horStride;
    for (RK_U32 y = 0; y < shown.height; ++y) {
        const std::uint8_t* line = memory + y * stride;
        picture.y.insert(picture.y.end(), line, line + shown.width);
    }
    const std::uint8_t* pairs = memory + stride * shown.verStride;
    for (const Chroma& chroma : chromas) {
        if (chroma.format != shown.format) {
            continue;
        }
        picture.chromaWidth = (picture.width + chroma.across - 1) / chroma.across;
        picture.chromaHeight = (picture.height + chroma.down - 1) / chroma.down;
        const std::size_t pairStride = 2 * stride / static_cast<std::size_t>(chroma.across);
        EXPECT_LE(stride * shown.verStride +
                      pairStride * (shown.verStride / static_cast<unsigned>(chroma.down)),
                  size);
        for (int y = 0; y < picture.chromaHeight; ++y) {
            for (int x = 0; x < picture.chromaWidth; ++x) {
                picture.u.push_back(pairs[static_cast<std::size_t>(y) * pairStride + 2 * x]);
                picture.v.push_back(pairs[static_cast<std::size_t>(y) * pairStride + 2 * x + 1]);
            }
        }
    }
    return picture;
}

}  // namespace

double millisecondsSince(Clock::time_point start) {
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

coded::Bytes picture() {
    return coded::encode(coded::Jpeg{});
}

MppDecQueryCfg query(MppCtx ctx, MppApi* mpi) {
    MppDecQueryCfg answer{};
    answer.query_flag = MPP_DEC_QUERY_ALL;
    EXPECT_EQ(mpi->control(ctx, MPP_DEC_QUERY, &answer), MPP_OK);
    return answer;
}

Shown look(MppFrame frame) {
    Shown shown;
    shown.width = mpp_frame_get_width(frame);
    shown.height = mpp_frame_get_height(frame);
    shown.horStride = mpp_frame_get_hor_stride(frame);
    shown.verStride = mpp_frame_get_ver_stride(frame);
    shown.errinfo = mpp_frame_get_errinfo(frame);
    shown.discard = mpp_frame_get_discard(frame);
    shown.eos = mpp_frame_get_eos(frame);
    shown.pts = mpp_frame_get_pts(frame);
    shown.format = mpp_frame_get_fmt(frame);
    MppBuffer buffer = mpp_frame_get_buffer(frame);
    shown.hasBuffer = buffer != nullptr;
    if (buffer != nullptr) {
        shown.picture = read(shown, static_cast<const std::uint8_t*>(mpp_buffer_get_ptr(buffer)),
                             mpp_buffer_get_size(buffer));
    }
    return shown;
}

Mjpeg::Mjpeg(std::size_t frameBytes) {
    EXPECT_EQ(mpp_buffer_group_get_internal(&group, MPP_BUFFER_TYPE_ION), MPP_OK);
    EXPECT_EQ(mpp_buffer_get(group, &packetBuffer, packetBytes), MPP_OK);
    EXPECT_EQ(mpp_buffer_get(group, &frameBuffer, frameBytes), MPP_OK);
    EXPECT_EQ(mpp_frame_init(&frame), MPP_OK);
    EXPECT_EQ(mpp_packet_init_with_buffer(&packet, packetBuffer), MPP_OK);
    mpp_frame_set_buffer(frame, frameBuffer);
    EXPECT_EQ(mpp_create(&ctx, &mpi), MPP_OK);
    EXPECT_EQ(mpp_init(ctx, MPP_CTX_DEC, MPP_VIDEO_CodingMJPEG), MPP_OK);
}

Mjpeg::~Mjpeg() {
    mpp_packet_deinit(&packet);
    mpp_frame_deinit(&frame);
    mpp_destroy(ctx);
    mpp_buffer_put(packetBuffer);
    mpp_buffer_put(frameBuffer);
    mpp_buffer_group_put(group);
}

bool Mjpeg::send(const coded::Bytes& jpeg, RK_S64 pts) {
    void* memory = mpp_buffer_get_ptr(packetBuffer);
    if (jpeg.size() > packetBytes) {
        return false;
    }
    // The same again may be sent while the first is still under way.
    if (!jpeg.empty() && std::memcmp(memory, jpeg.data(), jpeg.size()) != 0) {
        std::memcpy(memory, jpeg.data(), jpeg.size());
    }
    mpp_packet_set_pos(packet, memory);
    mpp_packet_set_length(packet, jpeg.size());
    mpp_packet_set_pts(packet, pts);
    MppTask task = nullptr;
    EXPECT_EQ(mpi->poll(ctx, MPP_PORT_INPUT, MPP_POLL_BLOCK), MPP_OK);
    EXPECT_EQ(mpi->dequeue(ctx, MPP_PORT_INPUT, &task), MPP_OK);
    if (task == nullptr) {
        return false;
    }
    EXPECT_EQ(mpp_task_meta_set_packet(task, KEY_INPUT_PACKET, packet), MPP_OK);
    EXPECT_EQ(mpp_task_meta_set_frame(task, KEY_OUTPUT_FRAME, frame), MPP_OK);
    EXPECT_EQ(mpi->enqueue(ctx, MPP_PORT_INPUT, task), MPP_OK);
    return true;
}

bool Mjpeg::receive(Shown& shown) {
    MppTask task = nullptr;
    EXPECT_EQ(mpi->poll(ctx, MPP_PORT_OUTPUT, MPP_POLL_BLOCK), MPP_OK);
    EXPECT_EQ(mpi->dequeue(ctx, MPP_PORT_OUTPUT, &task), MPP_OK);
    if (task == nullptr) {
        return false;
    }
    MppFrame out = nullptr;
    EXPECT_EQ(mpp_task_meta_get_frame(task, KEY_OUTPUT_FRAME, &out), MPP_OK);
    EXPECT_NE(out, nullptr);
    shown = look(out);
    EXPECT_EQ(mpi->enqueue(ctx, MPP_PORT_OUTPUT, task), MPP_OK);
    return true;
}

Shown Mjpeg::decode(const coded::Bytes& jpeg) {
    Shown shown;
    if (send(jpeg)) {
        receive(shown);
    }
    return shown;
}

Avc::Avc(bool split) {
    EXPECT_EQ(mpp_create(&ctx, &mpi), MPP_OK);
    RK_U32 value = split ? 1 : 0;
    EXPECT_EQ(mpi->control(ctx, MPP_DEC_SET_PARSER_SPLIT_MODE, &value), MPP_OK);
    EXPECT_EQ(mpp_init(ctx, MPP_CTX_DEC, MPP_VIDEO_CodingAVC), MPP_OK);
}

Avc::~Avc() {
    mpp_destroy(ctx);
    if (group != nullptr) {
        mpp_buffer_group_put(group);
    }
}

MPP_RET Avc::put(const coded::Bytes& bytes, RK_S64 pts, bool eos) {
    MppPacket packet = nullptr;
    auto* data = const_cast<std::uint8_t*>(bytes.data());  // the decoder only reads
    EXPECT_EQ(mpp_packet_init(&packet, data, bytes.size()), MPP_OK);
    mpp_packet_set_pts(packet, pts);
    if (eos) {
        mpp_packet_set_eos(packet);
    }
    const MPP_RET result = mpi->decode_put_packet(ctx, packet);
    mpp_packet_deinit(&packet);
    return result;
}

MppFrame Avc::take(RK_S64 timeout_ms) {
    MppFrame frame = nullptr;
    EXPECT_EQ(mpi->control(ctx, MPP_SET_OUTPUT_TIMEOUT, &timeout_ms), MPP_OK);
    const MPP_RET result = mpi->decode_get_frame(ctx, &frame);
    if (frame == nullptr) {
        EXPECT_EQ(result, timeout_ms == 0 ? MPP_OK : MPP_ERR_TIMEOUT);
    }
    return frame;
}

void Avc::answer(MppFrame frame) {
    if (group != nullptr) {
        EXPECT_EQ(mpp_buffer_group_clear(group), MPP_OK);
    } else {
        EXPECT_EQ(mpp_buffer_group_get_internal(&group, MPP_BUFFER_TYPE_ION), MPP_OK);
        EXPECT_EQ(mpi->control(ctx, MPP_DEC_SET_EXT_BUF_GROUP, group), MPP_OK);
    }
    EXPECT_EQ(mpp_buffer_group_limit_config(group, mpp_frame_get_buf_size(frame), limit), MPP_OK);
    EXPECT_EQ(mpi->control(ctx, MPP_DEC_SET_INFO_CHANGE_READY, nullptr), MPP_OK);
}

void Avc::handle(MppFrame frame) {
    if (mpp_frame_get_info_change(frame) != 0) {
        ++changes;
        answer(frame);
    } else if (mpp_frame_get_eos(frame) != 0 && mpp_frame_get_buffer(frame) == nullptr) {
        ended = true;
    } else {
        shown.push_back(look(frame));
    }
    mpp_frame_deinit(&frame);
    if (group != nullptr) {
        maximumUsage = std::max(maximumUsage, mpp_buffer_group_usage(group));
    }
}

bool Avc::drain() {
    bool any = false;
    while (MppFrame frame = take(0)) {
        handle(frame);
        any = true;
    }
    return any;
}

bool Avc::waitAndHandle() {
    MppFrame frame = take(patience_ms);
    if (frame != nullptr) {
        handle(frame);
    }
    return frame != nullptr;
}

void Avc::feed(const coded::Bytes& packet, RK_S64 pts, bool eos) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(patience_ms);
    for (;;) {
        const MPP_RET result = put(packet, pts, eos);
        if (result == MPP_OK) {
            return;
        }
        ASSERT_EQ(result, MPP_ERR_BUFFER_FULL);
        ASSERT_LT(std::chrono::steady_clock::now(), deadline) << "the decoder takes no packet";
        if (MppFrame frame = take(5)) {
            handle(frame);
        }
    }
}

void Avc::finish() {
    feed({}, 0, true);
    while (!ended) {
        ASSERT_TRUE(waitAndHandle()) << "the end of the stream does not come";
    }
}

}  // namespace client
