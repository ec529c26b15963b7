// Decoder for H.264: packets go into the hardware decoder as it takes them, frames are shown as
// they come out.
#pragma once

#include "control/decode/deccommon.h"
#include "control/decode/mppchannel.h"
#include "control/task/mediatypes.h"

#include <pthread.h>
#include <array>
#include <atomic>
#include <memory>

class Decoder_H264_MPP final : public DecCommon {
  public:
    using MpiDecLoopData_Dec = MppChannel;

    // captureMode: the stream's decInfo, not owned.
    explicit Decoder_H264_MPP(void* captureMode);
    ~Decoder_H264_MPP() override;

    static DecCommon* getH264MppDecoderDev(void* captureMode);  // a new object, the caller's

    int close() override;
    int svc() override;
    int decoder_open() override;
    int decoder_close() override;
    int decoder_process(void* msg, void* unused) override;
    int receive_handler(void* msg, unsigned int arg) override;
    bool queueAllow_angler() override;

    // The steps of a channel; results are the library's. The channel's worker only.
    MPP_RET mpi_dec_init(MpiDecLoopData_Dec& channel);
    MPP_RET mpi_dec_decode(MpiDecLoopData_Dec& channel);
    MPP_RET mpi_dec_process(MpiDecLoopData_Dec& channel, void* msg);
    void dump_mpp_frame_to_queue(void* frame, void* msg, void* unused);
    MPP_RET mpi_dec_destroy(MpiDecLoopData_Dec& channel);

    static std::atomic<Decoder_H264_MPP*> h264mpp_dev;  // the current one; null when none

  private:
    struct Slot {
        MpiDecLoopData_Dec channel;
        bool ready = false;
        std::unique_ptr<unsigned char[]> copyBuffer;  // the packet that is being handed over
        std::size_t copySize = 0;                     // bytes of it
    };

    static bool makeRoom(Slot& slot, std::size_t bytes);
    void destroyChannels();
    bool fillPacket(MpiDecLoopData_Dec& channel, const unsigned char* data, std::size_t length);
    MPP_RET takeFrames(MpiDecLoopData_Dec& channel, void* msg, int retries);
    double pictureTime(double inputPts) const;

    std::array<Slot, 1> slots;
    pthread_t thread{};  // serves the one slot
    const decInfo* captureFormat;
    int opened = 0;
    int sleepTime = 3;  // ms between attempts to hand a packet over
};
