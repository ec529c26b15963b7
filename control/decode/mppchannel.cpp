// The library notes this name with each buffer.
#define MODULE_TAG "mpi_dec_decode"

#include "control/decode/mppchannel.h"

#include "control/decode/mpplog.h"
#include "control/decode/mppprivate.h"

#include <algorithm>

namespace {

constexpr std::size_t jpegPacketSize = 1000000;
constexpr std::size_t bytesPerPixel = 4;  // room for any output format

constexpr std::size_t alignUp16(std::size_t value) {
    return (value + 15U) & ~std::size_t{15};
}

}  // namespace

void MppChannel::describe(const decInfo& mode, MppCodingType type) {
    setup = MppChannelSetup();
    setup.width = mode.width;
    setup.height = mode.height;
    setup.type = type;
    mppLog("cmd parse result:\n");
    mppLog("width      : %4d\n", static_cast<int>(setup.width));
    mppLog("height     : %4d\n", static_cast<int>(setup.height));
    mppLog("type       : %d\n", setup.type);
    mppLog("debug flag : %x\n", setup.debug);
    mppLog("max frames : %d\n", setup.maxFrames);
    if (mpp_env_set_u32 != nullptr) {
        mpp_env_set_u32("mpi_debug", setup.debug);
    }
    setup.simple = type != MPP_VIDEO_CodingMJPEG;
}

MPP_RET MppChannel::mpi_dec_decode() {
    mppLog("mpi_dec start\n");
    clearHandles();
    mppLog("input file size %ld\n", 0L);
    packetSize = setup.packetSize;
    if (!setup.simple) {
        makeBuffers();
    }
    makePacket();
    return createContext();
}

void MppChannel::clearHandles() {
    ctx = nullptr;
    mpi = nullptr;
    packet = nullptr;
    frame = nullptr;
    frameGroup = nullptr;
    packetGroup = nullptr;
    packetBuffer = nullptr;
    frameBuffer = nullptr;
    packetMemory = nullptr;
    frameCount = 0;
    maxUsage = 0;
}

// Goes on after a failure: usable() tells.
void MppChannel::makeBuffers() {
    MPP_RET ret = mpp_buffer_group_get_internal(&frameGroup, MPP_BUFFER_TYPE_ION);
    if (ret != MPP_OK) {
        mppErr("failed to get buffer group for input frame ret %d\n", ret);
    }
    ret = mpp_buffer_group_get_internal(&packetGroup, MPP_BUFFER_TYPE_ION);
    if (ret != MPP_OK) {
        mppErr("failed to get buffer group for output packet ret %d\n", ret);
    }
    if (mpp_frame_init(&frame) != MPP_OK) {
        mppErr("mpp_frame_init failed\n");
    }
    ret = mpp_buffer_get(frameGroup, &frameBuffer,
                         alignUp16(setup.width) * alignUp16(setup.height) * bytesPerPixel);
    if (ret != MPP_OK) {
        mppErr("failed to get buffer for input frame ret %d\n", ret);
    }
    packetSize = jpegPacketSize;
    ret = mpp_buffer_get(packetGroup, &packetBuffer, packetSize);
    if (ret != MPP_OK) {
        mppErr("failed to get buffer for input frame ret %d\n", ret);
    }
    if (frame != nullptr && frameBuffer != nullptr) {
        mpp_frame_set_buffer(frame, frameBuffer);
    }
}

void MppChannel::makePacket() {
    if (!setup.simple && packetBuffer == nullptr) {
        return;
    }
    const MPP_RET ret = setup.simple ? mpp_packet_init(&packet, nullptr, 0)
                                     : mpp_packet_init_with_buffer(&packet, packetBuffer);
    if (ret != MPP_OK) {
        mppErr("mpp_packet_init failed\n");
    }
    if (!setup.simple) {
        packetMemory = mpp_buffer_get_ptr(packetBuffer);
    }
}

MPP_RET MppChannel::createContext() {
    MPP_RET ret = mpp_create(&ctx, &mpi);
    if (ret != MPP_OK) {
        mppErr("mpp_create failed\n");
        ctx = nullptr;
        return ret;
    }
    mppLog("%p mpi_dec_test decoder test start w %d h %d type %d\n", ctx,
           static_cast<int>(setup.width), static_cast<int>(setup.height), setup.type);
    RK_U32 splitIntoFrames = 1;
    ret = mpi->control(ctx, MPP_DEC_SET_PARSER_SPLIT_MODE, &splitIntoFrames);
    if (ret != MPP_OK) {
        mppErr("%p mpi->control failed\n", ctx);
        return ret;
    }
    if (setup.timeout != 0) {
        RK_S64 timeout_ms = setup.timeout;
        ret = mpi->control(ctx, MPP_SET_OUTPUT_TIMEOUT, &timeout_ms);
        if (ret != MPP_OK) {
            mppErr("%p failed to set output timeout %d ret %d\n", ctx, setup.timeout, ret);
            return ret;
        }
    }
    ret = mpp_init(ctx, MPP_CTX_DEC, setup.type);
    if (ret != MPP_OK) {
        mppErr("%p mpp_init failed\n", ctx);
        return ret;
    }
    if (!setup.simple && setup.format < MppChannelSetup::nativeFormat) {
        ret = mpi->control(ctx, MPP_DEC_SET_OUTPUT_FORMAT, &setup.format);
    }
    return ret;
}

bool MppChannel::usable() const {
    if (ctx == nullptr || packet == nullptr) {
        return false;
    }
    return setup.simple || (packetMemory != nullptr && frame != nullptr && frameBuffer != nullptr);
}

bool MppChannel::makeRoom(std::size_t bytes) {
    if (bytes <= packetSize) {
        return true;
    }
    const std::size_t size = std::max(bytes, packetSize * 2);
    MppBuffer larger = nullptr;
    MppPacket over = nullptr;
    MPP_RET ret = mpp_buffer_get(packetGroup, &larger, size);
    if (ret == MPP_OK) {
        ret = mpp_packet_init_with_buffer(&over, larger);
    }
    void* memory = ret == MPP_OK ? mpp_buffer_get_ptr(larger) : nullptr;
    if (memory == nullptr) {
        mppErr("%p frame of %zu bytes dropped: no packet buffer of that size ret %d\n", ctx, bytes,
               ret);
    } else {
        std::swap(over, packet);
        std::swap(larger, packetBuffer);
        packetMemory = memory;
        packetSize = size;
    }
    // The small ones now, or what the failure left.
    if (over != nullptr) {
        mpp_packet_deinit(&over);
    }
    if (larger != nullptr) {
        mpp_buffer_put(larger);
    }
    return memory != nullptr;
}

void MppChannel::reportAndReset() {
    MppDecQueryCfg query{};
    query.query_flag = MPP_DEC_QUERY_ALL;
    if (mpi->control(ctx, MPP_DEC_QUERY, &query) != MPP_OK) {
        mppErr("%p mpi->control query failed\n", ctx);
        return;
    }
    mppLog("%p input %d pkt output %d frm decode %d frames\n", ctx,
           static_cast<int>(query.dec_in_pkt_cnt), static_cast<int>(query.dec_out_frm_cnt),
           static_cast<int>(query.dec_hw_run_cnt));
    if (mpi->reset(ctx) != MPP_OK) {
        mppErr("%p mpi->reset failed\n", ctx);
    }
}

void MppChannel::destroy() {
    if (ctx != nullptr) {
        reportAndReset();
    }
    if (packet != nullptr) {
        mpp_packet_deinit(&packet);
    }
    if (frame != nullptr) {
        mpp_frame_deinit(&frame);
    }
    if (ctx != nullptr) {
        mpp_destroy(ctx);
    }
    for (const MppBuffer buffer : {packetBuffer, frameBuffer}) {
        if (buffer != nullptr) {
            mpp_buffer_put(buffer);
        }
    }
    for (const MppBufferGroup group : {packetGroup, frameGroup}) {
        if (group != nullptr) {
            mpp_buffer_group_put(group);
        }
    }
    clearHandles();
}
