#include "engine/mpp/packet.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <new>

namespace mpp {

void Packet::release(Packet* packet) {
    if (packet->drop()) {
        delete packet;
    }
}

Packet::Bytes Packet::unread() const {
    // std::less orders pointers of different memories too.
    const std::less<> before;
    if (data == nullptr || pos == nullptr || before(pos, data) || !before(pos, data + size)) {
        return {};
    }
    return {pos, std::min(length, static_cast<std::size_t>(data + size - pos))};
}

namespace {

MPP_RET give(Packet* made, MppPacket* packet) {
    *packet = made != nullptr ? handleOf(made) : nullptr;
    return made != nullptr ? MPP_OK : MPP_ERR_MALLOC;
}

void setMemory(Packet& packet, void* data, std::size_t size) {
    packet.data = static_cast<unsigned char*>(data);
    packet.size = size;
    packet.pos = packet.data;
    packet.length = size;
}

}  // namespace
}  // namespace mpp

using mpp::as;
using mpp::Buffer;
using mpp::handleOf;
using mpp::Meta;
using mpp::Packet;
using mpp::Ref;
using mpp::refusal;

MPP_RET mpp_packet_new(MppPacket* packet) {
    return mpp_packet_init(packet, nullptr, 0);
}

MPP_RET mpp_packet_init(MppPacket* packet, void* data, size_t size) {
    if (packet == nullptr) {
        return MPP_ERR_NULL_PTR;
    }
    auto* made = new (std::nothrow) Packet;
    if (made != nullptr) {
        mpp::setMemory(*made, data, size);
    }
    return mpp::give(made, packet);
}

MPP_RET mpp_packet_init_with_buffer(MppPacket* packet, MppBuffer buffer) {
    if (packet == nullptr) {
        return MPP_ERR_NULL_PTR;
    }
    *packet = nullptr;
    auto* memory = as<Buffer>(buffer);
    if (memory == nullptr) {
        return refusal(buffer);
    }
    auto* made = new (std::nothrow) Packet;
    if (made != nullptr) {
        made->buffer = Ref<Buffer>(memory);
        mpp::setMemory(*made, memory->data(), memory->size());
    }
    return mpp::give(made, packet);
}

MPP_RET mpp_packet_copy_init(MppPacket* packet, const MppPacket src) {
    if (packet == nullptr) {
        return MPP_ERR_NULL_PTR;
    }
    *packet = nullptr;
    const auto* from = as<Packet>(src);
    if (from == nullptr) {
        return refusal(src);
    }
    auto* made = new (std::nothrow) Packet;
    if (made == nullptr) {
        return MPP_ERR_MALLOC;
    }
    const Packet::Bytes bytes = from->unread();
    if (bytes.size != 0) {
        made->copy.reset(new (std::nothrow) unsigned char[bytes.size]);
        if (!made->copy) {
            Packet::release(made);
            return MPP_ERR_MALLOC;
        }
        std::memcpy(made->copy.get(), bytes.data, bytes.size);
    }
    mpp::setMemory(*made, made->copy.get(), bytes.size);
    made->pts = from->pts;
    made->dts = from->dts;
    made->flag = from->flag;
    return mpp::give(made, packet);
}

MPP_RET mpp_packet_deinit(MppPacket* packet) {
    if (packet == nullptr) {
        return MPP_ERR_NULL_PTR;
    }
    auto* object = as<Packet>(*packet);
    if (object == nullptr) {
        return refusal(*packet);
    }
    *packet = nullptr;
    Packet::release(object);
    return MPP_OK;
}

void mpp_packet_set_data(MppPacket packet, void* data) {
    if (auto* object = as<Packet>(packet)) {
        object->data = static_cast<unsigned char*>(data);
    }
}

void* mpp_packet_get_data(const MppPacket packet) {
    const auto* object = as<Packet>(packet);
    return object != nullptr ? object->data : nullptr;
}

void mpp_packet_set_size(MppPacket packet, size_t size) {
    if (auto* object = as<Packet>(packet)) {
        object->size = size;
    }
}

size_t mpp_packet_get_size(const MppPacket packet) {
    const auto* object = as<Packet>(packet);
    return object != nullptr ? object->size : 0;
}

void mpp_packet_set_pos(MppPacket packet, void* pos) {
    if (auto* object = as<Packet>(packet)) {
        object->pos = static_cast<unsigned char*>(pos);
        object->length = object->size;  // unread() cuts what lies beyond the memory
        object->length = object->unread().size;
    }
}

void* mpp_packet_get_pos(const MppPacket packet) {
    const auto* object = as<Packet>(packet);
    return object != nullptr ? object->pos : nullptr;
}

void mpp_packet_set_length(MppPacket packet, size_t size) {
    if (auto* object = as<Packet>(packet)) {
        object->length = size;
    }
}

size_t mpp_packet_get_length(const MppPacket packet) {
    const auto* object = as<Packet>(packet);
    return object != nullptr ? object->length : 0;
}

void mpp_packet_set_pts(MppPacket packet, RK_S64 pts) {
    if (auto* object = as<Packet>(packet)) {
        object->pts = pts;
    }
}

RK_S64 mpp_packet_get_pts(const MppPacket packet) {
    const auto* object = as<Packet>(packet);
    return object != nullptr ? object->pts : 0;
}

void mpp_packet_set_dts(MppPacket packet, RK_S64 dts) {
    if (auto* object = as<Packet>(packet)) {
        object->dts = dts;
    }
}

RK_S64 mpp_packet_get_dts(const MppPacket packet) {
    const auto* object = as<Packet>(packet);
    return object != nullptr ? object->dts : 0;
}

void mpp_packet_set_flag(MppPacket packet, RK_U32 flag) {
    if (auto* object = as<Packet>(packet)) {
        object->flag = flag;
    }
}

RK_U32 mpp_packet_get_flag(const MppPacket packet) {
    const auto* object = as<Packet>(packet);
    return object != nullptr ? object->flag : 0;
}

MPP_RET mpp_packet_set_eos(MppPacket packet) {
    auto* object = as<Packet>(packet);
    if (object == nullptr) {
        return refusal(packet);
    }
    object->flag |= Packet::flagEos;
    return MPP_OK;
}

MPP_RET mpp_packet_clr_eos(MppPacket packet) {
    auto* object = as<Packet>(packet);
    if (object == nullptr) {
        return refusal(packet);
    }
    object->flag &= ~Packet::flagEos;
    return MPP_OK;
}

RK_U32 mpp_packet_get_eos(MppPacket packet) {
    const auto* object = as<Packet>(packet);
    return object != nullptr && (object->flag & Packet::flagEos) != 0 ? 1 : 0;
}

MPP_RET mpp_packet_set_extra_data(MppPacket packet) {
    auto* object = as<Packet>(packet);
    if (object == nullptr) {
        return refusal(packet);
    }
    object->flag |= Packet::flagExtraData;
    return MPP_OK;
}

void mpp_packet_set_buffer(MppPacket packet, MppBuffer buffer) {
    if (auto* object = as<Packet>(packet)) {
        object->buffer = Ref<Buffer>(as<Buffer>(buffer));
    }
}

MppBuffer mpp_packet_get_buffer(const MppPacket packet) {
    const auto* object = as<Packet>(packet);
    return object != nullptr && object->buffer ? handleOf(object->buffer.get()) : nullptr;
}

RK_S32 mpp_packet_has_meta(const MppPacket packet) {
    const auto* object = as<Packet>(packet);
    return object != nullptr && object->meta ? 1 : 0;
}

MppMeta mpp_packet_get_meta(const MppPacket packet) {
    auto* object = as<Packet>(packet);
    if (object == nullptr) {
        return nullptr;
    }
    if (!object->meta) {
        object->meta = Ref<Meta>::adopt(new (std::nothrow) Meta);
    }
    return object->meta ? handleOf(object->meta.get()) : nullptr;
}

MPP_RET mpp_packet_read(MppPacket packet, size_t offset, void* data, size_t size) {
    const auto* object = as<Packet>(packet);
    if (object == nullptr || data == nullptr) {
        return data == nullptr ? MPP_ERR_NULL_PTR : refusal(packet);
    }
    if (!object->contains(offset, size)) {
        return MPP_ERR_VALUE;
    }
    std::memcpy(data, object->data + offset, size);
    return MPP_OK;
}

MPP_RET mpp_packet_write(MppPacket packet, size_t offset, void* data, size_t size) {
    const auto* object = as<Packet>(packet);
    if (object == nullptr || data == nullptr) {
        return data == nullptr ? MPP_ERR_NULL_PTR : refusal(packet);
    }
    if (!object->contains(offset, size)) {
        return MPP_ERR_VALUE;
    }
    std::memcpy(object->data + offset, data, size);
    return MPP_OK;
}
