// Decoder for raw YUYV frames: converts them straight into the display's buffers.
#pragma once

#include "control/decode/deccommon.h"
#include "control/task/mediatypes.h"

class Decoder_Rawvideo final : public DecCommon {
  public:
    // captureMode: the stream's decInfo, not owned.
    explicit Decoder_Rawvideo(void* captureMode);
    ~Decoder_Rawvideo() override;

    static DecCommon* getRawvideoDecoderDev(void* captureMode);  // a new object, the caller's

    int close() override;
    int svc() override;
    int decoder_open() override;
    int decoder_close() override;
    int decoder_process(void* msg, void* unused) override;
    int receive_handler(void* msg, unsigned int arg) override;
    bool queueAllow_angler() override;

  private:
    const decInfo* captureFormat;
    int opened = 0;
};
