#include "engine/mpp/task.h"

namespace mpp {

Task::Task(const void* owner, MppPortType port) : Handle(kindOf), owner(owner), port(port) {}

namespace {

MppMeta metaOf(MppTask handle) {
    const auto* task = as<Task>(handle);
    return task != nullptr ? handleOf(task->meta.get()) : nullptr;
}

template <class Set, class T>
MPP_RET set(Set setter, MppTask task, MppMetaKey key, T value) {
    MppMeta meta = metaOf(task);
    return meta != nullptr ? setter(meta, key, value) : refusal(task);
}

template <class Get, class T>
MPP_RET get(Get getter, MppTask task, MppMetaKey key, T* value, T other) {
    if (value == nullptr) {
        return MPP_ERR_NULL_PTR;
    }
    *value = other;
    MppMeta meta = metaOf(task);
    return meta != nullptr ? getter(meta, key, value) : refusal(task);
}

}  // namespace
}  // namespace mpp

MPP_RET mpp_task_meta_set_s32(MppTask task, MppMetaKey key, RK_S32 val) {
    return mpp::set(mpp_meta_set_s32, task, key, val);
}

MPP_RET mpp_task_meta_set_s64(MppTask task, MppMetaKey key, RK_S64 val) {
    return mpp::set(mpp_meta_set_s64, task, key, val);
}

MPP_RET mpp_task_meta_set_ptr(MppTask task, MppMetaKey key, void* val) {
    return mpp::set(mpp_meta_set_ptr, task, key, val);
}

MPP_RET mpp_task_meta_set_frame(MppTask task, MppMetaKey key, MppFrame frame) {
    return mpp::set(mpp_meta_set_frame, task, key, frame);
}

MPP_RET mpp_task_meta_set_packet(MppTask task, MppMetaKey key, MppPacket packet) {
    return mpp::set(mpp_meta_set_packet, task, key, packet);
}

MPP_RET mpp_task_meta_set_buffer(MppTask task, MppMetaKey key, MppBuffer buffer) {
    return mpp::set(mpp_meta_set_buffer, task, key, buffer);
}

MPP_RET mpp_task_meta_get_s32(MppTask task, MppMetaKey key, RK_S32* val, RK_S32 default_val) {
    return mpp::get(mpp_meta_get_s32, task, key, val, default_val);
}

MPP_RET mpp_task_meta_get_s64(MppTask task, MppMetaKey key, RK_S64* val, RK_S64 default_val) {
    return mpp::get(mpp_meta_get_s64, task, key, val, default_val);
}

MPP_RET mpp_task_meta_get_ptr(MppTask task, MppMetaKey key, void** val, void* default_val) {
    return mpp::get(mpp_meta_get_ptr, task, key, val, default_val);
}

MPP_RET mpp_task_meta_get_frame(MppTask task, MppMetaKey key, MppFrame* frame) {
    return mpp::get<decltype(&mpp_meta_get_frame), MppFrame>(mpp_meta_get_frame, task, key, frame,
                                                             nullptr);
}

MPP_RET mpp_task_meta_get_packet(MppTask task, MppMetaKey key, MppPacket* packet) {
    return mpp::get<decltype(&mpp_meta_get_packet), MppPacket>(mpp_meta_get_packet, task, key,
                                                               packet, nullptr);
}

MPP_RET mpp_task_meta_get_buffer(MppTask task, MppMetaKey key, MppBuffer* buffer) {
    return mpp::get<decltype(&mpp_meta_get_buffer), MppBuffer>(mpp_meta_get_buffer, task, key,
                                                               buffer, nullptr);
}
