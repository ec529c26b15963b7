#include "engine/mpp/buffer.h"

#include <cstdlib>
#include <cstring>
#include <new>

namespace mpp {
namespace {

constexpr std::size_t page = 4096;

std::atomic<std::size_t> totalNow{0};
std::atomic<std::size_t> totalMax{0};

void countBytes(std::size_t bytes) {
    const std::size_t now = totalNow.fetch_add(bytes) + bytes;
    std::size_t highest = totalMax.load();
    while (now > highest && !totalMax.compare_exchange_weak(highest, now)) {
    }
}

}  // namespace

void Doorbell::ring() {
    // The lock closes the gap between a waiter's look and its sleep.
    { const std::lock_guard<std::mutex> lock(mutex); }
    bell.notify_all();
}

void Buffer::Free::operator()(unsigned char* memory) const {
    std::free(memory);
}

Buffer::~Buffer() {
    if (memory_) {
        totalNow.fetch_sub(size_);
    }
}

Buffer* Buffer::allocate(std::size_t size) {
    // The exact size, not a rounded one: a write beyond it shall be seen.
    void* memory = nullptr;
    if (posix_memalign(&memory, page, size) != 0) {
        return nullptr;
    }
    std::memset(memory, 0, size);
    auto* buffer = new (std::nothrow) Buffer;
    if (buffer == nullptr) {
        std::free(memory);
        return nullptr;
    }
    buffer->memory_.reset(static_cast<unsigned char*>(memory));
    buffer->data_ = buffer->memory_.get();
    buffer->size_ = size;
    buffer->info.size = size;
    buffer->info.ptr = memory;
    buffer->info.fd = -1;
    countBytes(size);
    return buffer;
}

Buffer* Buffer::import(const MppBufferInfo& info) {
    auto* buffer = new (std::nothrow) Buffer;
    if (buffer != nullptr) {
        buffer->info = info;
        buffer->data_ = static_cast<unsigned char*>(info.ptr);
        buffer->size_ = info.size;
    }
    return buffer;
}

void Buffer::release(Buffer* buffer) {
    if (!buffer->drop()) {
        return;
    }
    // Out of the buffer first: the group may free it.
    const Ref<Group> group = std::move(buffer->group_);
    if (group) {
        group->giveBack(buffer);
    } else {
        delete buffer;
    }
}

}  // namespace mpp

using mpp::as;
using mpp::Buffer;
using mpp::Group;
using mpp::handleOf;
using mpp::refusal;

RK_U32 mpp_buffer_total_now(void) {
    return static_cast<RK_U32>(mpp::totalNow.load());
}

RK_U32 mpp_buffer_total_max(void) {
    return static_cast<RK_U32>(mpp::totalMax.load());
}

MPP_RET mpp_buffer_import_with_tag(MppBufferGroup group, MppBufferInfo* info, MppBuffer* buffer,
                                   const char*, const char*) {
    if (info == nullptr || info->ptr == nullptr || (group == nullptr && buffer == nullptr)) {
        return MPP_ERR_NULL_PTR;
    }
    if (info->size == 0) {
        return MPP_ERR_VALUE;
    }
    if (buffer == nullptr) {
        auto* into = as<Group>(group);
        return into != nullptr ? into->commit(*info) : refusal(group);
    }
    Buffer* imported = Buffer::import(*info);
    *buffer = imported != nullptr ? handleOf(imported) : nullptr;
    return imported != nullptr ? MPP_OK : MPP_ERR_MALLOC;
}

MPP_RET mpp_buffer_get_with_tag(MppBufferGroup group, MppBuffer* buffer, size_t size, const char*,
                                const char*) {
    if (buffer == nullptr) {
        return MPP_ERR_NULL_PTR;
    }
    *buffer = nullptr;
    Group* from = group != nullptr ? as<Group>(group) : &Group::shared();
    if (from == nullptr) {
        return MPP_ERR_VALUE;
    }
    MPP_RET result = MPP_OK;
    if (Buffer* taken = from->take(size, result)) {
        *buffer = handleOf(taken);
    }
    return result;
}

MPP_RET mpp_buffer_put_with_caller(MppBuffer buffer, const char*) {
    auto* object = as<Buffer>(buffer);
    if (object == nullptr) {
        return refusal(buffer);
    }
    Buffer::release(object);
    return MPP_OK;
}

MPP_RET mpp_buffer_inc_ref_with_caller(MppBuffer buffer, const char*) {
    auto* object = as<Buffer>(buffer);
    if (object == nullptr) {
        return refusal(buffer);
    }
    object->retain();
    return MPP_OK;
}

MPP_RET mpp_buffer_info_get_with_caller(MppBuffer buffer, MppBufferInfo* info, const char*) {
    const auto* object = as<Buffer>(buffer);
    if (object == nullptr || info == nullptr) {
        return info == nullptr ? MPP_ERR_NULL_PTR : refusal(buffer);
    }
    *info = object->info;
    return MPP_OK;
}

MPP_RET mpp_buffer_read_with_caller(MppBuffer buffer, size_t offset, void* data, size_t size,
                                    const char*) {
    const auto* object = as<Buffer>(buffer);
    if (object == nullptr || data == nullptr) {
        return data == nullptr ? MPP_ERR_NULL_PTR : refusal(buffer);
    }
    if (!object->contains(offset, size)) {
        return MPP_ERR_VALUE;
    }
    std::memcpy(data, object->data() + offset, size);
    return MPP_OK;
}

MPP_RET mpp_buffer_write_with_caller(MppBuffer buffer, size_t offset, void* data, size_t size,
                                     const char*) {
    const auto* object = as<Buffer>(buffer);
    if (object == nullptr || data == nullptr) {
        return data == nullptr ? MPP_ERR_NULL_PTR : refusal(buffer);
    }
    if (!object->contains(offset, size)) {
        return MPP_ERR_VALUE;
    }
    std::memcpy(object->data() + offset, data, size);
    return MPP_OK;
}

void* mpp_buffer_get_ptr_with_caller(MppBuffer buffer, const char*) {
    const auto* object = as<Buffer>(buffer);
    return object != nullptr ? object->data() : nullptr;
}

int mpp_buffer_get_fd_with_caller(MppBuffer buffer, const char*) {
    const auto* object = as<Buffer>(buffer);
    return object != nullptr ? object->info.fd : -1;
}

size_t mpp_buffer_get_size_with_caller(MppBuffer buffer, const char*) {
    const auto* object = as<Buffer>(buffer);
    return object != nullptr ? object->size() : 0;
}

int mpp_buffer_get_index_with_caller(MppBuffer buffer, const char*) {
    const auto* object = as<Buffer>(buffer);
    return object != nullptr ? object->info.index : -1;
}

MPP_RET mpp_buffer_set_index_with_caller(MppBuffer buffer, int index, const char*) {
    auto* object = as<Buffer>(buffer);
    if (object == nullptr) {
        return refusal(buffer);
    }
    object->info.index = index;
    return MPP_OK;
}

size_t mpp_buffer_get_offset_with_caller(MppBuffer buffer, const char*) {
    const auto* object = as<Buffer>(buffer);
    return object != nullptr ? object->offset : 0;
}

MPP_RET mpp_buffer_set_offset_with_caller(MppBuffer buffer, size_t offset, const char*) {
    auto* object = as<Buffer>(buffer);
    if (object == nullptr) {
        return refusal(buffer);
    }
    object->offset = offset;
    return MPP_OK;
}
