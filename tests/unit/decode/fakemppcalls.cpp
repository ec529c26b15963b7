// The library's functions.
#include "tests/unit/decode/fakemppobjects.h"

using namespace played;

namespace {

Packet& packetOf(MppPacket packet) {
    return *static_cast<Packet*>(packet);
}
Frame& frameOf(MppFrame frame) {
    return *static_cast<Frame*>(frame);
}
Context& contextOf(MppCtx ctx) {
    return *static_cast<Context*>(ctx);
}

MppApi& api() {
    static MppApi table = [] {
        MppApi made{};
        made.decode_put_packet = [](MppCtx, MppPacket packet) {
            return FakeCalls::put(packetOf(packet));
        };
        made.decode_get_frame = [](MppCtx, MppFrame* frame) { return FakeCalls::get(frame); };
        made.poll = [](MppCtx ctx, MppPortType port, MppPollType timeout) {
            return FakeCalls::poll(contextOf(ctx), port, static_cast<int>(timeout));
        };
        made.dequeue = [](MppCtx ctx, MppPortType port, MppTask* task) {
            return FakeCalls::dequeue(contextOf(ctx), port, task);
        };
        made.enqueue = [](MppCtx ctx, MppPortType port, MppTask) {
            return FakeCalls::enqueue(contextOf(ctx), port);
        };
        made.reset = [](MppCtx) {
            const auto lock = FakeCalls::locked();
            return FakeCalls::note("reset").value_or(MPP_OK);
        };
        made.control = [](MppCtx, MpiCmd command, MppParam parameter) {
            return FakeCalls::control(command, parameter);
        };
        return made;
    }();
    return table;
}

// Makes an object unless the call is to fail.
template <typename Object>
MPP_RET make(const char* call, const char* kind, void** result) {
    const auto lock = FakeCalls::locked();
    if (const auto failed = FakeCalls::note(call)) {
        return *failed;
    }
    *result = new Object;
    FakeCalls::count(kind, 1);
    return MPP_OK;
}

}  // namespace

extern "C" {

RK_U32 mpp_debug = 0;

RK_S32 mpp_env_set_u32(const char* name, RK_U32 value) {
    FakeCalls::setEnvironment(name, value);
    return 0;
}

MPP_RET mpp_create(MppCtx* ctx, MppApi** mpi) {
    *mpi = &api();
    return make<Context>("mpp_create", "context", ctx);
}

MPP_RET mpp_init(MppCtx, MppCtxType, MppCodingType) {
    const auto lock = FakeCalls::locked();
    return FakeCalls::note("mpp_init").value_or(MPP_OK);
}

MPP_RET mpp_destroy(MppCtx ctx) {
    const auto lock = FakeCalls::locked();
    FakeCalls::note("mpp_destroy");
    delete &contextOf(ctx);
    FakeCalls::count("context", -1);
    return MPP_OK;
}

MPP_RET mpp_buffer_group_get(MppBufferGroup* group, MppBufferType type, MppBufferMode mode,
                             const char* tag, const char*) {
    if (type != MPP_BUFFER_TYPE_ION || mode != MPP_BUFFER_INTERNAL || tag == nullptr) {
        return MPP_ERR_VALUE;
    }
    return make<int>((std::string("group ") + tag).c_str(), "group", group);
}

MPP_RET mpp_buffer_group_put(MppBufferGroup group) {
    const auto lock = FakeCalls::locked();
    FakeCalls::note("mpp_buffer_group_put");
    delete static_cast<int*>(group);
    FakeCalls::count("group", -1);
    return MPP_OK;
}

MPP_RET mpp_buffer_group_clear(MppBufferGroup) {
    const auto lock = FakeCalls::locked();
    return FakeCalls::note("mpp_buffer_group_clear").value_or(MPP_OK);
}

size_t mpp_buffer_group_usage(MppBufferGroup) {
    const auto lock = FakeCalls::locked();
    FakeCalls::note("mpp_buffer_group_usage");
    return 1000;
}

MPP_RET mpp_buffer_group_limit_config(MppBufferGroup, size_t size, RK_S32 count) {
    const auto lock = FakeCalls::locked();
    if (const auto failed = FakeCalls::note("mpp_buffer_group_limit_config")) {
        return *failed;
    }
    FakeCalls::setLimit(size, count);
    return MPP_OK;
}

MPP_RET mpp_buffer_get_with_tag(MppBufferGroup, MppBuffer* buffer, size_t size, const char*,
                                const char*) {
    const auto lock = FakeCalls::locked();
    if (const auto failed = FakeCalls::note("mpp_buffer_get")) {
        return *failed;
    }
    FakeCalls::noteBufferSize(size);
    *buffer = FakeCalls::makeBuffer(size);
    return MPP_OK;
}

MPP_RET mpp_buffer_put_with_caller(MppBuffer buffer, const char*) {
    const auto lock = FakeCalls::locked();
    FakeCalls::note("mpp_buffer_put");
    FakeCalls::release(static_cast<Buffer*>(buffer));
    return MPP_OK;
}

void* mpp_buffer_get_ptr_with_caller(MppBuffer buffer, const char*) {
    return static_cast<Buffer*>(buffer)->memory.data();
}

size_t mpp_buffer_get_size_with_caller(MppBuffer buffer, const char*) {
    return static_cast<Buffer*>(buffer)->memory.size();
}

MPP_RET mpp_packet_init(MppPacket* packet, void*, size_t) {
    return make<Packet>("mpp_packet_init", "packet", packet);
}

MPP_RET mpp_packet_init_with_buffer(MppPacket* packet, MppBuffer buffer) {
    const MPP_RET ret = make<Packet>("mpp_packet_init_with_buffer", "packet", packet);
    if (ret == MPP_OK) {
        Packet& made = packetOf(*packet);
        made.buffer = static_cast<Buffer*>(buffer);
        made.data = made.pos = made.buffer->memory.data();
        made.size = made.length = made.buffer->memory.size();
        const auto lock = FakeCalls::locked();
        ++made.buffer->references;
    }
    return ret;
}

MPP_RET mpp_packet_deinit(MppPacket* packet) {
    const auto lock = FakeCalls::locked();
    FakeCalls::note(packetOf(*packet).data == nullptr ? "mpp_packet_deinit of no data"
                                                      : "mpp_packet_deinit");
    FakeCalls::release(packetOf(*packet).buffer);
    delete &packetOf(*packet);
    *packet = nullptr;
    FakeCalls::count("packet", -1);
    return MPP_OK;
}

void mpp_packet_set_data(MppPacket packet, void* data) {
    packetOf(packet).data = static_cast<unsigned char*>(data);
}
void mpp_packet_set_size(MppPacket packet, size_t size) {
    packetOf(packet).size = size;
}
size_t mpp_packet_get_size(const MppPacket packet) {
    return packetOf(packet).size;
}
void mpp_packet_set_pos(MppPacket packet, void* pos) {
    packetOf(packet).pos = static_cast<unsigned char*>(pos);
}
void mpp_packet_set_length(MppPacket packet, size_t size) {
    packetOf(packet).length = size;
}

MPP_RET mpp_frame_init(MppFrame* frame) {
    return make<Frame>("mpp_frame_init", "frame", frame);
}

MPP_RET mpp_frame_deinit(MppFrame* frame) {
    const auto lock = FakeCalls::locked();
    FakeCalls::note("mpp_frame_deinit");
    FakeCalls::release(frameOf(*frame).buffer);
    delete &frameOf(*frame);
    *frame = nullptr;
    FakeCalls::count("frame", -1);
    return MPP_OK;
}

void mpp_frame_set_buffer(MppFrame frame, MppBuffer buffer) {
    const auto lock = FakeCalls::locked();
    frameOf(frame).buffer = static_cast<Buffer*>(buffer);
    ++frameOf(frame).buffer->references;
}

MppBuffer mpp_frame_get_buffer(const MppFrame frame) {
    return frameOf(frame).buffer;
}
RK_U32 mpp_frame_get_width(const MppFrame frame) {
    return frameOf(frame).picture.width;
}
RK_U32 mpp_frame_get_height(const MppFrame frame) {
    return frameOf(frame).picture.height;
}
RK_U32 mpp_frame_get_hor_stride(const MppFrame frame) {
    return (frameOf(frame).picture.width + 15) & ~15U;
}
RK_U32 mpp_frame_get_ver_stride(const MppFrame frame) {
    return (frameOf(frame).picture.height + 15) & ~15U;
}
MppFrameFormat mpp_frame_get_fmt(MppFrame frame) {
    return static_cast<MppFrameFormat>(frameOf(frame).picture.format);
}
RK_U32 mpp_frame_get_errinfo(const MppFrame frame) {
    return frameOf(frame).picture.error;
}
RK_U32 mpp_frame_get_discard(const MppFrame frame) {
    return frameOf(frame).picture.discard;
}
RK_U32 mpp_frame_get_eos(const MppFrame frame) {
    return frameOf(frame).picture.endOfStream ? 1 : 0;
}
RK_U32 mpp_frame_get_info_change(const MppFrame frame) {
    return frameOf(frame).picture.infoChange ? 1 : 0;
}
size_t mpp_frame_get_buf_size(const MppFrame frame) {
    return frameOf(frame).picture.bufferSize;
}
RK_S32 mpp_frame_has_meta(const MppFrame frame) {
    return frameOf(frame).picture.withTemporalId ? 1 : 0;
}
MppMeta mpp_frame_get_meta(const MppFrame frame) {
    return frame;
}
MPP_RET mpp_meta_get_s32(MppMeta, MppMetaKey key, RK_S32* value) {
    if (key != KEY_TEMPORAL_ID) {
        return MPP_NOK;
    }
    *value = 3;
    return MPP_OK;
}

MPP_RET mpp_task_meta_set_packet(MppTask task, MppMetaKey key, MppPacket packet) {
    static_cast<Task*>(task)->packet = key == KEY_INPUT_PACKET ? &packetOf(packet) : nullptr;
    return MPP_OK;
}
MPP_RET mpp_task_meta_set_frame(MppTask task, MppMetaKey key, MppFrame frame) {
    static_cast<Task*>(task)->frame = key == KEY_OUTPUT_FRAME ? &frameOf(frame) : nullptr;
    return MPP_OK;
}
MPP_RET mpp_task_meta_get_frame(MppTask task, MppMetaKey, MppFrame* frame) {
    *frame = FakeCalls::outputOf(*static_cast<Task*>(task));
    return MPP_OK;
}
}
