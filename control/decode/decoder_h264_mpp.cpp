// The library notes this name with the buffer group.
#define MODULE_TAG "mpi_dec_process"

#include "control/decode/decoder_h264_mpp.h"

#include "control/decode/mpplog.h"
#include "control/decode/mppshow.h"
#include "control/task/logline.h"
#include "control/task/msgvideo.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <new>
#include <thread>

using std::chrono::milliseconds;

std::atomic<Decoder_H264_MPP*> Decoder_H264_MPP::h264mpp_dev{nullptr};

namespace {

constexpr int queueLimit = 100;
constexpr std::size_t usualCopySize = 0x200000;
constexpr int frameRetries = 5;
constexpr int frameRetryWait_ms = 2;
constexpr int frameBufferLimit = 24;

// The time stamp of the last packet that gave a picture, and how many more pictures had the same
// one. Of the process, not of a decoder: a new decoder goes on where the last one stopped.
double lastInputPts = 0.0;
int repeatedPts = 0;

struct FrameRelease {
    void operator()(MppFrame frame) const { mpp_frame_deinit(&frame); }
};
using FrameHolder = std::unique_ptr<void, FrameRelease>;

int sleepTimeFor(const decInfo& mode) {
    const std::uint64_t area = std::uint64_t{mode.width} * mode.height;
    if (area <= 2073600) {  // 1920x1080
        return 4;
    }
    return area < 3686401 ? 5 : 8;  // 2560x1440
}

// Asks for a frame; none with success when there is none yet.
MPP_RET nextFrame(const MppChannel& channel, FrameHolder& holder, int& retries) {
    MppFrame frame = nullptr;
    MPP_RET ret = channel.mpi->decode_get_frame(channel.ctx, &frame);
    while (ret == MPP_ERR_TIMEOUT && retries > 0) {
        --retries;
        std::this_thread::sleep_for(milliseconds(frameRetryWait_ms));
        ret = channel.mpi->decode_get_frame(channel.ctx, &frame);
    }
    holder.reset(frame);
    if (ret == MPP_ERR_TIMEOUT) {
        mppErr("%p decode_get_frame failed too much time\n", channel.ctx);
    }
    if (ret != MPP_OK) {
        mppErr("%p decode_get_frame failed ret %d\n", channel.ctx, ret);
    }
    return ret;
}

// Makes sure that the decoder has a group for its frames, without buffers of another size.
MPP_RET renewFrameGroup(MppChannel& channel) {
    if (channel.frameGroup != nullptr) {
        const MPP_RET ret = mpp_buffer_group_clear(channel.frameGroup);
        if (ret != MPP_OK) {
            mppErr("%p clear buffer group failed ret %d\n", channel.ctx, ret);
        }
        return ret;
    }
    MPP_RET ret = mpp_buffer_group_get_internal(&channel.frameGroup, MPP_BUFFER_TYPE_ION);
    if (ret != MPP_OK) {
        mppErr("%p get mpp buffer group failed ret %d\n", channel.ctx, ret);
        return ret;
    }
    ret = channel.mpi->control(channel.ctx, MPP_DEC_SET_EXT_BUF_GROUP, channel.frameGroup);
    if (ret != MPP_OK) {
        mppErr("%p set buffer group failed ret %d\n", channel.ctx, ret);
    }
    return ret;
}

// The stream's picture size is known, or changed: gives the decoder buffers for it.
MPP_RET changeInfo(MppChannel& channel, MppFrame frame) {
    const std::size_t bytes = mpp_frame_get_buf_size(frame);
    mppLog("%p decode_get_frame get info changed found\n", channel.ctx);
    mppLog("%p decoder require buffer w:h [%d:%d] stride [%d:%d] buf_size %d", channel.ctx,
           static_cast<int>(mpp_frame_get_width(frame)),
           static_cast<int>(mpp_frame_get_height(frame)),
           static_cast<int>(mpp_frame_get_hor_stride(frame)),
           static_cast<int>(mpp_frame_get_ver_stride(frame)), static_cast<int>(bytes));
    MPP_RET ret = renewFrameGroup(channel);
    if (ret != MPP_OK) {
        return ret;
    }
    ret = mpp_buffer_group_limit_config(channel.frameGroup, bytes, frameBufferLimit);
    if (ret != MPP_OK) {
        mppErr("%p limit buffer group failed ret %d\n", channel.ctx, ret);
        return ret;
    }
    ret = channel.mpi->control(channel.ctx, MPP_DEC_SET_INFO_CHANGE_READY, nullptr);
    if (ret != MPP_OK) {
        mppErr("%p info change ready failed ret %d\n", channel.ctx, ret);
    }
    return ret;
}

void describeFrame(MppChannel& channel, MppFrame frame, RK_U32 errorInfo, RK_U32 discard) {
    char temporal[24] = "";
    char problems[40] = "";
    RK_S32 temporalId = 0;
    if (mpp_frame_has_meta(frame) != 0 &&
        mpp_meta_get_s32(mpp_frame_get_meta(frame), KEY_TEMPORAL_ID, &temporalId) == MPP_OK) {
        std::snprintf(temporal, sizeof temporal, " tid %d", temporalId);
    }
    if (errorInfo != 0 || discard != 0) {
        std::snprintf(problems, sizeof problems, " err %x discard %x", errorInfo, discard);
    }
    std::snprintf(channel.lastFrame.data(), channel.lastFrame.size(), "decode get frame %d%s%s",
                  channel.frameCount, temporal, problems);
}

bool reachedMaximum(const MppChannel& channel) {
    return channel.setup.maxFrames > 0 && channel.frameCount >= channel.setup.maxFrames;
}

}  // namespace

Decoder_H264_MPP::Decoder_H264_MPP(void* captureMode)
    : captureFormat(static_cast<const decInfo*>(captureMode)) {
    h264mpp_dev = this;
}

Decoder_H264_MPP::~Decoder_H264_MPP() {
    Decoder_H264_MPP::close();
    if (opened != 0) {
        Decoder_H264_MPP::decoder_close();
    }
    opened = 0;
    Decoder_H264_MPP* self = this;
    h264mpp_dev.compare_exchange_strong(self, nullptr);
}

DecCommon* Decoder_H264_MPP::getH264MppDecoderDev(void* captureMode) {
    return new Decoder_H264_MPP(captureMode);
}

int Decoder_H264_MPP::close() {
    return stopDecoder("h264 mpp close remain avpacket queue :");
}

int Decoder_H264_MPP::svc() {
    return runDecoder("Decoder_H264_MPP");
}

int Decoder_H264_MPP::decoder_open() {
    logOut("h264 mpp decoder open");
    bool anyReady = false;
    for (Slot& slot : slots) {
        slot.ready = mpi_dec_init(slot.channel) == MPP_OK && slot.channel.usable() &&
                     makeRoom(slot, usualCopySize);
        anyReady = anyReady || slot.ready;
    }
    if (!anyReady) {
        destroyChannels();
        logOut("h264 mpp decoder open faild");
        opened = 0;
        return 0;
    }
    logOut("h264 mpp decoder open succeed");
    activate(static_cast<int>(slots.size()));
    if (startedThreads().empty()) {  // nobody would notice a decoder that takes no frame
        destroyChannels();
        logOut("h264 mpp decoder open faild");
        return 0;
    }
    thread = startedThreads().front();
    opened = 1;
    return 1;
}

int Decoder_H264_MPP::decoder_close() {
    if (opened != 1) {
        return 0;
    }
    logOut("h264 mpp decoder close");
    destroyChannels();
    logOut("h264 mpp decoder close succeed");
    opened = 0;
    return 1;
}

void Decoder_H264_MPP::destroyChannels() {
    for (Slot& slot : slots) {
        mpi_dec_destroy(slot.channel);
        slot.ready = false;
        slot.copyBuffer.reset();
        slot.copySize = 0;
    }
}

MPP_RET Decoder_H264_MPP::mpi_dec_init(MpiDecLoopData_Dec& channel) {
    channel.describe(*captureFormat, MPP_VIDEO_CodingAVC);
    sleepTime = sleepTimeFor(*captureFormat);
    logOut("mpp h264 decode sleep time : ", sleepTime);
    return mpi_dec_decode(channel);
}

MPP_RET Decoder_H264_MPP::mpi_dec_decode(MpiDecLoopData_Dec& channel) {
    return channel.mpi_dec_decode();
}

MPP_RET Decoder_H264_MPP::mpi_dec_destroy(MpiDecLoopData_Dec& channel) {
    if (channel.packet != nullptr) {
        // The copy buffer is not the packet's to know any more.
        mpp_packet_set_data(channel.packet, channel.packetMemory);
    }
    channel.destroy();
    return MPP_OK;
}

int Decoder_H264_MPP::decoder_process(void* msg, void* /*unused*/) {
    Slot& slot = slots.front();
    if (slot.ready && pthread_equal(thread, pthread_self()) != 0) {
        mpi_dec_process(slot.channel, msg);
    }
    return 0;
}

// False, with one line, when there is no memory; what is there stays.
bool Decoder_H264_MPP::makeRoom(Slot& slot, std::size_t bytes) {
    if (bytes <= slot.copySize) {
        return true;
    }
    const std::size_t size = std::max(bytes, slot.copySize * 2);
    std::unique_ptr<unsigned char[]> larger(new (std::nothrow) unsigned char[size]);
    if (larger == nullptr) {
        mppErr("%p packet dropped: no memory for its %zu bytes\n", slot.channel.ctx, bytes);
        return false;
    }
    slot.copyBuffer = std::move(larger);
    slot.copySize = size;
    return true;
}

bool Decoder_H264_MPP::fillPacket(MpiDecLoopData_Dec& channel, const unsigned char* data,
                                  std::size_t length) {
    Slot& slot = slots.front();
    if (data == nullptr || length == 0) {
        mppErr("%p packet without data dropped\n", channel.ctx);
        return false;
    }
    if (!makeRoom(slot, length)) {
        return false;
    }
    unsigned char* buffer = slot.copyBuffer.get();
    std::memcpy(buffer, data, length);
    mpp_packet_set_data(channel.packet, buffer);
    if (length > mpp_packet_get_size(channel.packet)) {
        mpp_packet_set_size(channel.packet, length);
    }
    mpp_packet_set_pos(channel.packet, buffer);
    mpp_packet_set_length(channel.packet, length);
    return true;
}

MPP_RET Decoder_H264_MPP::mpi_dec_process(MpiDecLoopData_Dec& channel, void* msg) {
    const msgVideo& message = *static_cast<msgVideo*>(msg);
    if (!fillPacket(channel, message.data[0], message.length[0])) {
        return MPP_NOK;
    }
    MPP_RET ret = MPP_OK;
    bool accepted = false;
    while (running != 0) {
        if (!accepted) {
            accepted = channel.mpi->decode_put_packet(channel.ctx, channel.packet) == MPP_OK;
        }
        ret = takeFrames(channel, msg, frameRetries);
        if (reachedMaximum(channel)) {
            mppLog("%p reach max frame number %d\n", channel.ctx, channel.frameCount);
            break;
        }
        if (accepted) {
            break;
        }
        std::this_thread::sleep_for(milliseconds(sleepTime));
    }
    return ret;
}

// Takes what the decoder has ready. `retries`: how often a time-out is tried again.
MPP_RET Decoder_H264_MPP::takeFrames(MpiDecLoopData_Dec& channel, void* msg, int retries) {
    MPP_RET ret = MPP_OK;
    bool gotFrame = true;
    while (gotFrame) {
        FrameHolder frame;
        ret = nextFrame(channel, frame, retries);
        if (ret != MPP_OK) {
            break;
        }
        gotFrame = frame != nullptr;
        bool lastOfStream = false;
        if (gotFrame) {
            if (mpp_frame_get_info_change(frame.get()) != 0) {
                ret = changeInfo(channel, frame.get());
                if (ret != MPP_OK) {
                    break;
                }
            } else {
                const RK_U32 errorInfo = mpp_frame_get_errinfo(frame.get());
                describeFrame(channel, frame.get(), errorInfo, mpp_frame_get_discard(frame.get()));
                ++channel.frameCount;
                if (errorInfo == 0) {
                    dump_mpp_frame_to_queue(frame.get(), msg, nullptr);
                }
            }
            lastOfStream = mpp_frame_get_eos(frame.get()) != 0;
            frame.reset();
        }
        if (channel.frameGroup != nullptr) {
            channel.maxUsage =
                std::max(channel.maxUsage, mpp_buffer_group_usage(channel.frameGroup));
        }
        if (lastOfStream) {
            mppLog("%p found last packet\n", channel.ctx);
            break;
        }
        if (reachedMaximum(channel) || running == 0) {
            break;
        }
    }
    return ret;
}

// One packet may yield several pictures: those after the first are a picture's time later each.
double Decoder_H264_MPP::pictureTime(double inputPts) const {
    if (inputPts != lastInputPts) {
        lastInputPts = inputPts;
        repeatedPts = 0;
        return inputPts;
    }
    ++repeatedPts;
    return lastInputPts + repeatedPts * (1000.0 / captureFormat->fps);
}

void Decoder_H264_MPP::dump_mpp_frame_to_queue(void* frame, void* msg, void* /*unused*/) {
    MppPicture picture;
    if (!readMppFrame(frame, picture) || !nameMppFormat(picture)) {
        return;
    }
    DisplayDrm* display = DisplayDrm::getDrmDev();
    if (display == nullptr) {
        return;
    }
    // The display shows every picture at once; the time goes with it all the same.
    showMppPicture(*display, picture, pictureTime(static_cast<msgVideo*>(msg)->pts),
                   DisplayDrm::unpacedPts);
}

int Decoder_H264_MPP::receive_handler(void* msg, unsigned int /*arg*/) {
    return putq(msg);
}

bool Decoder_H264_MPP::queueAllow_angler() {
    return getqSize() < queueLimit;
}
