#include "engine/mpp/meta.h"

#include <new>

namespace mpp {

void Meta::release(Meta* meta) {
    if (meta->drop()) {
        delete meta;
    }
}

namespace {

MPP_RET set(MppMeta handle, MppMetaKey key, Meta::Value value) {
    auto* meta = as<Meta>(handle);
    if (meta == nullptr) {
        return refusal(handle);
    }
    meta->set(key, value);
    return MPP_OK;
}

template <class T>
MPP_RET get(MppMeta handle, MppMetaKey key, T* value) {
    const auto* meta = as<Meta>(handle);
    if (meta == nullptr || value == nullptr) {
        return value == nullptr ? MPP_ERR_NULL_PTR : refusal(handle);
    }
    const T* found = meta->find<T>(key);
    if (found == nullptr) {
        return MPP_NOK;
    }
    *value = *found;
    return MPP_OK;
}

template <class T>
MPP_RET getHandle(MppMeta handle, MppMetaKey key, void** value) {
    if (value == nullptr) {
        return MPP_ERR_NULL_PTR;
    }
    T found{};
    const MPP_RET result = get(handle, key, &found);
    if (result == MPP_OK) {
        *value = found.handle;
    }
    return result;
}

}  // namespace
}  // namespace mpp

using mpp::as;
using mpp::Meta;
using mpp::refusal;

MPP_RET mpp_meta_get_with_tag(MppMeta* meta, const char*, const char*) {
    if (meta == nullptr) {
        return MPP_ERR_NULL_PTR;
    }
    auto* made = new (std::nothrow) Meta;
    *meta = made != nullptr ? mpp::handleOf(made) : nullptr;
    return made != nullptr ? MPP_OK : MPP_ERR_MALLOC;
}

MPP_RET mpp_meta_put(MppMeta meta) {
    auto* object = as<Meta>(meta);
    if (object == nullptr) {
        return refusal(meta);
    }
    Meta::release(object);
    return MPP_OK;
}

RK_S32 mpp_meta_size(MppMeta meta) {
    const auto* object = as<Meta>(meta);
    return object != nullptr ? object->size() : 0;
}

MPP_RET mpp_meta_set_s32(MppMeta meta, MppMetaKey key, RK_S32 val) {
    return mpp::set(meta, key, val);
}

MPP_RET mpp_meta_set_s64(MppMeta meta, MppMetaKey key, RK_S64 val) {
    return mpp::set(meta, key, val);
}

MPP_RET mpp_meta_set_ptr(MppMeta meta, MppMetaKey key, void* val) {
    return mpp::set(meta, key, val);
}

MPP_RET mpp_meta_set_frame(MppMeta meta, MppMetaKey key, MppFrame frame) {
    return mpp::set(meta, key, mpp::FrameValue{frame});
}

MPP_RET mpp_meta_set_packet(MppMeta meta, MppMetaKey key, MppPacket packet) {
    return mpp::set(meta, key, mpp::PacketValue{packet});
}

MPP_RET mpp_meta_set_buffer(MppMeta meta, MppMetaKey key, MppBuffer buffer) {
    return mpp::set(meta, key, mpp::BufferValue{buffer});
}

MPP_RET mpp_meta_get_s32(MppMeta meta, MppMetaKey key, RK_S32* val) {
    return mpp::get(meta, key, val);
}

MPP_RET mpp_meta_get_s64(MppMeta meta, MppMetaKey key, RK_S64* val) {
    return mpp::get(meta, key, val);
}

MPP_RET mpp_meta_get_ptr(MppMeta meta, MppMetaKey key, void** val) {
    return mpp::get(meta, key, val);
}

MPP_RET mpp_meta_get_frame(MppMeta meta, MppMetaKey key, MppFrame* frame) {
    return mpp::getHandle<mpp::FrameValue>(meta, key, frame);
}

MPP_RET mpp_meta_get_packet(MppMeta meta, MppMetaKey key, MppPacket* packet) {
    return mpp::getHandle<mpp::PacketValue>(meta, key, packet);
}

MPP_RET mpp_meta_get_buffer(MppMeta meta, MppMetaKey key, MppBuffer* buffer) {
    return mpp::getHandle<mpp::BufferValue>(meta, key, buffer);
}
