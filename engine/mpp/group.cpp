#include <algorithm>
#include <new>

#include "engine/mpp/buffer.h"

namespace mpp {
namespace {

void ring(const std::vector<std::shared_ptr<Doorbell>>& doorbells) {
    for (const auto& doorbell : doorbells) {
        doorbell->ring();
    }
}

}  // namespace

Group::Group(MppBufferType type, MppBufferMode mode) : Counted(kindOf), type_(type), mode_(mode) {}

Group::~Group() {
    for (Buffer* buffer : free_) {
        delete buffer;
    }
}

void Group::release(Group* group) {
    if (group->drop()) {
        delete group;
    }
}

Group& Group::shared() {
    static Group* const group = new Group(MPP_BUFFER_TYPE_NORMAL, MPP_BUFFER_INTERNAL);
    return *group;
}

Buffer* Group::findFree(std::size_t size) {
    auto best = free_.end();
    for (auto it = free_.begin(); it != free_.end(); ++it) {
        if ((*it)->size() >= size && (best == free_.end() || (*it)->size() < (*best)->size())) {
            best = it;
        }
    }
    if (best == free_.end()) {
        return nullptr;
    }
    Buffer* buffer = *best;
    free_.erase(best);
    return buffer;
}

// False when the limit of buffers is reached and none of them can go.
bool Group::makeRoom() {
    if (limitCount_ == 0 || out_ + static_cast<int>(free_.size()) < limitCount_) {
        return true;
    }
    if (free_.empty()) {
        return false;
    }
    bytes_ -= free_.back()->size();
    delete free_.back();
    free_.pop_back();
    return out_ + static_cast<int>(free_.size()) < limitCount_;
}

Buffer* Group::take(std::size_t size, MPP_RET& result) {
    const std::lock_guard<std::mutex> lock(mutex_);
    result = MPP_ERR_VALUE;
    if (closed_ || size == 0 || (limitSize_ != 0 && size > limitSize_)) {
        return nullptr;
    }
    result = MPP_ERR_NOMEM;
    Buffer* buffer = findFree(size);
    if (buffer == nullptr) {
        if (mode_ != MPP_BUFFER_INTERNAL || !makeRoom()) {
            return nullptr;
        }
        buffer = Buffer::allocate(size);
        if (buffer == nullptr) {
            return nullptr;
        }
        buffer->generation_ = generation_;
        buffer->info.type = type_;
        bytes_ += size;
    } else {
        buffer->retain();  // a free one has none
    }
    buffer->group_ = Ref<Group>(this);
    ++out_;
    result = MPP_OK;
    return buffer;
}

MPP_RET Group::commit(const MppBufferInfo& info) {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (closed_ || mode_ != MPP_BUFFER_EXTERNAL) {
        return MPP_ERR_PERM;
    }
    if (limitCount_ != 0 && out_ + static_cast<int>(free_.size()) >= limitCount_) {
        return MPP_ERR_NOMEM;
    }
    Buffer* buffer = Buffer::import(info);
    if (buffer == nullptr) {
        return MPP_ERR_MALLOC;
    }
    buffer->drop();
    buffer->generation_ = generation_;
    bytes_ += buffer->size();
    free_.push_back(buffer);
    return MPP_OK;
}

void Group::giveBack(Buffer* buffer) {
    std::vector<std::shared_ptr<Doorbell>> doorbells;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        doorbells = listeners();
        if (buffer->generation_ != generation_) {
            delete buffer;
            return;
        }
        --out_;
        free_.push_back(buffer);
    }
    ring(doorbells);
}

// Those to ring once the lock is gone.
std::vector<std::shared_ptr<Doorbell>> Group::listeners() {
    std::vector<std::shared_ptr<Doorbell>> doorbells;
    for (const auto& listener : listeners_) {
        if (auto doorbell = listener.lock()) {
            doorbells.push_back(std::move(doorbell));
        }
    }
    return doorbells;
}

void Group::limit(std::size_t size, int count) {
    std::vector<std::shared_ptr<Doorbell>> doorbells;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        limitSize_ = size;
        limitCount_ = count;
        doorbells = listeners();
    }
    ring(doorbells);
}

void Group::forget() {
    for (Buffer* buffer : free_) {
        delete buffer;
    }
    free_.clear();
    ++generation_;
    out_ = 0;
    bytes_ = 0;
}

void Group::clear() {
    std::vector<std::shared_ptr<Doorbell>> doorbells;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        forget();
        doorbells = listeners();
    }
    ring(doorbells);
}

void Group::close() {
    std::vector<std::shared_ptr<Doorbell>> doorbells;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        forget();
        closed_ = true;
        doorbells = listeners();
    }
    ring(doorbells);
}

int Group::unused() {
    const std::lock_guard<std::mutex> lock(mutex_);
    return static_cast<int>(free_.size());
}

std::size_t Group::usage() {
    const std::lock_guard<std::mutex> lock(mutex_);
    return bytes_;
}

void Group::listen(const std::shared_ptr<Doorbell>& doorbell) {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto gone = [](const auto& listener) { return listener.expired(); };
    listeners_.erase(std::remove_if(listeners_.begin(), listeners_.end(), gone), listeners_.end());
    listeners_.push_back(doorbell);
}

}  // namespace mpp

using mpp::as;
using mpp::Group;
using mpp::handleOf;
using mpp::refusal;

MPP_RET mpp_buffer_group_get(MppBufferGroup* group, MppBufferType type, MppBufferMode mode,
                             const char*, const char*) {
    if (group == nullptr) {
        return MPP_ERR_NULL_PTR;
    }
    *group = nullptr;
    const auto base = static_cast<unsigned>(type) & MPP_BUFFER_TYPE_MASK;
    if (base >= MPP_BUFFER_TYPE_BUTT || mode < MPP_BUFFER_INTERNAL ||
        mode >= MPP_BUFFER_MODE_BUTT) {
        return MPP_ERR_VALUE;
    }
    auto* made = new (std::nothrow) Group(type, mode);
    if (made == nullptr) {
        return MPP_ERR_MALLOC;
    }
    *group = handleOf(made);
    return MPP_OK;
}

MPP_RET mpp_buffer_group_put(MppBufferGroup group) {
    auto* object = as<Group>(group);
    if (object == nullptr) {
        return refusal(group);
    }
    object->close();
    Group::release(object);
    return MPP_OK;
}

MPP_RET mpp_buffer_group_clear(MppBufferGroup group) {
    auto* object = as<Group>(group);
    if (object == nullptr) {
        return refusal(group);
    }
    object->clear();
    return MPP_OK;
}

RK_S32 mpp_buffer_group_unused(MppBufferGroup group) {
    auto* object = as<Group>(group);
    return object != nullptr ? object->unused() : 0;
}

size_t mpp_buffer_group_usage(MppBufferGroup group) {
    auto* object = as<Group>(group);
    return object != nullptr ? object->usage() : 0;
}

MppBufferMode mpp_buffer_group_mode(MppBufferGroup group) {
    const auto* object = as<Group>(group);
    return object != nullptr ? object->mode() : MPP_BUFFER_MODE_BUTT;
}

MppBufferType mpp_buffer_group_type(MppBufferGroup group) {
    const auto* object = as<Group>(group);
    return object != nullptr ? object->type() : MPP_BUFFER_TYPE_BUTT;
}

MPP_RET mpp_buffer_group_limit_config(MppBufferGroup group, size_t size, RK_S32 count) {
    auto* object = as<Group>(group);
    if (object == nullptr) {
        return refusal(group);
    }
    if (count < 0) {
        return MPP_ERR_VALUE;
    }
    object->limit(size, count);
    return MPP_OK;
}
