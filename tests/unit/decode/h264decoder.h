// An H.264 decoder on the played library.
#pragma once

#include "control/decode/decoder_h264_mpp.h"
#include "control/task/fourcc.h"

#include "tests/unit/decode/decoding.h"

#include <memory>

class H264Decoder : public HardwareDecoder {
  protected:
    ~H264Decoder() override { destroy(); }

    Printed destroy() {
        return bothPrintedBy([this] { decoder.reset(); });
    }
    Printed open(int result = 1) {
        return bothPrintedBy([&] { EXPECT_EQ(decoder->decoder_open(), result); });
    }
    void renew() { decoder = std::make_unique<Decoder_H264_MPP>(&mode); }
    // The decoder's channel belongs to its worker, which idles while the test works on `own`.
    Printed openOwn(MppChannel& own) {
        return bothPrintedBy([&] {
            EXPECT_EQ(decoder->decoder_open(), 1);
            EXPECT_EQ(decoder->mpi_dec_init(own), MPP_OK);
        });
    }
    MPP_RET processOn(MppChannel& channel, msgVideo* message) {
        const std::unique_ptr<msgVideo> owner(message);
        return decoder->mpi_dec_process(channel, message);
    }
    // Hands the message over and waits until the worker took all answers and asked once more.
    Printed process(msgVideo* message) {
        return bothPrintedBy([&] {
            const int before = fake.callsOf("decode_get_frame");
            const int answers = static_cast<int>(fake.answersLeft());
            decoder->receive_handler(message, 0);
            EXPECT_TRUE(
                comesTrue([&] { return fake.callsOf("decode_get_frame") > before + answers; }));
        });
    }
    static FakePicture informationChange(RK_U32 width, RK_U32 height) {
        FakePicture change;
        change.width = width;
        change.height = height;
        change.infoChange = true;
        change.bufferSize = static_cast<std::size_t>(width) * height * 2;
        return change;
    }

    decInfo mode{fourccOf("H264"), 64, 48, 30};
    std::unique_ptr<Decoder_H264_MPP> decoder = std::make_unique<Decoder_H264_MPP>(&mode);
};
