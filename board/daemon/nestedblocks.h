// The blocks that an ioctl's argument points to, between a message and an IoctlCall.
#pragma once

#include "board/daemon/device.h"
#include "board/protocol/wire.h"

#include <vector>

namespace board {

// Fills call.blocks: one per pointer of this ioctl, in the table's order, empty where the message
// has none. `payload` is what follows the argument; its lengths were checked. 0, or a positive
// errno when a block does not fit the count that the argument names: a device may rely on it, but
// for the frames of a sound stream.
int takeBlocks(const wire::Request& request, const std::byte* payload, IoctlCall& call);

// Appends the replies of the first `count` blocks to `payload`. False when one was longer than its
// capacity and was cut.
bool giveBlocks(const IoctlCall& call, std::uint32_t count, wire::Response& header,
                std::vector<std::byte>& payload);

}  // namespace board
