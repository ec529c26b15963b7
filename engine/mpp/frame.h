// A picture in the program's hands.
#pragma once

#include <rockchip/mpp_frame.h>

#include "engine/mpp/buffer.h"
#include "engine/mpp/meta.h"

namespace mpp {

struct FrameInfo {
    RK_U32 width = 0, height = 0;
    RK_U32 horStride = 0, verStride = 0;
    RK_U32 horStridePixel = 0;
    RK_U32 offsetX = 0, offsetY = 0;
    RK_U32 mode = 0;
    RK_U32 discard = 0;
    RK_U32 viewid = 0;
    RK_U32 poc = 0;
    RK_U32 errinfo = 0;
    RK_U32 eos = 0;
    RK_U32 infoChange = 0;
    RK_S64 pts = 0, dts = 0;
    std::size_t bufSize = 0;
    MppFrameFormat format = MPP_FMT_YUV420SP;
};

class Frame : public Counted {
  public:
    static constexpr Kind kindOf = Kind::frame;
    Frame() : Counted(kindOf) {}
    static void release(Frame* frame);

    FrameInfo info;
    Ref<Buffer> buffer;
    Ref<Meta> meta;

  private:
    ~Frame() = default;
};

constexpr RK_U32 align16(RK_U32 size) {
    return (size + 15U) & ~15U;
}

}  // namespace mpp
