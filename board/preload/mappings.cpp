#include "board/preload/mappings.h"

#include "board/preload/connection.h"

namespace board::preload {

namespace detail {
std::atomic<int> mappings{0};
}

namespace {

struct Mapping {
    Handle* handle;  // null: free; holds a count
    std::uintptr_t address;
    std::size_t bytes;
    std::uint64_t offset;
};

constexpr unsigned maxMappings = 1024;
Mapping table[maxMappings];
FutexLock tableLock;

bool record(HandleRef& handle, std::uintptr_t address, std::size_t bytes, std::uint64_t offset) {
    const Locked locked(tableLock);
    for (Mapping& entry : table) {
        if (entry.handle != nullptr)
            continue;
        entry = {handle.keep(), address, bytes, offset};
        detail::mappings.fetch_add(1, std::memory_order_release);
        return true;
    }
    return false;
}

}  // namespace

long mapBoard(HandleRef handle, void* address, std::size_t bytes, int protection, int flags,
              std::uint64_t offset) {
    const long memory = callMap(*handle, offset, bytes, std::uint32_t(protection));
    if (memory < 0)
        return memory;
    const long mapped = raw(SYS_mmap, address, bytes, protection, flags, memory, 0);
    raw(SYS_close, memory);
    if (mapped < 0 && mapped >= -4095) {
        callUnmap(*handle, offset, bytes);
        return mapped;
    }
    if (record(handle, std::uintptr_t(mapped), bytes, offset))
        return mapped;
    raw(SYS_munmap, mapped, bytes);
    callUnmap(*handle, offset, bytes);
    return -ENOMEM;
}

Unmapping::Unmapping(const void* address, std::size_t bytes) {
    const auto start = reinterpret_cast<std::uintptr_t>(address);
    const Locked locked(tableLock);
    for (Mapping& entry : table) {
        if (entry.handle == nullptr || entry.address < start || entry.address - start >= bytes ||
            count_ == most_)
            continue;
        gone_[count_++] = {entry.handle, entry.bytes, entry.offset};
        entry.handle = nullptr;
        detail::mappings.fetch_sub(1, std::memory_order_release);
    }
}

Unmapping::~Unmapping() {
    for (unsigned i = 0; i < count_; ++i) {
        const HandleRef handle(gone_[i].handle);
        callUnmap(*handle, gone_[i].offset, gone_[i].bytes);
    }
}

void dropMappingsInChild() {
    tableLock.reset();
}

}  // namespace board::preload
