// Programs of the decoder library, as the tests need them.
#pragma once

#include <rockchip/rk_mpi.h>

#include <chrono>
#include <cstdint>
#include <vector>

#include "tests/unit/mpp/coded.h"

namespace client {

using Clock = std::chrono::steady_clock;

double millisecondsSince(Clock::time_point start);

// The picture that most tests decode, and room for it.
coded::Bytes picture();
constexpr std::size_t frameBytes = 64 * 48 * 4;

// All that a context tells about itself.
MppDecQueryCfg query(MppCtx ctx, MppApi* mpi);

// A copy of what a frame tells and holds.
struct Shown {
    RK_U32 width = 0, height = 0, horStride = 0, verStride = 0;
    RK_U32 errinfo = 0, discard = 0, eos = 0;
    RK_S64 pts = 0;
    MppFrameFormat format = MPP_FMT_YUV_BUTT;
    bool hasBuffer = false;
    coded::Picture picture;  // empty without a buffer
};

Shown look(MppFrame frame);

// Task mode with one packet and one frame, as the application has them.
class Mjpeg {
  public:
    // `frameBytes`: size of the frame's buffer.
    explicit Mjpeg(std::size_t frameBytes);
    ~Mjpeg();
    Mjpeg(const Mjpeg&) = delete;
    Mjpeg& operator=(const Mjpeg&) = delete;

    // Sends one picture and waits for it. Failures of the calls are failures of the test.
    Shown decode(const coded::Bytes& jpeg);
    // The two halves of it. False with a failure of the test.
    bool send(const coded::Bytes& jpeg, RK_S64 pts = 0);
    bool receive(Shown& shown);

    MppCtx ctx = nullptr;
    MppApi* mpi = nullptr;
    MppPacket packet = nullptr;
    MppFrame frame = nullptr;
    MppBuffer packetBuffer = nullptr, frameBuffer = nullptr;
    MppBufferGroup group = nullptr;
};

// Simple mode: puts packets and takes frames as the application does.
class Avc {
  public:
    explicit Avc(bool split = true);
    ~Avc();
    Avc(const Avc&) = delete;
    Avc& operator=(const Avc&) = delete;

    // Puts it, taking frames while the decoder refuses.
    void feed(const coded::Bytes& packet, RK_S64 pts = 0, bool eos = false);
    // Takes what is ready; true when something was.
    bool drain();
    // Waits for one frame and takes it; false when none comes.
    bool waitAndHandle();
    // Takes frames until the end of the stream comes out.
    void finish();
    // One put without anything else.
    MPP_RET put(const coded::Bytes& packet, RK_S64 pts = 0, bool eos = false);
    // One frame, if it came in time: null otherwise. The caller's.
    MppFrame take(RK_S64 timeout_ms);
    // Answers an information change as the application does.
    void answer(MppFrame frame);

    std::vector<Shown> shown;  // pictures
    int changes = 0;
    bool ended = false;
    RK_S32 limit = 24;  // buffers of the group
    std::size_t maximumUsage = 0;
    MppCtx ctx = nullptr;
    MppApi* mpi = nullptr;
    MppBufferGroup group = nullptr;

  private:
    void handle(MppFrame frame);
};

}  // namespace client
