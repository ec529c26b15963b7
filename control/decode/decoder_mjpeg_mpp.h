// Decoder for Motion-JPEG: two channels of the hardware decoder, each with a thread of its own, so
// that two frames are decoded at once.
#pragma once

#include "control/decode/deccommon.h"
#include "control/decode/mppchannel.h"
#include "control/task/mediatypes.h"

#include <array>
#include <atomic>
#include <mutex>
#include <vector>

class Decoder_MJPEG_MPP final : public DecCommon {
  public:
    using MpiDecLoopData_Dec = MppChannel;

    // captureMode: the stream's decInfo, not owned.
    explicit Decoder_MJPEG_MPP(void* captureMode);
    ~Decoder_MJPEG_MPP() override;

    static DecCommon* getMjpegMppDecoderDev(void* captureMode);  // a new object, the caller's

    int close() override;
    int svc() override;
    // Needs the process's display. Ends with one working channel or more.
    int decoder_open() override;
    int decoder_close() override;
    int decoder_process(void* msg, void* unused) override;
    int receive_handler(void* msg, unsigned int arg) override;
    bool queueAllow_angler() override;

    // The steps of a channel; results are the library's. A channel's worker only.
    MPP_RET mpi_dec_init(MpiDecLoopData_Dec& channel);
    MPP_RET mpi_dec_decode(MpiDecLoopData_Dec& channel);
    MPP_RET mpi_dec_process(MpiDecLoopData_Dec& channel, void* msg);
    // Shows a frame unless a newer one was shown before. Any thread.
    void dump_mpp_frame_to_queue(void* frame, void* msg, void* unused);
    MPP_RET mpi_dec_destroy(MpiDecLoopData_Dec& channel);

    static std::atomic<Decoder_MJPEG_MPP*> mjpegmpp_dev;  // the current one; null when none

  private:
    struct Slot {
        MpiDecLoopData_Dec channel;
        bool ready = false;
    };

    void destroyChannels();
    MpiDecLoopData_Dec* channelOfThisThread();
    MPP_RET waitForPort(const MpiDecLoopData_Dec& channel, MppPortType port) const;
    MPP_RET submit(MpiDecLoopData_Dec& channel) const;
    MPP_RET collect(MpiDecLoopData_Dec& channel, void* msg);

    std::array<Slot, 2> slots;
    std::vector<pthread_t> threads;  // thread i serves slot i
    const decInfo* captureFormat;
    int opened = 0;
    std::mutex showLock;  // the display's ring takes one producer; guards what follows
    double lastShownPts = 0.0;
};
