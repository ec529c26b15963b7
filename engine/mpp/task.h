// Pieces of work on their way between program and decoder.
#pragma once

#include <rockchip/mpp_task.h>

#include "engine/mpp/frame.h"
#include "engine/mpp/meta.h"
#include "engine/mpp/packet.h"

namespace mpp {

// What a task tells the decoder and the decoder tells about it. Taken at enqueue: the program may
// change or release its packet and frame afterwards.
struct Job {
    Ref<Packet> packet;
    Ref<Buffer> packetBuffer;
    Packet::Bytes bytes;
    Ref<Frame> frame;
    Ref<Buffer> buffer;
    FrameInfo result;
};

class Task : public Handle {
  public:
    static constexpr Kind kindOf = Kind::task;
    Task(const void* owner, MppPortType port);
    ~Task() = default;

    const void* const owner;
    const MppPortType port;
    const Ref<Meta> meta = Ref<Meta>::adopt(new Meta);
    // Stands in for the program's frame when there is no picture.
    const Ref<Frame> errorFrame = Ref<Frame>::adopt(new Frame);
    bool withProgram = false;
    Job job;
};

}  // namespace mpp
