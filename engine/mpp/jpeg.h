// One JPEG picture into one buffer.
#pragma once

#include <vector>

#include "engine/mpp/frame.h"
#include "engine/mpp/packet.h"

namespace mpp {

class JpegDecoder {
  public:
    // Fills sizes, strides, format and needed size of `info` as far as the header was readable. 0,
    // or bits of MppFrameError: the buffer's content is then not to be used. Damage in the last
    // line of blocks only counts as good: some cameras cut their pictures short by a few bytes.
    RK_U32 decode(const Packet::Bytes& packet, const Buffer* into, FrameInfo& info);

  private:
    std::vector<unsigned char> scratch_;
};

}  // namespace mpp
