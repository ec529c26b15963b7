// An MJPEG decoder on the played library.
#pragma once

#include "control/decode/decoder_mjpeg_mpp.h"
#include "control/task/fourcc.h"

#include "tests/unit/decode/decoding.h"

#include <memory>

class MjpegDecoder : public HardwareDecoder {
  protected:
    ~MjpegDecoder() override { destroy(); }

    Printed destroy() {
        return bothPrintedBy([this] { decoder.reset(); });
    }
    Printed open(int result = 1) {
        return bothPrintedBy([&] { EXPECT_EQ(decoder->decoder_open(), result); });
    }
    // Hands the message over and waits until a worker is done with it.
    Printed process(msgVideo* message) {
        return bothPrintedBy([&] {
            const int before = fake.callsOf("enqueue output");
            decoder->receive_handler(message, 0);
            EXPECT_TRUE(comesTrue([&] { return fake.callsOf("enqueue output") > before; }));
        });
    }
    decInfo mode{fourccOf("MJPG"), 64, 48, 30};
    std::unique_ptr<Decoder_MJPEG_MPP> decoder = std::make_unique<Decoder_MJPEG_MPP>(&mode);
};
