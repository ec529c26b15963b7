#include "engine/mpp/context.h"

#include <chrono>
#include <system_error>
#include <utility>

#include "engine/mpp/mpicalls.h"
#include "engine/mpp/streamdecoder.h"
#include "engine/mpp/taskdecoder.h"

namespace mpp {
namespace {

using Guard = std::lock_guard<std::mutex>;

std::unique_ptr<Decoder> makeDecoder(MppCodingType coding, Channel& channel) {
    if (coding == MPP_VIDEO_CodingMJPEG) {
        return std::make_unique<TaskDecoder>(channel);
    }
    return std::make_unique<StreamDecoder>(channel);
}

// Takes the parameter's value, as a command that has one does.
template <class T, class Store>
MPP_RET store(Channel& channel, MppParam parameter, Store set) {
    if (parameter == nullptr) {
        return MPP_ERR_NULL_PTR;
    }
    const Guard lock(channel.doorbell->mutex);
    set(channel.settings, *static_cast<const T*>(parameter));
    return MPP_OK;
}

}  // namespace

bool supports(MppCtxType type, MppCodingType coding) {
    return type == MPP_CTX_DEC &&
           (coding == MPP_VIDEO_CodingAVC || coding == MPP_VIDEO_CodingMJPEG);
}

Context::Context() : Handle(kindOf), api_(apiCalls()) {}

Context::~Context() {
    {
        std::unique_lock<std::mutex> lock(channel_.doorbell->mutex);
        channel_.ending = true;
        channel_.doorbell->bell.notify_all();
        channel_.doorbell->bell.wait(lock, [this] { return channel_.waiting == 0; });
    }
    if (decoder_) {
        decoder_->join();
    }
}

Decoder* Context::decoder() {
    const Guard lock(channel_.doorbell->mutex);
    return decoder_.get();
}

MPP_RET Context::init(MppCtxType type, MppCodingType coding) {
    const Guard once(initMutex_);
    if (!supports(type, coding) || decoder() != nullptr) {
        return MPP_NOK;
    }
    auto made = makeDecoder(coding, channel_);
    try {
        if (!made->start()) {
            return MPP_ERR_VPU_CODEC_INIT;
        }
    } catch (const std::system_error&) {
        return MPP_ERR_FATAL_THREAD;
    }
    const Guard lock(channel_.doorbell->mutex);
    decoder_ = std::move(made);
    return MPP_OK;
}

MPP_RET Context::query(MppDecQueryCfg& answer) {
    using Seconds = std::chrono::duration<double>;
    const Guard lock(channel_.doorbell->mutex);
    const Counts& counts = channel_.counts;
    const RK_U32 flags = answer.query_flag;
    const Seconds passed = std::chrono::steady_clock::now() - counts.first;
    const auto perSecond = [&](RK_U64 count) {
        return counts.packetsIn == 0 || passed.count() <= 0
                   ? 0U
                   : static_cast<RK_U32>(static_cast<double>(count) / passed.count());
    };
    const auto fill = [flags](RK_U32 flag, RK_U32& field, RK_U32 value) {
        if ((flags & flag) != 0) {
            field = value;
        }
    };
    fill(MPP_DEC_QUERY_STATUS, answer.rt_status, decoder_ && decoder_->busy() ? 1 : 0);
    fill(MPP_DEC_QUERY_WAIT, answer.rt_wait, decoder_ ? decoder_->waitsFor() : 0);
    fill(MPP_DEC_QUERY_FPS, answer.rt_fps, perSecond(counts.framesOut));
    fill(MPP_DEC_QUERY_BPS, answer.rt_bps, perSecond(counts.bytesIn * 8));
    fill(MPP_DEC_QUERY_DEC_IN_PKT, answer.dec_in_pkt_cnt, counts.packetsIn);
    fill(MPP_DEC_QUERY_DEC_WORK, answer.dec_hw_run_cnt, counts.worked);
    fill(MPP_DEC_QUERY_DEC_OUT_FRM, answer.dec_out_frm_cnt, counts.framesOut);
    return MPP_OK;
}

MPP_RET Context::setGroup(MppBufferGroup group) {
    auto* object = as<Group>(group);
    if (group != nullptr && object == nullptr) {
        return MPP_ERR_VALUE;
    }
    if (object != nullptr) {
        object->listen(channel_.doorbell);
    }
    Ref<Group> ref(object);  // the old one goes after the lock
    const Guard lock(channel_.doorbell->mutex);
    std::swap(channel_.settings.group, ref);
    channel_.doorbell->bell.notify_all();
    return MPP_OK;
}

// The commands that set how long calls wait.
MPP_RET Context::setTime(MpiCmd command, MppParam parameter) {
    const bool ofInput = command == MPP_SET_INPUT_BLOCK || command == MPP_SET_INPUT_TIMEOUT ||
                         command == MPP_SET_INTPUT_BLOCK_TIMEOUT;
    const auto time = ofInput ? &Settings::inputTimeout : &Settings::outputTimeout;
    if (command == MPP_SET_INPUT_BLOCK || command == MPP_SET_OUTPUT_BLOCK) {
        return store<RK_U32>(channel_, parameter, [time](Settings& settings, RK_U32 block) {
            settings.*time = block != 0 ? -1 : 0;
        });
    }
    return store<RK_S64>(channel_, parameter,
                         [time](Settings& settings, RK_S64 value) { settings.*time = value; });
}

MPP_RET Context::answerChange() {
    const Guard lock(channel_.doorbell->mutex);
    ++channel_.settings.changesAnswered;
    channel_.doorbell->bell.notify_all();
    return MPP_OK;
}

MPP_RET Context::tellBacklog(RK_S32* count) {
    if (count == nullptr) {
        return MPP_ERR_NULL_PTR;
    }
    const Guard lock(channel_.doorbell->mutex);
    *count = decoder_ ? decoder_->backlog() : 0;
    return MPP_OK;
}

MPP_RET Context::control(MpiCmd command, MppParam parameter) {
    switch (command) {
        case MPP_SET_INPUT_BLOCK:
        case MPP_SET_OUTPUT_BLOCK:
        case MPP_SET_INTPUT_BLOCK_TIMEOUT:
        case MPP_SET_INPUT_TIMEOUT:
        case MPP_SET_OUTPUT_BLOCK_TIMEOUT:
        case MPP_SET_OUTPUT_TIMEOUT:
            return setTime(command, parameter);
        case MPP_DEC_SET_PARSER_SPLIT_MODE:
            return store<RK_U32>(channel_, parameter, [](Settings& settings, RK_U32 value) {
                settings.splitPackets = value != 0;
            });
        case MPP_DEC_SET_DISABLE_ERROR:
            return store<RK_U32>(channel_, parameter, [](Settings& settings, RK_U32 value) {
                settings.hideErrors = value != 0;
            });
        case MPP_DEC_SET_EXT_BUF_GROUP:
            return setGroup(parameter);
        case MPP_DEC_SET_INFO_CHANGE_READY:
            return answerChange();
        case MPP_DEC_GET_STREAM_COUNT:
            return tellBacklog(static_cast<RK_S32*>(parameter));
        case MPP_DEC_QUERY:
            return parameter != nullptr ? query(*static_cast<MppDecQueryCfg*>(parameter))
                                        : MPP_ERR_NULL_PTR;
        case MPP_DEC_SET_FRAME_INFO:
        case MPP_DEC_SET_PRESENT_TIME_ORDER:
        case MPP_DEC_SET_PARSER_FAST_MODE:
        case MPP_DEC_SET_OUTPUT_FORMAT:
        case MPP_DEC_SET_IMMEDIATE_OUT:
        case MPP_DEC_SET_ENABLE_DEINTERLACE:
        case MPP_DEC_SET_ENABLE_FAST_PLAY:
        case MPP_DEC_SET_DISABLE_THREAD:
        case MPP_DEC_SET_MAX_USE_BUFFER_SIZE:
            return MPP_OK;
        default:
            return MPP_ERR_VALUE;
    }
}

}  // namespace mpp
