// One channel of the hardware decoder: what both decoders have in common.
#pragma once

#include "control/task/mediatypes.h"

#include <rockchip/rk_mpi.h>
#include <array>
#include <cstddef>

// What a channel is to be.
struct MppChannelSetup {
    // From this number on there are no formats to choose: the decoder keeps its own.
    static constexpr RK_U32 nativeFormat = 0x1000f;

    RK_U32 width = 0, height = 0;  // of the stream, in pixels
    MppCodingType type = MPP_VIDEO_CodingUnused;
    RK_U32 format = nativeFormat;
    RK_U32 debug = 0;
    bool simple = false;   // put packet / get frame; otherwise task queues
    RK_S32 timeout = 0;    // ms that an output call waits
    RK_S32 maxFrames = 0;  // 0: no limit
    RK_U32 packetSize = 4096;
};

// Handles are null where there is nothing. Not copied: each handle has one owner. One thread uses a
// channel at a time.
struct MppChannel {
    MppChannel() = default;
    MppChannel(const MppChannel&) = delete;
    MppChannel& operator=(const MppChannel&) = delete;

    // Clears the set-up, fills it for a stream and logs it.
    void describe(const decInfo& mode, MppCodingType type);
    // Makes context, packet and, in task mode, the buffers. The result of the last step; a channel
    // that lacks a buffer may come out with success, so ask usable() too.
    MPP_RET mpi_dec_decode();
    bool usable() const;
    // Task mode: makes the packet buffer at least so large. False, with one line, when there is no
    // memory; the channel stays as it was.
    bool makeRoom(std::size_t bytes);
    // Gives everything back, whatever the set-up made.
    void destroy();

    MppChannelSetup setup;
    MppCtx ctx = nullptr;
    MppApi* mpi = nullptr;
    MppPacket packet = nullptr;
    MppFrame frame = nullptr;             // task mode: the one that every picture goes into
    MppBufferGroup frameGroup = nullptr;  // simple mode: made at the first information change
    MppBufferGroup packetGroup = nullptr;
    MppBuffer packetBuffer = nullptr;
    MppBuffer frameBuffer = nullptr;
    void* packetMemory = nullptr;       // the packet buffer's
    std::size_t packetSize = 0;         // bytes of it
    RK_S32 frameCount = 0;              // simple mode: frames that came out
    std::size_t maxUsage = 0;           // simple mode: most bytes of the frame group in use
    std::array<char, 256> lastFrame{};  // simple mode: of the last frame, for a debugger's eye

  private:
    void clearHandles();
    void makeBuffers();
    void makePacket();
    MPP_RET createContext();
    void reportAndReset();
};
