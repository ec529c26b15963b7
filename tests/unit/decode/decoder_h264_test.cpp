// The H.264 decoder on a library that the test plays.
#include "tests/unit/decode/h264decoder.h"
#include "tests/unit/decode/threadlimit.h"

namespace {

const std::string setUp =
    "cmd parse result:\n"
    "width      :   64\n"
    "height     :   48\n"
    "type       : 7\n"
    "debug flag : 0\n"
    "max frames : 0\n"
    "mpp h264 decode sleep time : 4\n"
    "mpi_dec start\n"
    "input file size 0\n"
    "P mpi_dec_test decoder test start w 64 h 48 type 7\n";

}  // namespace

TEST_F(H264Decoder, TakesAHundredMessagesAndNoMore) {
    for (int i = 0; i < 100; ++i) {
        ASSERT_TRUE(decoder->queueAllow_angler()) << i;
        EXPECT_EQ(decoder->receive_handler(compressedFrame(i, 1), 0), 1);
    }
    EXPECT_FALSE(decoder->queueAllow_angler());
}

TEST_F(H264Decoder, CloseTellsAndFreesWhatIsLeft) {
    for (int i = 0; i < 3; ++i) {
        decoder->receive_handler(compressedFrame(i, 1), 0);
    }
    EXPECT_EQ(printedBy([this] { EXPECT_EQ(decoder->close(), 0); }),
              "h264 mpp close remain avpacket queue :3\n");
    EXPECT_EQ(decoder->getqSize(), 0);
}

TEST_F(H264Decoder, ClosingWhatWasNeverOpenedDoesNothing) {
    EXPECT_EQ(printedBy([this] { EXPECT_EQ(decoder->decoder_close(), 0); }), "");
}

TEST_F(H264Decoder, IsTheCurrentOneWhileItLives) {
    EXPECT_EQ(Decoder_H264_MPP::h264mpp_dev, decoder.get());
    destroy();
    EXPECT_EQ(Decoder_H264_MPP::h264mpp_dev, nullptr);
}

TEST_F(H264Decoder, OpensRunsAndClosesWithItsTexts) {
    screen.reset();  // it needs none
    const Printed opened = open();
    EXPECT_EQ(withoutTimeouts(opened.out),
              "h264 mpp decoder open\n" + setUp + "h264 mpp decoder open succeed\n");
    EXPECT_EQ(opened.err, "");
    EXPECT_EQ(decoder->thr_count(), 1U);
    EXPECT_EQ(fake.journal(),
              (std::vector<std::string>{"mpp_packet_init", "mpp_create",
                                        "MPP_DEC_SET_PARSER_SPLIT_MODE", "mpp_init"}));
    EXPECT_EQ(fake.numberOf("MPP_DEC_SET_PARSER_SPLIT_MODE"), 1U);
    EXPECT_TRUE(tellsSoon("Decoder_H264_MPP getq timeout\n"));
    const Printed closed = destroy();
    EXPECT_EQ(withoutTimeouts(closed.out),
              "Decoder_H264_MPPsvc normal stop!\n"
              "h264 mpp close remain avpacket queue :0\n"
              "h264 mpp decoder close\n"
              "P input 7 pkt output 6 frm decode 5 frames\n"
              "h264 mpp decoder close succeed\n");
    EXPECT_EQ(closed.err, "");
}

TEST_F(H264Decoder, TheSleepTimeGrowsWithThePicture) {
    const std::tuple<unsigned, unsigned, const char*> cases[] = {
        {1920, 1080, "4"}, {1, 2073601, "5"},   {2560, 1440, "5"},
        {1, 3686401, "8"}, {3840, 2160, "8"},   {640, 480, "4"},
        {0, 0, "4"},       {65536, 65536, "8"},  // the product does not wrap
    };
    for (const auto& [width, height, time] : cases) {
        mode.width = width;
        mode.height = height;
        const Printed opened = open();
        EXPECT_NE(opened.out.find("mpp h264 decode sleep time : " + std::string(time) + "\n"),
                  std::string::npos)
            << width << "x" << height << "\n"
            << opened.out;
        destroy();
        renew();
    }
}

TEST_F(H264Decoder, GivesAChannelBackInThisOrder) {
    fake.answer(informationChange(64, 48));
    open();
    process(compressedFrame(1.0, 5));
    bothPrintedBy([this] { decoder->close(); });
    const std::size_t before = fake.journal().size();
    destroy();
    const std::vector<std::string> journal = fake.journal();
    EXPECT_EQ(std::vector<std::string>(journal.begin() + static_cast<std::ptrdiff_t>(before),
                                       journal.end()),
              (std::vector<std::string>{"MPP_DEC_QUERY", "reset", "mpp_packet_deinit of no data",
                                        "mpp_destroy", "mpp_buffer_group_put"}))
        << "the packet does not point at the copy any more";
    EXPECT_EQ(fake.numberOf("MPP_DEC_QUERY"), 127U);
}

TEST_F(H264Decoder, TearDownFailuresHaveTheirTexts) {
    fake.fail("MPP_DEC_QUERY", MPP_NOK);
    open();
    EXPECT_EQ(destroy().err, "P mpi->control query failed\n");
    fake.reset();
    fake.fail("reset", MPP_NOK);
    renew();
    open();
    EXPECT_EQ(destroy().err, "P mpi->reset failed\n");
}

TEST_F(H264Decoder, AFailureInTheSetUpOpensNothingAndLeavesNothing) {
    const std::pair<const char*, const char*> failures[] = {
        {"mpp_packet_init", "mpp_packet_init failed\n"},
        {"mpp_create", "mpp_create failed\n"},
        {"MPP_DEC_SET_PARSER_SPLIT_MODE", "P mpi->control failed\n"},
        {"mpp_init", "P mpp_init failed\n"},
    };
    for (const auto& [call, text] : failures) {
        fake.reset();
        fake.fail(call, MPP_NOK);
        const Printed opened = open(0);
        EXPECT_EQ(opened.err, text);
        EXPECT_EQ(countOf(opened.out, "h264 mpp decoder open faild\n"), 1U);
        EXPECT_EQ(countOf(opened.out, "succeed"), 0U);
        EXPECT_EQ(decoder->thr_count(), 0U);
        EXPECT_EQ(fake.alive(), "") << call << ": before the decoder is destroyed";
        EXPECT_EQ(destroy().out, "h264 mpp close remain avpacket queue :0\n");
        renew();
    }
}

TEST_F(H264Decoder, WithoutAThreadItIsNotOpen) {
    const ThreadLimit none(0);
    const Printed opened = open(0);
    EXPECT_EQ(countOf(opened.out, "h264 mpp decoder open faild\n"), 1U);
    EXPECT_EQ(fake.alive(), "");
}

TEST_F(H264Decoder, APacketGoesInWithItsBytesAndPicturesComeOut) {
    open();
    fake.answer(FakePicture{});
    const Printed printed = process(compressedFrame(40.0, 17));
    EXPECT_EQ(printed.err + withoutTimeouts(printed.out), "");
    EXPECT_EQ(fake.packets().at(0), std::vector<unsigned char>(100, 17));
    ASSERT_EQ(ready(), 1);
    const Shown shown = takeShown(*screen);
    EXPECT_EQ(shown.pts, -1.0) << "shown at once, whatever its time stamp";
    EXPECT_EQ(shown.luma, 128);
}

TEST_F(H264Decoder, EveryPictureOfAPacketIsShown) {
    open();
    for (unsigned char luma = 20; luma < 25; ++luma) {
        FakePicture picture;
        picture.luma = luma;
        fake.answer(picture);
    }
    process(compressedFrame(0.0, 1));
    ASSERT_EQ(ready(), 5);
    for (unsigned char luma = 20; luma < 25; ++luma) {
        EXPECT_EQ(takeShown(*screen).luma, luma);
    }
}

TEST_F(H264Decoder, ThePacketsSizeIsTheLargestSoFar) {
    MppChannel own;
    openOwn(own);
    bothPrintedBy([&] {
        processOn(own, compressedFrame(1.0, 1, 500));
        EXPECT_EQ(fake.lastPacketSize(), 500U);
        processOn(own, compressedFrame(2.0, 2, 300));
        EXPECT_EQ(fake.lastPacketSize(), 500U);
        EXPECT_EQ(fake.packets().back(), std::vector<unsigned char>(300, 2));
        decoder->mpi_dec_destroy(own);
    });
}

TEST_F(H264Decoder, APacketLargerThanTheCopyBufferMakesItGrow) {
    open();
    process(compressedFrame(1.0, 1, 0x200000));
    for (const std::size_t bytes : {std::size_t{0x200001}, std::size_t{9000000}, std::size_t{5}}) {
        const Printed printed = process(compressedFrame(1.0, 2, bytes));
        EXPECT_EQ(printed.err, "");
        EXPECT_EQ(fake.packets().back(), std::vector<unsigned char>(bytes, 2));
    }
}

TEST_F(H264Decoder, PacketsWithoutDataAreDroppedWithOneLine) {
    open();
    auto* withoutPlane = new msgVideo;
    withoutPlane->length[0] = 100;
    const Printed printed = bothPrintedBy([&] {
        decoder->receive_handler(withoutPlane, 0);
        decoder->receive_handler(compressedFrame(2.0, 80, 0), 0);
        decoder->receive_handler(compressedFrame(3.0, 80), 0);
        EXPECT_TRUE(comesTrue([&] { return !fake.packets().empty(); }));
    });
    EXPECT_EQ(printed.err, "P packet without data dropped\nP packet without data dropped\n");
    EXPECT_EQ(fake.packets().size(), 1U);
}

TEST_F(H264Decoder, ErrorInformationHidesAPictureDiscardDoesNot) {
    open();
    for (const auto& [error, discard] :
         {std::pair(0U, 1U), std::pair(1U, 0U), std::pair(0x200U, 1U), std::pair(0U, 0U)}) {
        FakePicture picture;
        picture.error = error;
        picture.discard = discard;
        picture.luma = static_cast<unsigned char>(50 + 10 * (error != 0) + discard);
        fake.answer(picture);
    }
    process(compressedFrame(1.0, 1));
    ASSERT_EQ(ready(), 2);
    EXPECT_EQ(takeShown(*screen).luma, 51) << "discard without error";
    EXPECT_EQ(takeShown(*screen).luma, 50);
}

TEST_F(H264Decoder, PicturesThatCannotBeShownAreToldOf) {
    open();
    FakePicture picture;
    picture.format = 1;
    fake.answer(picture);
    picture = FakePicture{};
    picture.withoutBuffer = true;
    fake.answer(picture);
    picture = FakePicture{};
    picture.width = 1920;
    fake.answer(picture);
    fake.answer(FakePicture{});
    const Printed printed = process(compressedFrame(1.0, 1));
    EXPECT_EQ(withoutTimeouts(printed.out),
              "not supported format 1\nmpp dec frame get buffer faild\n");
    EXPECT_EQ(printed.err, "frame of 1920x48 dropped: its memory does not hold it\n");
    EXPECT_EQ(ready(), 1);
}

TEST_F(H264Decoder, WithoutADisplayPicturesAreDroppedSilently) {
    open();
    screen.reset();
    fake.answer(FakePicture{});
    const Printed printed = process(compressedFrame(1.0, 1));
    EXPECT_EQ(printed.err + withoutTimeouts(printed.out), "");
}

TEST_F(H264Decoder, ADebuggerFindsTheLastFrameDescribed) {
    MppChannel own;
    openOwn(own);
    bothPrintedBy([&] {
        fake.answer(FakePicture{});
        processOn(own, compressedFrame(1.0, 1));
        EXPECT_STREQ(own.lastFrame.data(), "decode get frame 0");
        FakePicture picture;
        picture.error = 0x1a;
        picture.discard = 1;
        picture.withTemporalId = true;
        fake.answer(picture);
        processOn(own, compressedFrame(2.0, 1));
        EXPECT_STREQ(own.lastFrame.data(), "decode get frame 1 tid 3 err 1a discard 1");
        EXPECT_EQ(own.frameCount, 2);
        decoder->mpi_dec_destroy(own);
    });
}
