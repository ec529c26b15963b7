#include "board/daemon/nestedblocks.h"

#include "board/protocol/nested.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace board {

namespace {

std::uint64_t countIn(const std::vector<std::byte>& argument, const wire::NestedPointer& pointer) {
    std::uint64_t count = 0;
    if (std::size_t(pointer.countOffset) + pointer.countBytes <= argument.size())
        std::memcpy(&count, argument.data() + pointer.countOffset, pointer.countBytes);
    return count;
}

}  // namespace

int takeBlocks(const wire::Request& request, const std::byte* payload, IoctlCall& call) {
    // What all blocks may send back together with the header and the argument.
    std::uint64_t room = wire::maxMessageBytes - sizeof(wire::Response) - call.argument.size();
    std::uint32_t index = 0;
    for (const wire::NestedPointer& pointer : wire::nestedPointers) {
        if (pointer.request != request.code)
            continue;
        NestedBlock block;
        if (index < request.blockCount) {
            const wire::Block& told = request.blocks[index];
            if (told.capacity > room)
                return EINVAL;
            room -= told.capacity;
            block.sent.assign(payload, payload + told.sent);
            block.capacity = told.capacity;
            payload += told.sent;
        }
        const std::uint64_t count = countIn(call.argument, pointer);
        // How long a frame is only the stream knows: it looks at the block's size itself.
        if (pointer.direction != wire::Direction::out &&
            pointer.elementBytes != wire::frameElement &&
            (count > wire::maxMessageBytes || block.sent.size() != count * pointer.elementBytes))
            return EINVAL;
        call.blocks.push_back(std::move(block));
        ++index;
    }
    return request.blockCount > index ? EINVAL : 0;
}

bool giveBlocks(const IoctlCall& call, std::uint32_t count, wire::Response& header,
                std::vector<std::byte>& payload) {
    bool whole = true;
    header.blockCount = count;
    for (std::uint32_t i = 0; i < count; ++i) {
        const NestedBlock& block = call.blocks[i];
        const std::size_t bytes = std::min<std::size_t>(block.reply.size(), block.capacity);
        whole = whole && bytes == block.reply.size();
        header.blockBytes[i] = std::uint32_t(bytes);
        payload.insert(payload.end(), block.reply.begin(), block.reply.begin() + long(bytes));
    }
    return whole;
}

}  // namespace board
