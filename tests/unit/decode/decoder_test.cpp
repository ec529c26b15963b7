// The decoder table and the decoder for raw frames.
#include "control/decode/decoder_h264_mpp.h"
#include "control/decode/decoder_mjpeg_mpp.h"
#include "control/decode/decoder_rawvideo.h"

#include "control/convert/rkrga.h"
#include "control/task/fourcc.h"
#include "control/task/msgvideo.h"

#include "tests/unit/display/displayaccess.h"
#include "tests/unit/task/printed.h"
#include "tests/unit/task/waiting.h"

#include <gtest/gtest.h>
#include <algorithm>
#include <memory>
#include <thread>

namespace {

using Access = DisplayDrmTestAccess;
using Decoder = std::unique_ptr<DecCommon>;

constexpr unsigned width = 64, height = 48;
constexpr std::size_t frameBytes = width * height * 2;

const int yuyv = static_cast<int>(fourccOf("YUYV"));

Decoder find(int fourcc, int kind, const std::string& name, decInfo* mode = nullptr) {
    static decInfo none;
    return Decoder(DecCommon::find_decoder_dev(fourcc, mode != nullptr ? mode : &none, kind, name));
}

// A grey frame, handed over as the capture task does.
msgVideo* frame(std::size_t bytes = frameBytes) {
    auto* message = new msgVideo;
    message->data[0] = new unsigned char[bytes];
    std::fill_n(message->data[0], bytes, static_cast<unsigned char>(128));
    message->length[0] = static_cast<std::uint32_t>(bytes);
    message->width = message->virWidth = width;
    message->height = message->virHeight = height;
    return message;
}

class RawDecoder : public testing::Test {
  protected:
    // A decoder that is destroyed without its lines in the test's output.
    ~RawDecoder() override {
        printedBy([this] { decoder.reset(); });
    }

    std::string process(msgVideo* message) {
        const std::unique_ptr<msgVideo> owner(message);
        return printedBy([&] { EXPECT_EQ(decoder->decoder_process(message, nullptr), 0); });
    }
    void useFormat(const char (&format)[5]) { mode.format = fourccOf(format); }

    decInfo mode{fourccOf("YUYV"), width, height, 30};
    std::unique_ptr<Decoder_Rawvideo> decoder = std::make_unique<Decoder_Rawvideo>(&mode);
};

}  // namespace

TEST(DecoderTable, FindsTheRawDecoderByFourccKindAndName) {
    for (const std::string& name : {std::string(), std::string("RawVideoYUYV")}) {
        Decoder decoder;
        EXPECT_EQ(printedBy([&] { decoder = find(yuyv, 0, name); }),
                  "find decoder dev is RawVideoYUYV\n");
        EXPECT_NE(dynamic_cast<Decoder_Rawvideo*>(decoder.get()), nullptr);
        printedBy([&] { decoder.reset(); });
    }
}

TEST(DecoderTable, FindsTheHardwareDecoders) {
    for (const std::string& name : {std::string(), std::string("Mjpeg")}) {
        Decoder decoder;
        EXPECT_EQ(printedBy([&] { decoder = find(static_cast<int>(fourccOf("MJPG")), 0, name); }),
                  "find decoder dev is Mjpeg\n");
        EXPECT_NE(dynamic_cast<Decoder_MJPEG_MPP*>(decoder.get()), nullptr);
        printedBy([&] { decoder.reset(); });
    }
    for (const std::string& name : {std::string(), std::string("H264Mpp")}) {
        Decoder decoder;
        EXPECT_EQ(printedBy([&] { decoder = find(static_cast<int>(fourccOf("H264")), 0, name); }),
                  "find decoder dev is H264Mpp\n");
        EXPECT_NE(dynamic_cast<Decoder_H264_MPP*>(decoder.get()), nullptr);
        printedBy([&] { decoder.reset(); });
    }
}

TEST(DecoderTable, EachCallMakesANewDecoder) {
    printedBy([] {
        const Decoder first = find(yuyv, 0, ""), second = find(yuyv, 0, "");
        EXPECT_NE(first.get(), second.get());
    });
}

TEST(DecoderTable, AWrongFourccKindOrNameFindsNothing) {
    EXPECT_EQ(printedBy([] {
                  EXPECT_EQ(find(static_cast<int>(fourccOf("NV12")), 0, ""), nullptr);
                  EXPECT_EQ(find(yuyv, 1, ""), nullptr);
                  EXPECT_EQ(find(yuyv, 0, "Mjpeg"), nullptr);
                  EXPECT_EQ(find(static_cast<int>(fourccOf("H264")), 0, "Mjpeg"), nullptr);
                  EXPECT_EQ(find(0, 0, "RawVideoYUYV"), nullptr);
              }),
              "can't find decoder dev\ncan't find decoder dev\ncan't find decoder dev\n"
              "can't find decoder dev\ncan't find decoder dev\n");
}

TEST_F(RawDecoder, TakesTenMessagesAndNoMore) {
    for (int i = 0; i < 10; ++i) {
        EXPECT_TRUE(decoder->queueAllow_angler()) << i;
        EXPECT_EQ(decoder->receive_handler(frame(), 0), 1);
    }
    EXPECT_EQ(decoder->getqSize(), 10);
    EXPECT_FALSE(decoder->queueAllow_angler());
}

TEST_F(RawDecoder, ClosingWhatWasNeverOpenedDoesNothing) {
    EXPECT_EQ(printedBy([this] { EXPECT_EQ(decoder->decoder_close(), 0); }), "");
}

TEST_F(RawDecoder, CloseTellsAndFreesWhatIsLeft) {
    for (int i = 0; i < 3; ++i) {
        decoder->receive_handler(frame(), 0);
    }
    EXPECT_EQ(printedBy([this] { EXPECT_EQ(decoder->close(), 0); }),
              "rawvideo close remain avpacket queue :3\n");
    EXPECT_EQ(decoder->getqSize(), 0);
}

TEST_F(RawDecoder, OpensRunsTellsOfTimeoutsAndCloses) {
    const std::string opened = printedBy([this] { EXPECT_EQ(decoder->decoder_open(), 1); });
    EXPECT_EQ(opened.find("rawvideo decoder open\nrawvideo decoder open succeed\n"), 0U) << opened;
    decoder->receive_handler(frame(), 0);
    EXPECT_TRUE(comesTrue([this] { return decoder->getqSize() == 0; }));
    // An idle decoder says so again and again; only a whole line ends the wait.
    std::string idle;
    EXPECT_TRUE(comesTrue([&] {
        idle += printedBy([] { std::this_thread::sleep_for(std::chrono::milliseconds(5)); });
        return idle.find("Decoder_Rawvideo getq timeout\n") != std::string::npos;
    }));
    const std::string closed = printedBy([this] {
        const auto start = Clock::now();
        EXPECT_EQ(decoder->close(), 0);
        EXPECT_LT(millisecondsSince(start), 2000.0);
        EXPECT_EQ(decoder->decoder_close(), 1);
        EXPECT_EQ(decoder->decoder_close(), 0);
        decoder.reset();
    });
    const std::string end =
        "Decoder_Rawvideosvc normal stop!\n"
        "rawvideo close remain avpacket queue :0\n"
        "rawvideo decoder close\n"
        "rawvideo decoder close succeed\n"
        "rawvideo close remain avpacket queue :0\n";
    ASSERT_GE(closed.size(), end.size());
    EXPECT_EQ(closed.substr(closed.size() - end.size()), end);
}

TEST_F(RawDecoder, DestructionClosesWhatIsOpen) {
    const std::string out = printedBy([this] {
        decoder->decoder_open();
        decoder.reset();
    });
    EXPECT_NE(out.find("rawvideo close remain avpacket queue :0\n"
                       "rawvideo decoder close\nrawvideo decoder close succeed\n"),
              std::string::npos)
        << out;
}

TEST_F(RawDecoder, AnotherFormatIsRefusedForEveryFrame) {
    DisplayWithMemory display(width, height, width);
    RkRga engine;
    useFormat("MJPG");
    EXPECT_EQ(process(frame()), "rawvideo not supported format\n");
    EXPECT_EQ(process(frame()), "rawvideo not supported format\n");
    EXPECT_EQ(Access::readyCount(display.display), 0);
}

TEST_F(RawDecoder, WithoutADisplayFramesAreDroppedSilently) {
    RkRga engine;
    EXPECT_EQ(process(frame()), "");
}

TEST_F(RawDecoder, AFrameComesToTheDisplayByPitchAndWithoutPacing) {
    DisplayWithMemory holder(60, 40, 64);
    for (std::vector<unsigned char>& picture : holder.memory) {
        std::fill(picture.begin(), picture.end(), static_cast<unsigned char>(1));
    }
    RkRga engine;
    EXPECT_EQ(process(frame()), "");
    int index = -1;
    unsigned shownWidth = 0, shownHeight = 0;
    double pts = 0;
    ASSERT_TRUE(holder.display.deQueue(&index, &shownWidth, &shownHeight, &pts));
    EXPECT_EQ(index, 0);
    EXPECT_EQ(shownWidth, 60U);
    EXPECT_EQ(shownHeight, 40U);
    EXPECT_EQ(pts, -1.0);
    const std::vector<unsigned char>& picture = holder.memory[0];
    for (unsigned line = 0; line < 60; ++line) {  // 40 of luma, 20 of chroma
        ASSERT_EQ(picture[line * 64], 128) << line;
        ASSERT_EQ(picture[line * 64 + 59], 128) << line;
    }
}

TEST_F(RawDecoder, AFrameShorterThanItsPictureIsDroppedWithOneLine) {
    DisplayWithMemory holder(width, height, width);
    RkRga engine;
    testing::internal::CaptureStderr();
    process(frame(frameBytes - 1));
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "rawvideo frame dropped: 6143 bytes, its picture of 64x48 takes 6144\n");
    EXPECT_EQ(Access::readyCount(holder.display), 0);
    process(frame(frameBytes + 7));  // a longer one is shown
    EXPECT_EQ(Access::readyCount(holder.display), 1);
}

TEST_F(RawDecoder, SizesThatDoNotFitAnyFrameAreDropped) {
    DisplayWithMemory holder(width, height, width);
    RkRga engine;
    testing::internal::CaptureStderr();
    for (const auto& [w, h] : {std::pair(0U, height), std::pair(width, 0U),
                               std::pair(0x80000001U, 2U), std::pair(0xFFFFFFFFU, 0xFFFFFFFFU)}) {
        msgVideo* message = frame();
        message->width = w;
        message->height = h;
        process(message);
    }
    const std::string errors = testing::internal::GetCapturedStderr();
    EXPECT_EQ(std::count(errors.begin(), errors.end(), '\n'), 4) << errors;
    EXPECT_EQ(Access::readyCount(holder.display), 0);
}

TEST_F(RawDecoder, ABufferThatIsNotMappedShowsNothing) {
    DisplayWithMemory holder(width, height, width);
    Access::slot(holder.display, 0).vaddr = nullptr;
    RkRga engine;
    process(frame());
    EXPECT_EQ(Access::readyCount(holder.display), 0);
}

TEST_F(RawDecoder, ADisplayWithoutAModeOrWithoutAnEngineShowsNothing) {
    {
        DisplayDrm unset(decInfo{});
        RkRga engine;
        EXPECT_EQ(process(frame()), "");
        EXPECT_EQ(Access::readyCount(unset), 0);
    }
    DisplayWithMemory holder(width, height, width);
    EXPECT_EQ(process(frame()), "");
    EXPECT_EQ(Access::readyCount(holder.display), 0);
}
