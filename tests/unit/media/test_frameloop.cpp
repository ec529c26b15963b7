// The payloads of compressed formats, judged by FFmpeg's decoders.

#include "board/media/frameloop.h"
#include "board/media/h264encoder.h"
#include "board/media/mediapackets.h"
#include "board/media/packetloop.h"
#include "board/media/recording.h"
#include "tests/support/reference.h"

#include <gtest/gtest.h>
#include <linux/videodev2.h>

#include <cmath>
#include <cstdlib>
#include <fstream>
#include <ostream>

namespace {

using board::Encoding;
using board::FrameLoop;
using board::FrameLoopWish;
using board::Stamp;
using support::Picture;
using support::ReferenceDecoder;

using Bytes = std::vector<std::uint8_t>;

FrameLoopWish wishFor(std::uint32_t fourcc, std::uint32_t width, std::uint32_t height) {
    FrameLoopWish wish;
    wish.recording = "field:bars";
    wish.fourcc = fourcc;
    wish.width = width;
    wish.height = height;
    wish.encoding.bitRate = 2000000;
    return wish;
}

// At most the first frames of a long loop.
std::shared_ptr<const FrameLoop> make(const FrameLoopWish& wish, unsigned frames = 600) {
    std::shared_ptr<const FrameLoop> made;
    board::makeFrameLoop(
        wish, [&frames] { return frames-- > 0; }, [&made](const auto& loop) { made = loop; });
    return made;
}

Bytes payload(const FrameLoop& loop, std::uint32_t index, const Stamp& stamp = {}) {
    Bytes bytes(500000);
    bytes.resize(loop.compose(index, stamp, bytes.data(), bytes.size()));
    return bytes;
}

std::optional<Stamp> stampOf(const Picture& picture) {
    return board::readStamp(picture.luma.data(), 1, picture.width, picture.width, picture.height);
}

struct JpegMode {
    std::uint32_t width, height;
    bool fullChromaHeight;
};

void PrintTo(const JpegMode& one, std::ostream* out) {
    *out << one.width << "x" << one.height << (one.fullChromaHeight ? " 4:2:2" : " 4:2:0");
}

class JpegFrames : public testing::TestWithParam<JpegMode> {};

TEST_P(JpegFrames, ShowTheRecordingWithNumberAndTime) {
    const auto [width, height, full] = GetParam();
    FrameLoopWish wish = wishFor(V4L2_PIX_FMT_MJPEG, width, height);
    wish.encoding.fullChromaHeight = full;
    wish.recording = board::defaultRecording();
    const auto loop = make(wish);
    const auto raw = board::loadPictures(wish.recording, V4L2_PIX_FMT_YUV420, width, height,
                                         board::loopLength(width, height));
    Picture seen;
    ReferenceDecoder decoder(V4L2_PIX_FMT_MJPEG, [&seen](const Picture& p) { seen = p; });
    Bytes expected(raw.pictureBytes);
    for (const std::uint32_t number : {0u, 1u, 47u, 48u, 0xabcdefu}) {
        seen = {};
        ASSERT_TRUE(decoder.decode(payload(*loop, 0, {number, 12345 + number})));
        ASSERT_EQ(seen.width, width);
        ASSERT_EQ(seen.height, height);
        const auto stamp = stampOf(seen);
        ASSERT_TRUE(stamp.has_value()) << "number " << number;
        EXPECT_EQ(stamp->frame, number);
        EXPECT_EQ(stamp->time_100us, 12345 + number);
        board::composeFrame(raw, number, 12345 + number, expected.data());
        double sum = 0;
        for (std::size_t i = 0; i < seen.luma.size(); ++i) {
            const double difference = double(seen.luma[i]) - double(expected[i]);
            sum += difference * difference;
        }
        const double luma_dB = 10 * std::log10(255.0 * 255.0 * double(seen.luma.size()) / sum);
        EXPECT_GE(luma_dB, 30) << "number " << number;
    }
}

INSTANTIATE_TEST_SUITE_P(Modes, JpegFrames,
                         testing::Values(JpegMode{640, 480, true}, JpegMode{640, 480, false},
                                         JpegMode{1366, 768, false}, JpegMode{320, 180, true},
                                         JpegMode{320, 20, false}, JpegMode{640, 40, true}));

TEST(JpegFrames, StandAtNoMarkWithoutRoomForOne) {
    const auto loop = make(wishFor(V4L2_PIX_FMT_MJPEG, 640, 16));
    EXPECT_FALSE(loop->marked());
    int pictures = 0;
    ReferenceDecoder decoder(V4L2_PIX_FMT_MJPEG, [&](const Picture&) { ++pictures; });
    EXPECT_TRUE(decoder.decode(payload(*loop, 0)));
    EXPECT_EQ(pictures, 1);
}

TEST(JpegFrames, AreCutOffAtTheBuffersEnd) {
    const auto loop = make(wishFor(V4L2_PIX_FMT_MJPEG, 320, 240));
    const Bytes whole = payload(*loop, 0, {5, 6});
    Bytes part(1000, 0xee);
    EXPECT_EQ(loop->compose(0, {5, 6}, part.data(), 900), whole.size());
    EXPECT_TRUE(std::equal(part.begin(), part.begin() + 900, whole.begin()));
    EXPECT_EQ(part[900], 0xee);
}

// Types of the units of an access unit.
std::vector<unsigned> unitTypes(const Bytes& bytes) {
    std::vector<unsigned> types;
    for (std::size_t at = 0; at + 3 < bytes.size(); ++at) {
        if (bytes[at] == 0 && bytes[at + 1] == 0 && bytes[at + 2] == 1) {
            types.push_back(bytes[at + 3] & 0x1f);
        }
    }
    return types;
}

struct Tally {
    unsigned keys = 0, withSets = 0;
};

Tally countKeys(const FrameLoop& loop, std::uint32_t frames) {
    Tally tally;
    for (std::uint32_t i = 0; i < frames; ++i) {
        const std::vector<unsigned> types = unitTypes(payload(loop, i));
        tally.keys += std::count(types.begin(), types.end(), 5u) > 0 ? 1 : 0;
        tally.withSets += std::count(types.begin(), types.end(), 7u) > 0 ? 1 : 0;
    }
    return tally;
}

TEST(H264Frames, KeyFramesAndParameterSetsComeAsSet) {
    FrameLoopWish wish = wishFor(V4L2_PIX_FMT_H264, 320, 240);
    wish.encoding.keyFrameDistance = 50;
    for (const auto& [every, sets] :
         std::vector<std::pair<unsigned, unsigned>>{{1, 12}, {0, 1}, {5, 3}}) {
        wish.encoding.parameterSetsEvery = every;
        const Tally tally = countKeys(*make(wish), 600);
        EXPECT_EQ(tally.keys, 12u) << every;
        EXPECT_EQ(tally.withSets, sets) << every;
    }
}

class H264Frames : public testing::TestWithParam<unsigned> {};

// Three rounds of a loop without a fault for the decoder, each picture in its place.
TEST_P(H264Frames, MarksAreThePlacesInTheLoop) {
    const std::uint32_t length = 60;
    Encoding encoding;
    encoding.bitRate = 2000000;
    encoding.bFrames = GetParam();
    board::PacketLoop loop(length, 0, true);
    const auto raw =
        board::loadPictures(board::defaultRecording(), V4L2_PIX_FMT_YUV420, 320, 240, length);
    board::H264Encoder encoder(320, 240, encoding,
                               [&loop](board::MediaPacket packet) { loop.add(std::move(packet)); });
    Bytes drawn(raw.pictureBytes);
    for (std::uint32_t place = 0; place < length; ++place) {
        board::composeStamped(raw, place % raw.pictures.size(), {place, board::stampInLoop},
                              drawn.data());
        encoder.encode(drawn.data());
    }
    encoder.finish();
    std::uint32_t next = 0, reordered = 0;
    ReferenceDecoder decoder(V4L2_PIX_FMT_H264, [&](const Picture& picture) {
        const auto stamp = stampOf(picture);
        ASSERT_TRUE(stamp.has_value()) << "picture " << next;
        EXPECT_EQ(stamp->frame, next % length);
        EXPECT_EQ(stamp->time_100us, board::stampInLoop);
        ++next;
    });
    for (std::uint32_t index = 0; index < 3 * length; ++index) {
        ASSERT_TRUE(loop.has(index));
        const auto place = loop.place(index);
        ASSERT_TRUE(place.has_value());
        EXPECT_EQ(place->mark, std::uint32_t(std::int64_t(index) + place->ahead) % length);
        reordered += place->ahead != 0 ? 1 : 0;
        ASSERT_TRUE(decoder.decode(payload(loop, index))) << "payload " << index;
    }
    decoder.finish();
    EXPECT_EQ(next, 3 * length);
    EXPECT_EQ(reordered > 0, GetParam() > 0);
}

INSTANTIATE_TEST_SUITE_P(BFrames, H264Frames, testing::Values(0, 2));

// Else a picture that comes late is taken for its place's next delivery.
TEST(H264Frames, ALoopIsAsLongAsItsSizeAllows) {
    for (const auto& [width, height, frames] :
         std::vector<std::tuple<unsigned, unsigned, std::uint32_t>>{{320, 240, 1040},
                                                                    {1280, 720, 200}}) {
        FrameLoopWish wish = wishFor(V4L2_PIX_FMT_H264, width, height);
        wish.encoding.keyFrameDistance = 20;
        const auto loop = make(wish, 80);
        EXPECT_TRUE(loop->has(79)) << width;
        EXPECT_FALSE(loop->has(frames - 1)) << width;
        EXPECT_TRUE(loop->has(frames)) << width << ": the second round";
    }
}

TEST(H264Frames, ALoopIsAsLongAsTheScenarioWants) {
    FrameLoopWish wish = wishFor(V4L2_PIX_FMT_H264, 160, 120);
    wish.encoding.loopFrames = 1500;
    wish.encoding.keyFrameDistance = 400;
    const auto loop = make(wish, 2000);
    EXPECT_EQ(loop->place(1599).value().mark, 1599u) << "a whole number of groups";
    EXPECT_EQ(loop->place(1600).value().mark, 0u);
}

TEST(H264Frames, SameWishGivesTheSameBytes) {
    const FrameLoopWish wish = wishFor(V4L2_PIX_FMT_H264, 160, 120);
    const auto once = make(wish), again = make(wish);
    for (std::uint32_t index = 0; index < 100; ++index) {
        ASSERT_EQ(payload(*once, index), payload(*again, index));
    }
}

TEST(H264Frames, AreThereBeforeAllOfThemAreMade) {
    bool ready = false;
    unsigned before = 0;
    board::makeFrameLoop(
        wishFor(V4L2_PIX_FMT_H264, 160, 120),
        [&] {
            before += ready ? 0 : 1;
            return !ready;
        },
        [&](const auto& loop) {
            ready = true;
            EXPECT_TRUE(loop->has(0));
            EXPECT_FALSE(loop->has(150));
        });
    EXPECT_LT(before, 100u);
}

TEST(MediaFile, OfTheRightCodecAndSizeIsSentUntouched) {
    const auto loop = make(wishFor(V4L2_PIX_FMT_MJPEG, 320, 240));
    const std::string path = testing::TempDir() + "five.mjpeg";
    std::ofstream file(path, std::ios::binary);
    std::vector<Bytes> payloads;
    for (std::uint32_t number = 0; number < 5; ++number) {
        payloads.push_back(payload(*loop, 0, {number, 1}));
        file.write(reinterpret_cast<const char*>(payloads.back().data()),
                   std::streamsize(payloads.back().size()));
    }
    file.close();
    FrameLoopWish wish = wishFor(V4L2_PIX_FMT_MJPEG, 320, 240);
    wish.recording = path;
    const auto sent = make(wish);
    EXPECT_FALSE(sent->marked());
    for (std::uint32_t index = 0; index < 12; ++index) {
        EXPECT_EQ(payload(*sent, index), payloads[index % 5]) << index;
    }
    wish.width = 640;
    wish.height = 480;
    EXPECT_TRUE(make(wish)->marked()) << "another size is decoded, scaled and encoded";
    EXPECT_TRUE(board::readPackets(path, V4L2_PIX_FMT_H264, 320, 240).empty());
}

TEST(MediaFile, H264OutOfAContainerDecodes) {
    const std::string path = testing::TempDir() + "box.mp4";
    const std::string packed = "/usr/share/doc/opencv-doc/opencv4/html/box.mp4.gz";
    ASSERT_EQ(std::system(("gunzip -c " + packed + " > " + path).c_str()), 0);
    const auto packets = board::readPackets(path, V4L2_PIX_FMT_H264, 640, 480);
    ASSERT_GT(packets.size(), 50u) << path;
    EXPECT_TRUE(packets.front().key);
    unsigned pictures = 0;
    ReferenceDecoder decoder(V4L2_PIX_FMT_H264, [&](const Picture&) { ++pictures; });
    for (std::size_t i = 0; i < 50; ++i) {
        EXPECT_TRUE(decoder.decode(packets[i].bytes)) << i;
    }
    decoder.finish();
    EXPECT_EQ(pictures, 50u);
}

TEST(FrameLoops, BadInputGetsOneLine) {
    FrameLoopWish wish = wishFor(V4L2_PIX_FMT_MJPEG, 320, 240);
    wish.recording = "/nonexistent/file.avi";
    EXPECT_THROW(make(wish), std::runtime_error);
    wish = wishFor(V4L2_PIX_FMT_H264, 321, 240);
    EXPECT_THROW(make(wish), std::runtime_error);
}

}  // namespace
