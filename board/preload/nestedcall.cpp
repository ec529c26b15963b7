#include "board/preload/nestedcall.h"

#include "board/preload/connection.h"

#include <cerrno>
#include <cstring>

namespace board::preload {

long NestedCall::gather(std::uint32_t code, const void* argument, std::uint64_t bytes) {
    bool checked = false;
    for (const wire::NestedPointer& pointer : wire::nestedPointers) {
        if (pointer.request != code || count_ == wire::maxBlocks)
            continue;
        if (!checked && !readable(argument, bytes))
            return -EFAULT;
        if (!checked)
            room_ = wire::maxMessageBytes - sizeof(wire::Response) - bytes;
        checked = true;
        if (const long result = add(pointer, static_cast<const unsigned char*>(argument));
            result < 0)
            return result;
    }
    return 0;
}

long NestedCall::add(const wire::NestedPointer& pointer, const unsigned char* argument) {
    std::uint64_t address = 0;
    std::uint64_t elements = 0;
    std::memcpy(&address, argument + pointer.pointerOffset, sizeof address);
    std::memcpy(&elements, argument + pointer.countOffset, pointer.countBytes);
    const bool sends = pointer.direction != wire::Direction::out;
    // A count that no message can hold: refused where it must be sent, cut where it is only room.
    if (elements > wire::maxMessageBytes) {
        if (sends)
            return -EINVAL;
        elements = wire::maxMessageBytes;
    }
    const std::uint64_t bytes =
        elements *
        (pointer.elementBytes == wire::frameElement ? frameBytes_ : pointer.elementBytes);
    if (sends && bytes > 0 && address == 0)
        return -EFAULT;
    wire::Block block{};
    if (sends) {
        toSend_ += bytes;
        if (toSend_ > wire::maxMessageBytes - sizeof(wire::Request) - wire::maxArgBytes)
            return -EINVAL;
        block.sent = std::uint32_t(bytes);
    }
    if (pointer.direction != wire::Direction::in && address != 0) {
        block.capacity = std::uint32_t(bytes < room_ ? bytes : room_);
        room_ -= block.capacity;
    }
    blocks_[count_] = block;
    // NOLINTNEXTLINE(performance-no-int-to-ptr): kernel structures hold addresses as numbers
    memory_[count_] = reinterpret_cast<void*>(address);
    ++count_;
    return 0;
}

unsigned NestedCall::requestParts(wire::Request& request, iovec* parts) const {
    request.blockCount = count_;
    for (unsigned i = 0; i < count_; ++i) {
        request.blocks[i] = blocks_[i];
        parts[i] = {memory_[i], blocks_[i].sent};
    }
    return count_;
}

unsigned NestedCall::answerParts(const wire::Response& response, iovec* parts) const {
    unsigned used = 0;
    for (unsigned i = 0; i < response.blockCount && i < count_; ++i) {
        if (response.blockBytes[i] == 0)
            continue;
        if (response.blockBytes[i] > blocks_[i].capacity)
            break;  // the daemon cuts what does not fit: this cannot be placed
        parts[used++] = {memory_[i], response.blockBytes[i]};
    }
    return used;
}

}  // namespace board::preload
