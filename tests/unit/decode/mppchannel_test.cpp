// A channel's set-up where the decoders leave the values alone, and the library's log.
#include "control/decode/mppchannel.h"
#include "control/decode/mpplog.h"

#include "tests/unit/decode/decoding.h"

class Channel : public HardwareDecoder {
  protected:
    ~Channel() override {
        bothPrintedBy([this] { channel.destroy(); });
    }
    Printed setUp() {
        return bothPrintedBy([this] { result = channel.mpi_dec_decode(); });
    }

    MppChannel channel;
    MPP_RET result = MPP_OK;
};

TEST_F(Channel, AnOutputTimeoutIsSet) {
    channel.setup.simple = true;
    channel.setup.timeout = 7;
    EXPECT_EQ(setUp().err, "");
    EXPECT_EQ(fake.numberOf("MPP_SET_OUTPUT_TIMEOUT"), 7U);
    EXPECT_EQ(result, MPP_OK);
}

TEST_F(Channel, AnOutputTimeoutThatFailsHasItsText) {
    channel.setup.simple = true;
    channel.setup.timeout = 7;
    fake.fail("MPP_SET_OUTPUT_TIMEOUT", MPP_NOK);
    EXPECT_EQ(setUp().err, "P failed to set output timeout 7 ret -1\n");
    EXPECT_EQ(result, MPP_NOK);
}

TEST_F(Channel, AnOutputFormatIsSetBelowTheNativeOneInTaskMode) {
    channel.setup.width = channel.setup.height = 16;
    channel.setup.format = 0x1000e;
    setUp();
    EXPECT_EQ(fake.numberOf("MPP_DEC_SET_OUTPUT_FORMAT"), 0x1000eU);
    EXPECT_EQ(result, MPP_OK);
}

TEST_F(Channel, AnOutputFormatThatFailsIsTheResult) {
    channel.setup.width = channel.setup.height = 16;
    channel.setup.format = 0;
    fake.fail("MPP_DEC_SET_OUTPUT_FORMAT", MPP_ERR_VALUE);
    setUp();
    EXPECT_EQ(result, MPP_ERR_VALUE);
}

TEST_F(Channel, DestroyingWhatWasNeverMadeDoesNothing) {
    EXPECT_EQ(bothPrintedBy([this] { channel.destroy(); }).out, "");
    EXPECT_EQ(fake.journal(), std::vector<std::string>());
    EXPECT_FALSE(channel.usable());
}

TEST(MppLog, WritesEachTextAsOneLine) {
    const Printed printed = bothPrintedBy([] {
        mppLog("with an end %d\n", 1);
        mppLog("without %s", "one");
        mppErr("%p failed ret %d\n", nullptr, -8);
        mppErr("%s", "");
        mppLog("%s\n", std::string(600, 'x').c_str());
    });
    EXPECT_EQ(printed.out, "with an end 1\nwithout one\n" + std::string(511, 'x') + "\n");
    EXPECT_EQ(printed.err, "(nil) failed ret -8\n\n");
}
