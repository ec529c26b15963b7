// The MJPEG decoder when the library fails, and when it shall stop.
#include "control/decode/mppprivate.h"

#include "tests/unit/decode/mjpegdecoder.h"
#include "tests/unit/decode/threadlimit.h"

namespace {

struct SetUpFailure {
    const char* call;
    int nthOfFirstChannel;
    const char* text;
};

// Every call of the set-up, with what it prints when it fails.
const SetUpFailure setUpFailures[] = {
    {"group mpi_dec_decode", 1, "failed to get buffer group for input frame ret -1\n"},
    {"group mpi_dec_decode", 2, "failed to get buffer group for output packet ret -1\n"},
    {"mpp_frame_init", 1, "mpp_frame_init failed\n"},
    {"mpp_buffer_get", 1, "failed to get buffer for input frame ret -1\n"},
    {"mpp_buffer_get", 2, "failed to get buffer for input frame ret -1\n"},
    {"mpp_packet_init_with_buffer", 1, "mpp_packet_init failed\n"},
    {"mpp_create", 1, "mpp_create failed\n"},
    {"MPP_DEC_SET_PARSER_SPLIT_MODE", 1, "P mpi->control failed\n"},
    {"mpp_init", 1, "P mpp_init failed\n"},
};

struct StepFailure {
    const char* call;
    const char* text;
};

const StepFailure stepFailures[] = {
    {"poll input", "P mpp input poll failed\n"},
    {"dequeue input", "P mpp task input dequeue failed\n"},
    {"enqueue input", "P mpp task input enqueue failed\n"},
    {"poll output", "P mpp output poll failed\n"},
    {"dequeue output", "P mpp task output dequeue failed\n"},
    {"enqueue output", "P mpp task output enqueue failed\n"},
};

}  // namespace

TEST_F(MjpegDecoder, AFailureInOneChannelsSetUpLeavesTheOther) {
    for (const SetUpFailure& failure : setUpFailures) {
        fake.reset();
        fake.fail(failure.call, MPP_NOK, failure.nthOfFirstChannel);
        const Printed opened = open();
        EXPECT_EQ(opened.err, failure.text);
        EXPECT_NE(opened.out.find("mjpeg mpp decoder open succeed\n"), std::string::npos);
        // The thread of the channel that is missing drops what it takes. A group that is missing
        // is no loss: its buffers come from the common one.
        const Printed played = bothPrintedBy([&] {
            double pts = 0;
            EXPECT_TRUE(comesTrue([&] {
                decoder->receive_handler(compressedFrame(++pts, 80), 0);
                return ready() > 0;
            })) << failure.call;
        });
        EXPECT_EQ(played.err, "") << failure.call;
        destroy();
        EXPECT_EQ(fake.alive(), "") << failure.call;
        screen->display.cleanQueue();
        decoder = std::make_unique<Decoder_MJPEG_MPP>(&mode);
    }
}

TEST_F(MjpegDecoder, AFailureInBothChannelsSetUpOpensNothingAndLeavesNothing) {
    for (const SetUpFailure& failure : setUpFailures) {
        if (std::string(failure.call) == "group mpi_dec_decode") {
            continue;  // the channel has its buffers all the same
        }
        fake.reset();
        fake.fail(failure.call, MPP_NOK);
        const Printed opened = open(0);
        EXPECT_EQ(countOf(opened.err, failure.text),
                  failure.call == std::string("mpp_buffer_get") ? 4U : 2U)
            << opened.err;
        EXPECT_EQ(countOf(opened.out, "mjpeg mpp decoder open faild\n"), 1U);
        EXPECT_EQ(decoder->thr_count(), 0U);
        EXPECT_EQ(fake.alive(), "") << failure.call << ": before the decoder is destroyed";
        EXPECT_EQ(destroy().out, "mjpeg mpp close remain avpacket queue :0\n");
        decoder = std::make_unique<Decoder_MJPEG_MPP>(&mode);
    }
}

TEST_F(MjpegDecoder, AChannelThatFailedLateIsGivenBackAtOnce) {
    fake.fail("mpp_init", MPP_NOK, 1);
    const Printed opened = open();
    EXPECT_EQ(countOf(opened.out, "P input 7 pkt output 6 frm decode 5 frames\n"), 1U);
    EXPECT_EQ(fake.callsOf("mpp_destroy"), 1);
}

TEST_F(MjpegDecoder, WithoutAThreadItIsNotOpen) {
    const ThreadLimit none(0);
    const Printed opened = open(0);
    EXPECT_EQ(countOf(opened.out, "mjpeg mpp decoder open faild\n"), 1U);
    EXPECT_EQ(fake.alive(), "");
}

TEST_F(MjpegDecoder, WithOneThreadOneChannelPlays) {
    {
        const ThreadLimit one(1);
        open();
    }
    EXPECT_EQ(decoder->thr_count(), 1U);
    process(compressedFrame(1.0, 80));
    process(compressedFrame(2.0, 80));
    EXPECT_EQ(ready(), 2);
}

TEST_F(MjpegDecoder, AFailedStepLosesItsFrameOnly) {
    for (const StepFailure& failure : stepFailures) {
        const int expected = std::string(failure.call) == "enqueue output" ? 2 : 1;
        std::string err;
        int shown = 0;
        std::vector<unsigned char> last;
        // A worker that is held back for a poll's whole time takes its failure for a time-out.
        for (int tries = 0; tries < 5 && (err != failure.text || shown != expected); ++tries) {
            fake.reset();
            open();
            fake.fail(failure.call, MPP_NOK, 1);
            err = bothPrintedBy([&] {
                      decoder->receive_handler(compressedFrame(1.0, 80), 0);
                      EXPECT_TRUE(comesTrue([&] { return fake.callsOf(failure.call) > 0; }));
                      decoder->receive_handler(compressedFrame(2.0, 81), 0);
                      EXPECT_TRUE(comesOnScreen(expected)) << failure.call;
                      decoder->close();
                  }).err;
            shown = ready();
            last = fake.packets().back();
            destroy();
            EXPECT_EQ(fake.alive(), "") << failure.call;
            screen->display.cleanQueue();
            decoder = std::make_unique<Decoder_MJPEG_MPP>(&mode);
        }
        EXPECT_EQ(err, failure.text);
        EXPECT_EQ(shown, expected) << failure.call;
        EXPECT_EQ(last, std::vector<unsigned char>(100, 81)) << failure.call;
    }
}

TEST_F(MjpegDecoder, ATaskThatIsMissingIsAnAssertionInTheLogOnly) {
    for (const bool input : {true, false}) {
        fake.reset();
        open();
        (input ? fake.nullInputTask : fake.nullOutputTask) = true;
        const char* call = input ? "dequeue input" : "dequeue output";
        const Printed printed = bothPrintedBy([&] {
            decoder->receive_handler(compressedFrame(1.0, 80), 0);
            EXPECT_TRUE(comesTrue([&] { return fake.callsOf(call) > 0; }));
            decoder->close();
        });
        EXPECT_EQ(printed.err, std::string("Assertion task failed at mpi_dec_process:") +
                                   (input ? "300\n" : "324\n"));
        EXPECT_EQ(ready(), 0);
        destroy();
        decoder = std::make_unique<Decoder_MJPEG_MPP>(&mode);
    }
}

using MjpegDecoderDeathTest = MjpegDecoder;

TEST_F(MjpegDecoderDeathTest, ATaskThatIsMissingAbortsWhenTheDebugFlagSaysSo) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            mpp_debug = 1U << 28;
            fake.nullInputTask = true;
            decoder->decoder_open();
            decoder->receive_handler(compressedFrame(1.0, 80), 0);
            comesTrue([] { return false; });
        },
        "Assertion task failed at mpi_dec_process:300");
}

namespace {

enum class Phase { idle, inputParked, outputParked, queueFull };

}  // namespace

TEST_F(MjpegDecoder, StopsInEveryPhaseInTime) {
    for (const MPP_RET timeout : {MPP_ERR_TIMEOUT, MPP_NOK}) {  // as newer and older libraries say
        for (const Phase phase :
             {Phase::idle, Phase::inputParked, Phase::outputParked, Phase::queueFull}) {
            fake.reset();
            fake.pollTimeout = timeout;
            const Printed printed = bothPrintedBy([&] {
                decoder->decoder_open();
                fake.parkInput(phase == Phase::inputParked);
                fake.holdOutputs(phase == Phase::outputParked || phase == Phase::queueFull);
                const int frames = phase == Phase::idle ? 0 : phase == Phase::queueFull ? 7 : 2;
                for (int i = 1; i <= frames; ++i) {
                    decoder->receive_handler(compressedFrame(i, 80), 0);
                }
                // Each worker has a frame, and whole polls have gone by.
                const char* port = phase == Phase::inputParked ? "poll input" : "poll output";
                EXPECT_TRUE(comesTrue([&] {
                    return decoder->getqSize() == (phase == Phase::queueFull ? 5 : 0) &&
                           (frames == 0 || fake.callsOf(port) >= 4);
                }));
                const auto start = Clock::now();
                decoder.reset();
                EXPECT_LT(millisecondsSince(start), 2000.0);
            });
            EXPECT_EQ(printed.err, "") << "stopping is no failure";
            EXPECT_EQ(fake.alive(), "");
            EXPECT_LE(fake.mostPollTimeout(), 50);
            EXPECT_GE(fake.mostPollTimeout(), 0) << "never without limit";
            EXPECT_EQ(ready(), 0);
            decoder = std::make_unique<Decoder_MJPEG_MPP>(&mode);
        }
    }
}

TEST_F(MjpegDecoder, ALongDecodeIsWaitedFor) {
    open();
    fake.holdOutputs(true);
    const Printed printed = bothPrintedBy([&] {
        decoder->receive_handler(compressedFrame(1.0, 80), 0);
        EXPECT_TRUE(comesTrue([&] { return fake.callsOf("poll output") >= 4; }));
        fake.letGo(80);
        EXPECT_TRUE(comesOnScreen(1));
    });
    EXPECT_EQ(printed.err, "");
}
