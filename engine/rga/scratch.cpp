#include "engine/rga/scratch.h"

#include <new>

namespace rga {

Scratch& Scratch::begin() {
    thread_local Scratch scratch;
    scratch.used_ = 0;
    return scratch;
}

std::uint8_t* Scratch::take(std::size_t bytes) {
    if (used_ == slots_.size()) {
        throw std::bad_alloc();
    }
    Slot& slot = slots_[used_++];
    if (slot.bytes < bytes) {
        slot.bytes = 0;
        slot.memory.reset();  // before the new one, so that both never exist at once
        slot.memory.reset(new std::uint8_t[bytes]);
        slot.bytes = bytes;
    }
    return slot.memory.get();
}

}  // namespace rga
