// Buffers and their groups.
#pragma once

#include <rockchip/mpp_buffer.h>

#include <condition_variable>
#include <memory>
#include <mutex>
#include <vector>

#include "engine/mpp/handle.h"

namespace mpp {

// What a decoder waits on: its own calls and buffers that come back to its group. Shared, because a
// group may outlive the decoder.
struct Doorbell {
    std::mutex mutex;
    std::condition_variable bell;
    void ring();
};

class Group;

class Buffer : public Counted {
  public:
    static constexpr Kind kindOf = Kind::buffer;
    // Zeroed memory of its own, page aligned. Null when there is none.
    static Buffer* allocate(std::size_t size);
    // The program's memory.
    static Buffer* import(const MppBufferInfo& info);
    static void release(Buffer* buffer);

    unsigned char* data() const { return data_; }
    std::size_t size() const { return size_; }
    bool contains(std::size_t offset, std::size_t size) const {
        return offset <= size_ && size <= size_ - offset;
    }

    // Of the program; the group's lock does not guard them.
    MppBufferInfo info{};
    std::size_t offset = 0;

  private:
    friend class Group;
    Buffer() : Counted(kindOf) {}
    ~Buffer();

    struct Free {
        void operator()(unsigned char* memory) const;
    };
    std::unique_ptr<unsigned char, Free> memory_;
    unsigned char* data_ = nullptr;
    std::size_t size_ = 0;
    Ref<Group> group_;         // while it is out
    unsigned generation_ = 0;  // of its group when it was made
};

class Group : public Counted {
  public:
    static constexpr Kind kindOf = Kind::group;
    Group(MppBufferType type, MppBufferMode mode);
    static void release(Group* group);
    // The group of those that name none.
    static Group& shared();

    MppBufferType type() const { return type_; }
    MppBufferMode mode() const { return mode_; }

    // A buffer with one reference, the caller's; null with the reason.
    Buffer* take(std::size_t size, MPP_RET& result);
    // A free buffer over the program's memory.
    MPP_RET commit(const MppBufferInfo& info);
    void limit(std::size_t size, int count);
    void clear();
    // The program has put the group: nothing can be taken any more.
    void close();
    int unused();
    std::size_t usage();
    // Rung when a buffer comes back or the limits change.
    void listen(const std::shared_ptr<Doorbell>& doorbell);

  private:
    friend class Buffer;
    ~Group();
    void giveBack(Buffer* buffer);
    void forget();
    std::vector<std::shared_ptr<Doorbell>> listeners();
    Buffer* findFree(std::size_t size);
    bool makeRoom();

    const MppBufferType type_;
    const MppBufferMode mode_;
    std::mutex mutex_;  // guards all below
    std::vector<Buffer*> free_;
    int out_ = 0;            // of this generation
    std::size_t bytes_ = 0;  // of this generation, out and free
    unsigned generation_ = 0;
    std::size_t limitSize_ = 0;
    int limitCount_ = 0;
    bool closed_ = false;
    std::vector<std::weak_ptr<Doorbell>> listeners_;
};

}  // namespace mpp
