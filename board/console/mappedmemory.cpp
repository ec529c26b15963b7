#include "board/console/mappedmemory.h"

#include <sys/mman.h>
#include <sys/stat.h>

namespace board::console {

namespace {

constexpr std::size_t mostMappings = 8;

}  // namespace

MappedMemory::Bytes MappedMemory::of(int descriptor) {
    struct stat state {};
    if (::fstat(descriptor, &state) != 0 || state.st_size <= 0)
        return {};
    const auto size = std::size_t(state.st_size);
    for (const Mapping& mapping : mappings_)
        if (mapping.inode == state.st_ino && mapping.device == state.st_dev && mapping.size == size)
            return {static_cast<const std::uint8_t*>(mapping.address), size};
    void* address = ::mmap(nullptr, size, PROT_READ, MAP_SHARED, descriptor, 0);
    if (address == MAP_FAILED)
        return {};
    if (mappings_.size() >= mostMappings) {
        ::munmap(mappings_.front().address, mappings_.front().size);
        mappings_.pop_front();
    }
    mappings_.push_back({state.st_dev, state.st_ino, address, size});
    return {static_cast<const std::uint8_t*>(address), size};
}

void MappedMemory::clear() {
    for (const Mapping& mapping : mappings_)
        ::munmap(mapping.address, mapping.size);
    mappings_.clear();
}

}  // namespace board::console
