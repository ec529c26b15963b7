// The H.264 decoder's exchange with the library: information changes, time-outs, back-pressure,
// time stamps, stopping.
#include "control/convert/colorspacetransform.h"

#include "tests/unit/decode/h264decoder.h"

namespace {

// Time stamps of the pictures that were converted.
std::vector<double>& convertedPts() {
    static std::vector<double> pts;
    return pts;
}

}  // namespace

// ColorSpaceTransform::receiveImage as the linker knows it; --wrap brings its calls here.
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" {
bool __real__ZNK19ColorSpaceTransform12receiveImageEPPhPjjjP8msgVideo(
    const ColorSpaceTransform* self, unsigned char** planes, unsigned int* sizes,
    unsigned int width, unsigned int height, msgVideo* dst);
bool __wrap__ZNK19ColorSpaceTransform12receiveImageEPPhPjjjP8msgVideo(
    const ColorSpaceTransform* self, unsigned char** planes, unsigned int* sizes,
    unsigned int width, unsigned int height, msgVideo* dst) {
    convertedPts().push_back(dst->pts);
    return __real__ZNK19ColorSpaceTransform12receiveImageEPPhPjjjP8msgVideo(self, planes, sizes,
                                                                            width, height, dst);
}
}
// NOLINTEND(bugprone-reserved-identifier)

TEST_F(H264Decoder, TheFirstInformationChangeMakesTheFramesGroup) {
    open();
    fake.answer(informationChange(70, 50));
    const Printed printed = process(compressedFrame(1.0, 1));
    EXPECT_EQ(printed.err, "");
    EXPECT_EQ(withoutTimeouts(printed.out),
              "P decode_get_frame get info changed found\n"
              "P decoder require buffer w:h [70:50] stride [80:64] buf_size 7000\n");
    EXPECT_EQ(fake.groupLimit(), std::pair(std::size_t{7000}, 24));
    EXPECT_NE(fake.extBufferGroup(), nullptr);
    EXPECT_EQ(fake.callsOf("group mpi_dec_process"), 1);
    EXPECT_EQ(fake.callsOf("MPP_DEC_SET_INFO_CHANGE_READY"), 1);
    EXPECT_EQ(fake.callsOf("mpp_buffer_group_clear"), 0);
    EXPECT_EQ(ready(), 0) << "it is no picture";
}

TEST_F(H264Decoder, ALaterInformationChangeClearsTheGroup) {
    open();
    fake.answer(informationChange(64, 48));
    fake.answer(FakePicture{});
    fake.answer(informationChange(128, 96));
    fake.answer(FakePicture{});
    const Printed printed = process(compressedFrame(1.0, 1));
    EXPECT_EQ(printed.err, "");
    EXPECT_EQ(fake.callsOf("group mpi_dec_process"), 1);
    EXPECT_EQ(fake.callsOf("MPP_DEC_SET_EXT_BUF_GROUP"), 1);
    EXPECT_EQ(fake.callsOf("mpp_buffer_group_clear"), 1);
    EXPECT_EQ(fake.callsOf("MPP_DEC_SET_INFO_CHANGE_READY"), 2);
    EXPECT_EQ(fake.groupLimit(), std::pair(std::size_t{128 * 96 * 2}, 24));
    EXPECT_EQ(ready(), 2);
}

TEST_F(H264Decoder, FailuresOfAnInformationChangeHaveTheirTextsAndLeaveNothing) {
    const std::pair<const char*, const char*> failures[] = {
        {"group mpi_dec_process", "P get mpp buffer group failed ret -1\n"},
        {"MPP_DEC_SET_EXT_BUF_GROUP", "P set buffer group failed ret -1\n"},
        {"mpp_buffer_group_limit_config", "P limit buffer group failed ret -1\n"},
        {"MPP_DEC_SET_INFO_CHANGE_READY", "P info change ready failed ret -1\n"},
        {"mpp_buffer_group_clear", "P clear buffer group failed ret -1\n"},
    };
    for (const auto& [call, text] : failures) {
        fake.reset();
        open();
        const bool second = std::string(call) == "mpp_buffer_group_clear";
        fake.fail(call, MPP_NOK, 1);
        if (second) {
            fake.answer(informationChange(64, 48));
        }
        fake.answer(informationChange(64, 48));
        const Printed printed = bothPrintedBy([&, name = call] {
            decoder->receive_handler(compressedFrame(1.0, 1), 0);
            EXPECT_TRUE(comesTrue([&] { return fake.callsOf(name) > 0; }));
            // The next packet finds the decoder open.
            fake.answer(informationChange(64, 48));
            fake.answer(FakePicture{});
            decoder->receive_handler(compressedFrame(2.0, 2), 0);
            EXPECT_TRUE(comesOnScreen(1)) << name;
        });
        EXPECT_EQ(printed.err, text);
        destroy();
        EXPECT_EQ(fake.alive(), "") << call;
        screen->display.cleanQueue();
        renew();
    }
}

TEST_F(H264Decoder, AGroupsUsageIsRemembered) {
    MppChannel own;
    openOwn(own);
    bothPrintedBy([&] {
        processOn(own, compressedFrame(1.0, 1));
        EXPECT_EQ(own.maxUsage, 0U) << "there is no group yet";
        fake.answer(informationChange(64, 48));
        processOn(own, compressedFrame(2.0, 1));
        EXPECT_EQ(own.maxUsage, 1000U);
        decoder->mpi_dec_destroy(own);
    });
}

TEST_F(H264Decoder, PicturesOfOneTimeStampFollowEachOtherByTheFrameRate) {
    const auto play = [this](double pts, int pictures) {
        for (int i = 0; i < pictures; ++i) {
            fake.answer(FakePicture{});
        }
        process(compressedFrame(pts, 1));
    };
    convertedPts().clear();
    open();
    play(40.0, 2);
    play(40.0, 1);  // of another packet with the same stamp
    play(73.5, 1);
    bothPrintedBy([this] { decoder->close(); });
    ASSERT_EQ(convertedPts().size(), 4U);
    EXPECT_DOUBLE_EQ(convertedPts()[0], 40.0);
    EXPECT_DOUBLE_EQ(convertedPts()[1], 40.0 + 1000.0 / 30);
    EXPECT_DOUBLE_EQ(convertedPts()[2], 40.0 + 2 * (1000.0 / 30));
    EXPECT_DOUBLE_EQ(convertedPts()[3], 73.5);
    EXPECT_EQ(takeShown(*screen).pts, -1.0) << "the display is not told";

    // A new decoder goes on where the last one stopped: the state is the process's.
    destroy();
    renew();
    convertedPts().clear();
    open();
    play(73.5, 1);
    bothPrintedBy([this] { decoder->close(); });
    ASSERT_EQ(convertedPts().size(), 1U);
    EXPECT_DOUBLE_EQ(convertedPts()[0], 73.5 + 1000.0 / 30);
}

TEST_F(H264Decoder, SixTimeoutsInARowGiveUp) {
    MppChannel own;
    openOwn(own);
    fake.fail("decode_get_frame", MPP_ERR_TIMEOUT);
    const Printed printed = bothPrintedBy([&] {
        const auto start = Clock::now();
        EXPECT_EQ(processOn(own, compressedFrame(1.0, 1)), MPP_ERR_TIMEOUT);
        EXPECT_GE(millisecondsSince(start), 10.0) << "five waits of 2 ms";
    });
    EXPECT_EQ(printed.err,
              "P decode_get_frame failed too much time\nP decode_get_frame failed ret -8\n");
    EXPECT_EQ(fake.callsOf("decode_get_frame"), 6);
    bothPrintedBy([&] { decoder->mpi_dec_destroy(own); });
}

TEST_F(H264Decoder, FiveTimeoutsAreNoHarm) {
    MppChannel own;
    openOwn(own);
    for (int i = 0; i < 5; ++i) {
        fake.answer({MPP_ERR_TIMEOUT, std::nullopt});
    }
    fake.answer(FakePicture{});
    const Printed printed = bothPrintedBy([&] {
        EXPECT_EQ(processOn(own, compressedFrame(1.0, 1)), MPP_OK);
        EXPECT_EQ(ready(), 1);
        decoder->mpi_dec_destroy(own);
    });
    EXPECT_EQ(printed.err, "");
}

TEST_F(H264Decoder, AFailedGetFrameEndsThePacket) {
    MppChannel own;
    openOwn(own);
    fake.answer({MPP_NOK, std::nullopt});
    fake.answer(FakePicture{});
    const Printed printed = bothPrintedBy([&] {
        EXPECT_EQ(processOn(own, compressedFrame(1.0, 1)), MPP_NOK);
        EXPECT_EQ(ready(), 0);
        EXPECT_EQ(processOn(own, compressedFrame(2.0, 1)), MPP_OK);
        EXPECT_EQ(ready(), 1);
        decoder->mpi_dec_destroy(own);
    });
    EXPECT_EQ(printed.err, "P decode_get_frame failed ret -1\n");
}

TEST_F(H264Decoder, ARefusedPacketIsOfferedAgainWhilePicturesAreTaken) {
    MppChannel own;
    openOwn(own);
    fake.fail("decode_put_packet", MPP_ERR_BUFFER_FULL, 1);
    fake.answer(FakePicture{});
    const Printed printed = bothPrintedBy([&] {
        const auto start = Clock::now();
        EXPECT_EQ(processOn(own, compressedFrame(1.0, 33)), MPP_OK);
        EXPECT_GE(millisecondsSince(start), 4.0) << "one sleep between the attempts";
        decoder->mpi_dec_destroy(own);
    });
    EXPECT_EQ(printed.err, "");
    EXPECT_EQ(fake.callsOf("decode_put_packet"), 2);
    EXPECT_EQ(fake.packets(),
              (std::vector<std::vector<unsigned char>>{std::vector<unsigned char>(100, 33)}))
        << "accepted once";
    EXPECT_EQ(ready(), 1);
}

TEST_F(H264Decoder, TheLastPacketOfAStreamIsLogged) {
    MppChannel own;
    openOwn(own);
    FakePicture last;
    last.endOfStream = true;
    fake.answer(last);
    fake.answer(FakePicture{});
    const Printed printed = bothPrintedBy([&] {
        processOn(own, compressedFrame(1.0, 1));
        EXPECT_EQ(fake.answersLeft(), 1U) << "no more is asked for";
        decoder->mpi_dec_destroy(own);
    });
    EXPECT_EQ(countOf(printed.out, "P found last packet\n"), 1U) << printed.out;
}

TEST_F(H264Decoder, AMaximumOfFramesIsKept) {
    MppChannel own;
    openOwn(own);
    own.setup.maxFrames = 2;
    for (int i = 0; i < 4; ++i) {
        fake.answer(FakePicture{});
    }
    const Printed printed = bothPrintedBy([&] {
        processOn(own, compressedFrame(1.0, 1));
        EXPECT_EQ(fake.answersLeft(), 2U);
        decoder->mpi_dec_destroy(own);
    });
    EXPECT_EQ(countOf(printed.out, "P reach max frame number 2\n"), 1U) << printed.out;
}

namespace {

enum class Phase { idle, neverAccepted, timeouts, endlessPictures };

}  // namespace

TEST_F(H264Decoder, StopsInEveryPhaseInTime) {
    for (const Phase phase :
         {Phase::idle, Phase::neverAccepted, Phase::timeouts, Phase::endlessPictures}) {
        fake.reset();
        if (phase == Phase::neverAccepted) {
            fake.fail("decode_put_packet", MPP_ERR_BUFFER_FULL);
        } else if (phase == Phase::timeouts) {
            fake.fail("decode_get_frame", MPP_ERR_TIMEOUT);
        } else if (phase == Phase::endlessPictures) {
            for (int i = 0; i < 100000; ++i) {
                fake.answer(FakePicture{});
            }
        }
        bothPrintedBy([&] {
            decoder->decoder_open();
            for (int i = 0; i < 100 && phase != Phase::idle; ++i) {
                decoder->receive_handler(compressedFrame(i, 1), 0);
            }
            EXPECT_TRUE(phase == Phase::idle ||
                        comesTrue([&] { return fake.callsOf("decode_get_frame") > 20; }));
            const auto start = Clock::now();
            decoder.reset();
            EXPECT_LT(millisecondsSince(start), 2000.0);
        });
        EXPECT_EQ(fake.alive(), "");
        EXPECT_TRUE(phase != Phase::endlessPictures || fake.answersLeft() > 0);
        renew();
    }
}
