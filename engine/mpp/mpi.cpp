#include <rockchip/rk_mpi.h>

#include <cstdio>
#include <map>
#include <mutex>
#include <new>
#include <string>

#include "engine/mpp/context.h"
#include "engine/mpp/mpicalls.h"

namespace mpp {
namespace {

// Calls `use` with the decoder behind the handle.
template <class Use>
MPP_RET withDecoder(MppCtx handle, Use use) {
    auto* context = as<Context>(handle);
    if (context == nullptr) {
        return refusal(handle);
    }
    Decoder* decoder = context->decoder();
    return decoder != nullptr ? use(*decoder) : MPP_ERR_INIT;
}

MPP_RET putPacket(MppCtx ctx, MppPacket packet) {
    return withDecoder(ctx, [&](Decoder& decoder) {
        const auto* object = as<Packet>(packet);
        return object != nullptr ? decoder.put(*object) : refusal(packet);
    });
}

MPP_RET getFrame(MppCtx ctx, MppFrame* frame) {
    return withDecoder(ctx, [&](Decoder& decoder) {
        if (frame == nullptr) {
            return MPP_ERR_NULL_PTR;
        }
        Frame* taken = nullptr;
        const MPP_RET result = decoder.get(taken);
        *frame = taken != nullptr ? handleOf(taken) : nullptr;
        return result;
    });
}

MPP_RET decode(MppCtx ctx, MppPacket packet, MppFrame* frame) {
    const MPP_RET result = putPacket(ctx, packet);
    return result == MPP_OK ? getFrame(ctx, frame) : result;
}

MPP_RET poll(MppCtx ctx, MppPortType port, MppPollType timeout) {
    return withDecoder(ctx, [&](Decoder& decoder) { return decoder.poll(port, timeout); });
}

MPP_RET dequeue(MppCtx ctx, MppPortType port, MppTask* task) {
    return withDecoder(ctx, [&](Decoder& decoder) {
        return task != nullptr ? decoder.dequeue(port, *task) : MPP_ERR_NULL_PTR;
    });
}

MPP_RET enqueue(MppCtx ctx, MppPortType port, MppTask task) {
    return withDecoder(ctx, [&](Decoder& decoder) { return decoder.enqueue(port, task); });
}

MPP_RET reset(MppCtx ctx) {
    return withDecoder(ctx, [](Decoder& decoder) { return decoder.reset(); });
}

MPP_RET control(MppCtx ctx, MpiCmd cmd, MppParam param) {
    auto* context = as<Context>(ctx);
    return context != nullptr ? context->control(cmd, param) : refusal(ctx);
}

// There is no encoder and no image processor.
MPP_RET encode(MppCtx, MppFrame, MppPacket*) {
    return MPP_NOK;
}

MPP_RET takesFrame(MppCtx, MppFrame) {
    return MPP_NOK;
}

MPP_RET givesPacket(MppCtx, MppPacket*) {
    return MPP_NOK;
}

MPP_RET process(MppCtx, MppFrame, MppFrame) {
    return MPP_NOK;
}

MPP_RET givesFrame(MppCtx, MppFrame*) {
    return MPP_NOK;
}

std::mutex environmentMutex;

std::map<std::string, RK_U32>& environment() {
    static std::map<std::string, RK_U32> values;
    return values;
}

}  // namespace

MppApi apiCalls() {
    MppApi api{};
    api.size = sizeof(MppApi);
    api.version = 1;
    api.decode = decode;
    api.decode_put_packet = putPacket;
    api.decode_get_frame = getFrame;
    api.encode = encode;
    api.encode_put_frame = takesFrame;
    api.encode_get_packet = givesPacket;
    api.isp = process;
    api.isp_put_frame = takesFrame;
    api.isp_get_frame = givesFrame;
    api.poll = poll;
    api.dequeue = dequeue;
    api.enqueue = enqueue;
    api.reset = reset;
    api.control = control;
    return api;
}

}  // namespace mpp

using mpp::as;
using mpp::Context;
using mpp::refusal;

MPP_RET mpp_create(MppCtx* ctx, MppApi** mpi) {
    if (ctx == nullptr || mpi == nullptr) {
        return MPP_ERR_NULL_PTR;
    }
    *ctx = nullptr;
    *mpi = nullptr;
    auto* context = new (std::nothrow) Context;
    if (context == nullptr) {
        return MPP_ERR_MALLOC;
    }
    *ctx = mpp::handleOf(context);
    *mpi = context->api();
    return MPP_OK;
}

MPP_RET mpp_init(MppCtx ctx, MppCtxType type, MppCodingType coding) {
    auto* context = as<Context>(ctx);
    return context != nullptr ? context->init(type, coding) : refusal(ctx);
}

MPP_RET mpp_destroy(MppCtx ctx) {
    auto* context = as<Context>(ctx);
    if (context == nullptr) {
        return refusal(ctx);
    }
    delete context;
    return MPP_OK;
}

MPP_RET mpp_check_support_format(MppCtxType type, MppCodingType coding) {
    return mpp::supports(type, coding) ? MPP_OK : MPP_NOK;
}

void mpp_show_support_format(void) {
    std::fputs("decoders: H.264/AVC, MJPEG (baseline)\n", stderr);
}

void mpp_show_color_format(void) {
    std::fputs("formats: 4:2:0 and 4:2:2 semi-planar; MJPEG also 4:0:0, 4:4:0, 4:1:1, 4:4:4\n",
               stderr);
}

// Not in the library's public headers; programs declare these themselves, weakly. A linker does not
// fetch a library's member for a weak name alone: they stand in the member that has mpp_create.
extern "C" {

extern RK_U32 mpp_debug;
RK_U32 mpp_debug = 0;  // the program's to set; the software decoder has no use for it

RK_S32 mpp_env_set_u32(const char* name, RK_U32 value);
RK_S32 mpp_env_get_u32(const char* name, RK_U32* value, RK_U32 default_value);

RK_S32 mpp_env_set_u32(const char* name, RK_U32 value) {
    if (name == nullptr) {
        return MPP_ERR_NULL_PTR;
    }
    const std::lock_guard<std::mutex> lock(mpp::environmentMutex);
    mpp::environment().insert_or_assign(name, value);
    return 0;
}

RK_S32 mpp_env_get_u32(const char* name, RK_U32* value, RK_U32 default_value) {
    if (name == nullptr || value == nullptr) {
        return MPP_ERR_NULL_PTR;
    }
    const std::lock_guard<std::mutex> lock(mpp::environmentMutex);
    const auto it = mpp::environment().find(name);
    *value = it != mpp::environment().end() ? it->second : default_value;
    return 0;
}

}  // extern "C"
