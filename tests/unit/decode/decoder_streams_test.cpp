// MJPEG and H.264 through the decoder library onto the display, against a decode by libavcodec.
#include "control/decode/decoder_h264_mpp.h"
#include "control/decode/decoder_mjpeg_mpp.h"
#include "control/task/fourcc.h"

#include "tests/unit/decode/streamscreen.h"

using streams::Bytes;
using streams::Picture;

namespace {

constexpr double unscaledLikeness_dB = 38.0;

class DecodedStream : public testing::Test {
  protected:
    ~DecodedStream() override {
        printedBy([this] {
            if (screen) {
                screen->stop();
            }
        });
    }
    template <typename Decoder>
    void play(const char (&format)[5], unsigned width, unsigned height) {
        mode = {fourccOf(format), width, height, 30};
        screen = std::make_unique<StreamScreen>(width, height);
        printedBy([&] { screen->play(std::make_unique<Decoder>(&mode)); });
    }
    // The next picture on the screen; its likeness to the one that was expected.
    double nextLikeness(const Picture& expected) {
        if (!screen->waitForShown(1) || !screen->take(shown)) {
            return 0.0;
        }
        return streams::psnr(shown.picture, streams::nv12Of(expected));
    }
    std::vector<Picture> drawnSequence(int width, int height, int count) {
        std::vector<Picture> pictures;
        for (int n = 0; n < count; ++n) {
            pictures.push_back(streams::drawn(width, height, n));
        }
        return pictures;
    }
    void expectJpegs(int width, int height, bool halfLines) {
        play<Decoder_MJPEG_MPP>("MJPG", static_cast<unsigned>(width),
                                static_cast<unsigned>(height));
        for (int n = 1; n < 4; ++n) {
            const Bytes jpeg = streams::jpegOf(streams::drawn(width, height, n, halfLines));
            screen->send(jpeg, n);
            EXPECT_GE(nextLikeness(streams::decodedJpeg(jpeg)), unscaledLikeness_dB)
                << width << "x" << height << (halfLines ? " 4:2:0" : " 4:2:2");
            EXPECT_EQ(shown.pts, n);
        }
        printedBy([this] { screen->stop(); });
        screen.reset();
    }
    // Sends all packets and takes so many pictures, in time for the ring not to overflow.
    std::string playPackets(const std::vector<Bytes>& packets, std::size_t count) {
        return printedBy([&] {
            const auto takeAll = [this] {
                while (screen->take(shown)) {
                    EXPECT_EQ(shown.pts, -1.0);
                    pictures.push_back(shown.picture);
                }
            };
            double pts = 0;
            for (const Bytes& packet : packets) {
                screen->send(packet, pts += 33.0);
                ASSERT_TRUE(comesTrue([&] {
                    takeAll();
                    return screen->queued() < 5;
                }));
            }
            // The decoder gives what it has when it gets more.
            ASSERT_TRUE(comesTrue([&] {
                takeAll();
                if (pictures.size() < count && screen->queued() == 0) {
                    screen->send(packets.back(), pts += 33.0);
                }
                return pictures.size() >= count;
            })) << pictures.size();
        });
    }
    void expectSequence(const std::vector<Picture>& expected, std::size_t from, std::size_t count) {
        ASSERT_GE(pictures.size(), from + count);
        for (std::size_t n = 0; n < count; ++n) {
            ASSERT_GE(streams::psnr(pictures[from + n], streams::nv12Of(expected.at(n))),
                      unscaledLikeness_dB)
                << "picture " << n;
        }
    }

    std::vector<Bytes> pictures;  // shown, in order
    decInfo mode;
    std::unique_ptr<StreamScreen> screen;
    StreamScreen::Shown shown;
};

// Takes long under sanitizers and tells them nothing new.
using DecodedStreamOfFullSize = DecodedStream;

}  // namespace

TEST_F(DecodedStreamOfFullSize, Jpeg) {
    for (const bool halfLines : {true, false}) {
        expectJpegs(1920, 1080, halfLines);
        expectJpegs(1280, 720, halfLines);
    }
}

TEST_F(DecodedStream, JpegPicturesOfUsualAndOddSizes) {
    for (const bool halfLines : {true, false}) {
        expectJpegs(640, 480, halfLines);
        expectJpegs(682, 382, halfLines);
        expectJpegs(160, 90, halfLines);
    }
}

TEST_F(DecodedStream, AJpegWithoutHuffmanTablesIsShown) {
    play<Decoder_MJPEG_MPP>("MJPG", 320, 240);
    const Bytes jpeg = streams::jpegOf(streams::drawn(320, 240, 3));
    const Bytes bare = streams::withoutHuffmanTables(jpeg);
    ASSERT_LT(bare.size() + 400, jpeg.size());
    screen->send(bare, 1.0);
    EXPECT_GE(nextLikeness(streams::decodedJpeg(jpeg)), unscaledLikeness_dB);
}

TEST_F(DecodedStream, AJpegLargerThanThePacketBufferIsShown) {
    play<Decoder_MJPEG_MPP>("MJPG", 320, 240);
    Bytes jpeg = streams::jpegOf(streams::drawn(320, 240, 3));
    const Picture expected = streams::decodedJpeg(jpeg);
    jpeg.resize(3000000);  // bytes after the picture
    for (int n = 1; n < 5; ++n) {
        screen->send(jpeg, n);
        EXPECT_GE(nextLikeness(expected), unscaledLikeness_dB);
    }
}

TEST_F(DecodedStream, AJpegOfTheWrongSizeHarmsNothing) {
    play<Decoder_MJPEG_MPP>("MJPG", 320, 240);
    const Bytes jpeg = streams::jpegOf(streams::drawn(320, 240, 3));
    double pts = 0;
    testing::internal::CaptureStderr();
    printedBy([&] {
        for (const auto& [width, height] :
             {std::pair(4000U, 4000U), std::pair(0U, 240U), std::pair(65535U, 65535U),
              std::pair(320U, 0U), std::pair(336U, 240U)}) {
            screen->send(streams::withSize(jpeg, width, height), ++pts);
        }
    });
    screen->send(jpeg, 100.0);
    while (shown.pts != 100.0) {
        ASSERT_TRUE(screen->waitForShown(1));
        screen->take(shown);
    }
    testing::internal::GetCapturedStderr();
    EXPECT_GE(streams::psnr(shown.picture, streams::nv12Of(streams::decodedJpeg(jpeg))),
              unscaledLikeness_dB);
}

TEST_F(DecodedStream, H264PicturesInTheirOrder) {
    for (const streams::H264Settings& settings :
         {streams::H264Settings{10, 0, false}, streams::H264Settings{10, 2, false},
          streams::H264Settings{10, 0, true}}) {
        const std::vector<Bytes> packets = streams::h264Of(drawnSequence(320, 240, 30), settings);
        const std::vector<Picture> expected = streams::decodedH264(packets);
        ASSERT_EQ(expected.size(), 30U);
        pictures.clear();
        play<Decoder_H264_MPP>("H264", 320, 240);
        playPackets(packets, 24);
        expectSequence(expected, 0, 24);
        printedBy([this] { screen->stop(); });
        screen.reset();
    }
}

TEST_F(DecodedStreamOfFullSize, H264) {
    const std::vector<Bytes> packets =
        streams::h264Of(drawnSequence(1920, 1080, 8), streams::H264Settings{});
    play<Decoder_H264_MPP>("H264", 1920, 1080);
    playPackets(packets, 5);
    expectSequence(streams::decodedH264(packets), 0, 5);
}

TEST_F(DecodedStream, AChangeOfTheH264PictureSizePlaysOn) {
    const std::vector<Bytes> small =
        streams::h264Of(drawnSequence(320, 240, 12), streams::H264Settings{});
    const std::vector<Bytes> large =
        streams::h264Of(drawnSequence(640, 480, 12), streams::H264Settings{});
    std::vector<Bytes> packets = small;
    packets.insert(packets.end(), large.begin(), large.end());
    play<Decoder_H264_MPP>("H264", 640, 480);
    const std::string printed = playPackets(packets, 18);
    EXPECT_NE(printed.find("require buffer w:h [320:240]"), std::string::npos) << printed;
    EXPECT_NE(printed.find("require buffer w:h [640:480]"), std::string::npos) << printed;
    // The small ones are scaled up; of the large ones each is what it should be.
    expectSequence(streams::decodedH264(large), 12, 6);
}

TEST_F(DecodedStream, AnH264PacketLargerThanTheCopyBufferIsShown) {
    std::vector<Bytes> packets =
        streams::h264Of(drawnSequence(320, 240, 8), streams::H264Settings{1, 0, false});
    const std::vector<Picture> expected = streams::decodedH264(packets);
    packets.at(2).resize(3000000);  // zeros after the picture, as the format allows
    play<Decoder_H264_MPP>("H264", 320, 240);
    playPackets(packets, 5);
    expectSequence(expected, 0, 5);
}

TEST_F(DecodedStream, BothStopInTimeWithFullQueues) {
    for (int round = 0; round < 3; ++round) {  // at another point of the work each time
        const Bytes jpeg = streams::jpegOf(streams::drawn(640, 480, round));
        play<Decoder_MJPEG_MPP>("MJPG", 640, 480);
        for (int n = 1; n <= 5 + round; ++n) {
            screen->send(jpeg, n);
        }
        printedBy([this] { screen->stop(); });
        screen.reset();

        const std::vector<Bytes> packets =
            streams::h264Of(drawnSequence(640, 480, 10), streams::H264Settings{});
        play<Decoder_H264_MPP>("H264", 640, 480);
        for (int n = 0; n < 100; ++n) {
            screen->send(packets.at(static_cast<std::size_t>(n) % packets.size()), n * 33.0);
        }
        printedBy([this] { screen->stop(); });
        screen.reset();
    }
}
