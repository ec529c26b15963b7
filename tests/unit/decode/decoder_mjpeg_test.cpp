// The MJPEG decoder on a library that the test plays.
#include "tests/unit/decode/mjpegdecoder.h"

namespace {

const std::string channelSetUp =
    "cmd parse result:\n"
    "width      :   64\n"
    "height     :   48\n"
    "type       : 8\n"
    "debug flag : 0\n"
    "max frames : 0\n"
    "mpi_dec start\n"
    "input file size 0\n"
    "P mpi_dec_test decoder test start w 64 h 48 type 8\n";
const std::string channelEnd = "P input 7 pkt output 6 frm decode 5 frames\n";

}  // namespace

TEST_F(MjpegDecoder, TakesFiveMessagesAndNoMore) {
    for (int i = 0; i < 5; ++i) {
        EXPECT_TRUE(decoder->queueAllow_angler()) << i;
        EXPECT_EQ(decoder->receive_handler(compressedFrame(i, 1), 0), 1);
    }
    EXPECT_FALSE(decoder->queueAllow_angler());
}

TEST_F(MjpegDecoder, CloseTellsAndFreesWhatIsLeft) {
    for (int i = 0; i < 3; ++i) {
        decoder->receive_handler(compressedFrame(i, 1), 0);
    }
    EXPECT_EQ(printedBy([this] { EXPECT_EQ(decoder->close(), 0); }),
              "mjpeg mpp close remain avpacket queue :3\n");
    EXPECT_EQ(decoder->getqSize(), 0);
}

TEST_F(MjpegDecoder, ClosingWhatWasNeverOpenedDoesNothing) {
    EXPECT_EQ(printedBy([this] { EXPECT_EQ(decoder->decoder_close(), 0); }), "");
}

TEST_F(MjpegDecoder, IsTheCurrentOneWhileItLives) {
    EXPECT_EQ(Decoder_MJPEG_MPP::mjpegmpp_dev, decoder.get());
    destroy();
    EXPECT_EQ(Decoder_MJPEG_MPP::mjpegmpp_dev, nullptr);
}

TEST_F(MjpegDecoder, OpensRunsAndClosesWithItsTexts) {
    const Printed opened = open();
    EXPECT_EQ(withoutTimeouts(opened.out),
              "mjpeg mpp decoder open\nmjpeg mpp decoder channels 2\n" + channelSetUp +
                  channelSetUp + "mjpeg mpp decoder open succeed\n");
    EXPECT_EQ(opened.err, "");
    EXPECT_EQ(decoder->thr_count(), 2U);
    const Printed closed = destroy();
    const std::string stop = "Decoder_MJPEG_MPPsvc normal stop!\n";
    EXPECT_EQ(withoutTimeouts(closed.out), stop + stop +
                                               "mjpeg mpp close remain avpacket queue :0\n" +
                                               "mjpeg mpp decoder close\n" + channelEnd +
                                               channelEnd + "mjpeg mpp decoder close succeed\n");
    EXPECT_EQ(closed.err, "");
}

TEST_F(MjpegDecoder, AnIdleWorkerTellsOfTheQueuesTimeouts) {
    open();
    EXPECT_TRUE(tellsSoon("Decoder_MJPEG_MPP getq timeout\n"));
}

TEST_F(MjpegDecoder, SetsAChannelUpInThisOrder) {
    mode.width = 70;  // strides of 80 and 48
    open();
    const std::vector<std::string> channel = {"group mpi_dec_decode",
                                              "group mpi_dec_decode",
                                              "mpp_frame_init",
                                              "mpp_buffer_get",
                                              "mpp_buffer_get",
                                              "mpp_packet_init_with_buffer",
                                              "mpp_create",
                                              "MPP_DEC_SET_PARSER_SPLIT_MODE",
                                              "mpp_init"};
    std::vector<std::string> both = channel;
    both.insert(both.end(), channel.begin(), channel.end());
    EXPECT_EQ(fake.journal(), both) << "neither a time-out nor an output format is set";
    EXPECT_EQ(fake.numberOf("MPP_DEC_SET_PARSER_SPLIT_MODE"), 1U);
    EXPECT_EQ(fake.environment(), (std::map<std::string, RK_U32>{{"mpi_debug", 0}}));
    EXPECT_EQ(fake.bufferSizes(),
              (std::vector<std::size_t>{80 * 48 * 4, 1000000, 80 * 48 * 4, 1000000}));
}

TEST_F(MjpegDecoder, GivesAChannelBackInThisOrder) {
    open();
    const std::size_t before = fake.journal().size();
    destroy();
    const std::vector<std::string> channel = {
        "MPP_DEC_QUERY",       "reset",          "mpp_packet_deinit", "mpp_frame_deinit",
        "mpp_destroy",         "mpp_buffer_put", "mpp_buffer_put",    "mpp_buffer_group_put",
        "mpp_buffer_group_put"};
    std::vector<std::string> both = channel;
    both.insert(both.end(), channel.begin(), channel.end());
    const std::vector<std::string> journal = fake.journal();
    EXPECT_EQ(std::vector<std::string>(journal.begin() + static_cast<std::ptrdiff_t>(before),
                                       journal.end()),
              both);
    EXPECT_EQ(fake.numberOf("MPP_DEC_QUERY"), 127U);
}

TEST_F(MjpegDecoder, TearDownFailuresHaveTheirTexts) {
    open();
    fake.fail("MPP_DEC_QUERY", MPP_NOK, 1);
    fake.fail("reset", MPP_NOK);
    const Printed closed = destroy();
    EXPECT_EQ(closed.err, "P mpi->control query failed\nP mpi->reset failed\n")
        << "the first channel's query, the second one's reset";
    EXPECT_EQ(countOf(closed.out, channelEnd), 1U);
}

TEST_F(MjpegDecoder, AFrameIsScaledOntoTheDisplay) {
    open();
    const Printed printed = process(compressedFrame(40.5, 90));
    EXPECT_EQ(printed.err, "");
    EXPECT_EQ(withoutTimeouts(printed.out), "");
    ASSERT_EQ(ready(), 1);
    const Shown shown = takeShown(*screen);
    EXPECT_EQ(shown.pts, 40.5);
    EXPECT_EQ(shown.luma, 90);
    EXPECT_EQ(fake.packets().back(), std::vector<unsigned char>(100, 90));
}

TEST_F(MjpegDecoder, AFirstFrameWithTimeStampZeroIsNotShown) {
    open();
    process(compressedFrame(0.0, 90));
    EXPECT_EQ(ready(), 0);
    process(compressedFrame(0.1, 90));
    EXPECT_EQ(ready(), 1);
}

TEST_F(MjpegDecoder, OlderFramesAndDuplicatesAreNotShown) {
    open();
    for (const double pts : {2.0, 1.0, 2.0, 1.9}) {
        process(compressedFrame(pts, 90));
    }
    EXPECT_EQ(ready(), 1);
    process(compressedFrame(2.1, 91));
    EXPECT_EQ(ready(), 2);
}

TEST_F(MjpegDecoder, FormatsZeroTwoAndFourAreShown) {
    open();
    double pts = 0;
    for (const RK_U32 format : {0U, 2U, 4U, 0x00100000U}) {  // flags are not looked at
        fake.decode = [format](const std::vector<unsigned char>&) {
            FakePicture picture;
            picture.format = format;
            return picture;
        };
        const Printed printed = process(compressedFrame(++pts, 1));
        EXPECT_EQ(withoutTimeouts(printed.out), "") << format;
        EXPECT_EQ(ready(), static_cast<int>(pts));
    }
}

TEST_F(MjpegDecoder, OtherFormatsAreToldOfAndDropped) {
    open();
    int unsupported = 0;
    for (const RK_U32 format : {1U, 3U, 5U, 6U, 12U, 13U, 15U, 0x1000aU}) {
        fake.decode = [format](const std::vector<unsigned char>&) {
            FakePicture picture;
            picture.format = format;
            return picture;
        };
        const Printed printed = process(compressedFrame(5.0, 1));
        EXPECT_EQ(withoutTimeouts(printed.out),
                  "not supported format " + std::to_string(format) + "\n");
        ++unsupported;
    }
    EXPECT_EQ(ready(), 0);
    fake.decode = nullptr;
    process(compressedFrame(5.0, 1));  // the time stamp was not used up
    EXPECT_EQ(ready(), 1);
}

TEST_F(MjpegDecoder, AFrameWithoutABufferIsToldOfAndDropped) {
    open();
    fake.decode = [](const std::vector<unsigned char>&) {
        FakePicture picture;
        picture.error = 1;
        picture.withoutBuffer = true;
        return picture;
    };
    const Printed printed = process(compressedFrame(1.0, 1));
    EXPECT_EQ(withoutTimeouts(printed.out), "mpp dec frame get buffer faild\n");
    fake.decode = nullptr;
    process(compressedFrame(2.0, 80));
    EXPECT_EQ(ready(), 1);
}

TEST_F(MjpegDecoder, APictureThatItsMemoryDoesNotHoldIsDroppedWithOneLine) {
    open();
    for (const auto& [width, height] :
         {std::pair(128U, 4000U), std::pair(0U, 48U), std::pair(64U, 0U), std::pair(0x10000U, 1U),
          std::pair(0xFFFFFFFFU, 0xFFFFFFFFU)}) {
        fake.decode = [w = width, h = height](const std::vector<unsigned char>&) {
            FakePicture picture;
            picture.width = w;
            picture.height = h;
            return picture;
        };
        const Printed printed = process(compressedFrame(1.0, 1));
        EXPECT_EQ(printed.err, "frame of " + std::to_string(width) + "x" + std::to_string(height) +
                                   " dropped: its memory does not hold it\n");
    }
    EXPECT_EQ(ready(), 0);
}

TEST_F(MjpegDecoder, ATaskWithoutAFrameShowsNothing) {
    open();
    fake.noOutputFrame = true;
    const Printed printed = process(compressedFrame(1.0, 1));
    EXPECT_EQ(printed.err + withoutTimeouts(printed.out), "");
    fake.noOutputFrame = false;
    process(compressedFrame(2.0, 80));
    EXPECT_EQ(ready(), 1);
}

TEST_F(MjpegDecoder, AnEndOfStreamIsLogged) {
    open();
    fake.decode = [](const std::vector<unsigned char>&) {
        FakePicture picture;
        picture.endOfStream = true;
        return picture;
    };
    const Printed printed = process(compressedFrame(1.0, 1));
    EXPECT_EQ(withoutTimeouts(printed.out), "P found eos frame\n");
    EXPECT_EQ(ready(), 1);
}

TEST_F(MjpegDecoder, AFrameLargerThanThePacketBufferGetsALargerOne) {
    open();
    process(compressedFrame(1.0, 80, 1000000));
    EXPECT_EQ(fake.lastPacketSize(), 1000000U);
    EXPECT_EQ(fake.bufferSizes().size(), 4U);
    for (double pts = 2; pts < 6; ++pts) {  // each worker meets one
        const Printed printed = process(compressedFrame(pts, 81, 5000001));
        EXPECT_EQ(printed.err, "");
        EXPECT_EQ(fake.packets().back(), std::vector<unsigned char>(5000001, 81));
    }
    EXPECT_EQ(ready(), 5);
    EXPECT_LE(fake.bufferSizes().size(), 6U) << "it is kept";
}

TEST_F(MjpegDecoder, WithoutMemoryForALargeFrameOnlyThatOneIsDropped) {
    for (const char* call : {"mpp_buffer_get", "mpp_packet_init_with_buffer"}) {
        open();
        fake.fail(call, MPP_ERR_MALLOC);
        const Printed printed = bothPrintedBy([&] {
            decoder->receive_handler(compressedFrame(1.0, 80, 1000001), 0);
            decoder->receive_handler(compressedFrame(2.0, 80), 0);
            EXPECT_TRUE(comesOnScreen(1));
            EXPECT_EQ(takeShown(*screen).pts, 2.0);
            decoder.reset();  // the other worker has had its say then
        });
        EXPECT_EQ(printed.err,
                  "P frame of 1000001 bytes dropped: no packet buffer of that size ret -4\n");
        EXPECT_EQ(fake.alive(), "") << call;
        fake.reset();
        decoder = std::make_unique<Decoder_MJPEG_MPP>(&mode);
    }
}

TEST_F(MjpegDecoder, FramesWithoutDataAreDroppedWithOneLine) {
    open();
    auto* withoutPlane = new msgVideo;
    withoutPlane->length[0] = 100;
    withoutPlane->pts = 1.0;
    const Printed printed = bothPrintedBy([&] {
        decoder->receive_handler(withoutPlane, 0);
        decoder->receive_handler(compressedFrame(2.0, 80, 0), 0);
        decoder->receive_handler(compressedFrame(3.0, 80), 0);
        EXPECT_TRUE(comesOnScreen(1));
        decoder->close();  // the other worker has had its say then
    });
    destroy();
    EXPECT_EQ(countOf(printed.err, "P frame without data dropped\n"), 2U) << printed.err;
    EXPECT_EQ(takeShown(*screen).pts, 3.0);
    EXPECT_EQ(fake.packets().size(), 1U);
}

TEST_F(MjpegDecoder, ADisplayThatIsGoneIsNoHarm) {
    open();
    screen.reset();
    const Printed printed = process(compressedFrame(1.0, 80));
    EXPECT_EQ(printed.err + withoutTimeouts(printed.out), "");
    screen.emplace(displayWidth, displayHeight, displayWidth);
    process(compressedFrame(1.0, 80));  // the time stamp was not used up
    EXPECT_EQ(ready(), 1);
}

TEST_F(MjpegDecoder, WithoutADisplayNothingIsOpened) {
    screen.reset();
    EXPECT_EQ(open(0).out, "mjpeg mpp decoder open\nmjpeg mpp decoder set channels faild\n");
    EXPECT_EQ(decoder->thr_count(), 0U);
    EXPECT_EQ(fake.journal(), std::vector<std::string>());
    EXPECT_EQ(destroy().out, "mjpeg mpp close remain avpacket queue :0\n");
}

TEST_F(MjpegDecoder, WithoutThe2DEngineTheScreenStaysAsItIs) {
    open();
    engine.reset();
    process(compressedFrame(1.0, 80));
    EXPECT_EQ(ready(), 0);
}
