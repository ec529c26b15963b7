// The memory that an ioctl's argument points to, on its way to the daemon and back.
#pragma once

#include "board/protocol/nested.h"
#include "board/protocol/wire.h"

#include <sys/uio.h>

namespace board::preload {

class NestedCall {
  public:
    // `frameBytes`: of a sound stream's frame, 0 for another handle.
    explicit NestedCall(std::uint32_t frameBytes) : frameBytes_(frameBytes) {}

    // Finds the blocks of `code` in the caller's argument. 0, -EFAULT or -EINVAL (too much).
    long gather(std::uint32_t code, const void* argument, std::uint64_t bytes);

    // Fills the request's block table and the parts to send; returns how many parts.
    unsigned requestParts(wire::Request& request, iovec* parts) const;
    // Where the blocks of an answer go; returns how many parts.
    unsigned answerParts(const wire::Response& response, iovec* parts) const;

  private:
    long add(const wire::NestedPointer& pointer, const unsigned char* argument);

    std::uint32_t frameBytes_;
    unsigned count_ = 0;
    std::uint64_t toSend_ = 0;
    std::uint64_t room_ = 0;  // of the answer's message
    wire::Block blocks_[wire::maxBlocks];
    void* memory_[wire::maxBlocks];
};

}  // namespace board::preload
