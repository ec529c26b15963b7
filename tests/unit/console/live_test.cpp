// Pictures and sound between the board's views and their viewers.

#include "board/console/agestatistics.h"
#include "board/console/camerapictures.h"
#include "board/console/jpegdecoder.h"
#include "board/console/jpegencoder.h"
#include "board/console/livepart.h"
#include "board/console/picturechannel.h"
#include "board/console/soundchannel.h"
#include "board/console/soundmeter.h"
#include "board/console/soundsamples.h"

#include <gtest/gtest.h>
#include <sound/asound.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <random>
#include <thread>

namespace {

using namespace board::console;
using std::chrono::milliseconds;

I420Picture slope(std::uint32_t width, std::uint32_t height) {
    I420Picture picture;
    picture.resize(width, height);
    for (std::uint32_t line = 0; line < height; ++line)
        for (std::uint32_t x = 0; x < width; ++x)
            picture.y[line * picture.stride + x] = std::uint8_t(x * 255 / width);
    std::fill(picture.u.begin(), picture.u.end(), std::uint8_t(128));
    std::fill(picture.v.begin(), picture.v.end(), std::uint8_t(128));
    picture.pad();
    return picture;
}

TEST(Jpeg, ComesBackAsItWas) {
    for (const auto& [width, height] : {std::pair{64u, 48u}, {1280u, 674u}, {34u, 18u}, {2u, 2u}}) {
        const std::string jpeg = encodeJpeg(slope(width, height), 90);
        BgrxPicture back;
        ASSERT_TRUE(decodeJpeg(reinterpret_cast<const std::uint8_t*>(jpeg.data()), jpeg.size(),
                               width, back));
        ASSERT_EQ(back.width, width);
        ASSERT_EQ(back.height, height);
        for (std::uint32_t x = 0; x < width; ++x) {
            const std::size_t place = (std::size_t(height - 1) * width + x) * 4;
            ASSERT_NEAR(back.bytes[place], x * 255 / width, 12) << width << " " << x;
        }
    }
}

TEST(Jpeg, IsDecodedSmallWhereThatIsEnough) {
    const std::string jpeg = encodeJpeg(slope(1280, 720), 80);
    BgrxPicture small;
    ASSERT_TRUE(
        decodeJpeg(reinterpret_cast<const std::uint8_t*>(jpeg.data()), jpeg.size(), 320, small));
    EXPECT_EQ(small.width, 320u);
    EXPECT_EQ(small.height, 180u);
}

TEST(Jpeg, DamageIsNeverMoreThanAnUglyPicture) {
    const std::string whole = encodeJpeg(slope(320, 240), 80);
    std::mt19937 random(3);
    unsigned decoded = 0;
    for (int round = 0; round < 300; ++round) {
        std::string jpeg = "some bytes before" + whole.substr(0, 1 + random() % whole.size());
        for (unsigned flips = random() % 6; flips > 0; --flips)
            jpeg[random() % jpeg.size()] ^= char(1u << random() % 8);
        BgrxPicture picture;
        if (decodeJpeg(reinterpret_cast<const std::uint8_t*>(jpeg.data()), jpeg.size(), 160,
                       picture)) {
            ++decoded;
            EXPECT_EQ(picture.bytes.size(), std::size_t(picture.width) * picture.height * 4);
        }
    }
    EXPECT_GT(decoded, 100u);
    BgrxPicture none;
    EXPECT_FALSE(decodeJpeg(nullptr, 0, 160, none));
}

// A packet as the board sends it.
void makePacket(ViewPacket& packet, std::uint32_t fourcc, std::uint32_t width, std::uint32_t height,
                std::uint32_t frame, const std::string& payload) {
    board::wire::ViewPayload head{};
    head.fourcc = fourcc;
    head.width = width;
    head.height = height;
    head.bytes = std::uint32_t(payload.size());
    head.frame = frame;
    packet.bytes.resize(sizeof head);
    __builtin_memcpy(packet.bytes.data(), &head, sizeof head);
    const int memory = ::memfd_create("payload", MFD_CLOEXEC);
    EXPECT_EQ(::write(memory, payload.data(), payload.size()), ssize_t(payload.size()));
    packet.descriptors.clear();
    packet.descriptors.add(memory);
}

constexpr std::uint32_t mjpg = 0x47504a4d, yuyv = 0x56595559, h264 = 0x34363248;

TEST(CameraPictures, ShowEachFormatAndSurviveDamage) {
    CameraPictures pictures;
    const auto now = std::chrono::steady_clock::now();
    ViewPacket packet;
    makePacket(packet, mjpg, 1280, 720, 7, encodeJpeg(slope(1280, 720), 80));
    const std::string part = pictures.part(packet, now);
    EXPECT_NE(part.find("X-Frame: 7\r\n"), std::string::npos);
    EXPECT_NE(part.find("X-Size: 1280x720\r\n"), std::string::npos);
    makePacket(packet, yuyv, 640, 480, 8, std::string(640 * 480 * 2, '\x80'));
    EXPECT_FALSE(pictures.part(packet, now).empty());
    makePacket(packet, yuyv, 640, 480, 9, std::string(1000, '\x80'));
    EXPECT_TRUE(pictures.part(packet, now).empty());  // not one pair of lines
    makePacket(packet, h264, 640, 480, 10, std::string("\0\0\0\1\x65garbage", 12));
    EXPECT_TRUE(pictures.part(packet, now).empty());
    EXPECT_TRUE(pictures.needsEveryPayload());
    makePacket(packet, 0x12345678, 640, 480, 11, "x");
    EXPECT_TRUE(pictures.part(packet, now).empty());
    EXPECT_FALSE(pictures.needsEveryPayload());
    packet.bytes.resize(3);
    EXPECT_TRUE(pictures.part(packet, now).empty());
}

TEST(LivePart, EndsWithTheNextBoundary) {
    LivePart part;
    part.jpeg = "jpeg";
    part.frame = 5;
    part.age_ms = 12.34;
    part.width = 1920;
    part.height = 1080;
    EXPECT_EQ(part.text(),
              "Content-Type: image/jpeg\r\nContent-Length: 4\r\nX-Frame: 5\r\nX-Age-Ms: 12.3\r\n"
              "X-Size: 1920x1080\r\n\r\njpeg\r\n--picture\r\n");
}

TEST(PictureSizes, KeepTheirProportions) {
    const auto fits = [](std::uint32_t width, std::uint32_t height) {
        const PictureSize size = fitInto({width, height}, {1280, 720});
        return std::pair(size.width, size.height);
    };
    EXPECT_EQ(fits(3840, 2160), std::pair(1280u, 720u));
    EXPECT_EQ(fits(640, 480), std::pair(640u, 480u));
    EXPECT_EQ(fits(4096, 2160), std::pair(1280u, 674u));
    EXPECT_EQ(fits(1280, 1024), std::pair(900u, 720u));
    EXPECT_EQ(fits(16000, 2), std::pair(1280u, 2u));
}

TEST(PictureChannel, GivesEveryViewerTheLatest) {
    PictureChannel channel;
    EXPECT_FALSE(channel.hasViewers());
    std::atomic<bool> end{false};
    std::atomic<unsigned> backwards{0}, seen{0};
    std::vector<std::thread> viewers;
    for (int i = 0; i < 4; ++i)
        viewers.emplace_back([&] {
            PictureChannel::Viewer viewer(channel);
            for (int last = -1; !end;) {
                const PictureChannel::Part part = viewer.next(milliseconds(20));
                if (!part)
                    continue;
                const int number = std::stoi(*part);
                backwards += number < last ? 1 : 0;
                last = number;
                ++seen;
            }
        });
    while (!channel.waitForViewers(milliseconds(20))) {
    }
    for (int i = 0; i < 2000; ++i)
        channel.publish(std::make_shared<const std::string>(std::to_string(i)));
    while (seen == 0)
        std::this_thread::yield();
    end = true;
    for (std::thread& viewer : viewers)
        viewer.join();
    EXPECT_EQ(backwards, 0u);
    EXPECT_FALSE(channel.hasViewers());
}

TEST(SoundChannel, IsAWavFileOfWhatWasPublished) {
    SoundChannel channel;
    channel.publish(48000, {9, 9});  // nobody listens
    SoundChannel::Listener listener(channel);
    channel.publish(48000, {1, -2, 3, -4});
    channel.publish(48000, {5, 6});
    const std::string bytes = listener.next(milliseconds(0)).value_or("");
    ASSERT_EQ(bytes.size(), 44u + 12u);
    EXPECT_EQ(bytes.substr(0, 4) + bytes.substr(8, 8), "RIFFWAVEfmt ");
    EXPECT_EQ(bytes.substr(44), std::string("\1\0\xfe\xff\3\0\xfc\xff\5\0\6\0", 12));
    EXPECT_EQ(listener.next(milliseconds(0)), std::optional<std::string>(""));
    channel.publish(44100, {1, 1});
    EXPECT_EQ(listener.next(milliseconds(0)), std::nullopt);
}

TEST(SoundChannel, ASlowListenerLosesTheOldest) {
    SoundChannel channel;
    SoundChannel::Listener listener(channel);
    for (std::int16_t second = 0; second < 10; ++second)
        channel.publish(8000, std::vector<std::int16_t>(16000, second));
    const std::string bytes = listener.next(milliseconds(0)).value_or("");
    EXPECT_EQ(bytes.size(), 44u + 2 * 32000u);
    EXPECT_EQ(bytes[44], 8);
    EXPECT_EQ(bytes.back(), 0);
}

TEST(SoundMeter, TellsDecibelsBelowFullScale) {
    SoundMeter meter;
    const auto now = SoundMeter::Clock::now();
    EXPECT_EQ(meter.json(now), "null");
    std::vector<std::int16_t> half;
    for (int i = 0; i < 1000; ++i) {
        half.push_back(i % 2 == 0 ? 16384 : -16384);
        half.push_back(0);
    }
    meter.take(half, now);
    EXPECT_EQ(meter.json(now), "{\"rms_dB\": [-6.0, -100.0], \"peak_dB\": [-6.0, -100.0]}");
    EXPECT_EQ(meter.json(now + milliseconds(400)), "null");
}

TEST(SoundSamples, AreLeftAndRightOfEachFormat) {
    using Samples = std::vector<std::int16_t>;
    const auto of = [](int format, std::uint32_t channels, const std::string& bytes,
                       std::uint32_t frames) {
        return toStereo(std::uint32_t(format), channels, bytes.data(), bytes.size(), frames);
    };
    EXPECT_EQ(of(SNDRV_PCM_FORMAT_S16_LE, 2, std::string("\1\2\3\xff", 4), 1),
              (Samples{513, -253}));
    EXPECT_EQ(of(SNDRV_PCM_FORMAT_S16_LE, 1, std::string("\1\2", 2), 1), (Samples{513, 513}));
    EXPECT_EQ(of(SNDRV_PCM_FORMAT_S16_LE, 3, "aabbcc", 1), (Samples{0x6161, 0x6262}));
    EXPECT_EQ(of(SNDRV_PCM_FORMAT_S24_3LE, 1, std::string("\7\1\2", 3), 1), (Samples{513, 513}));
    EXPECT_EQ(of(SNDRV_PCM_FORMAT_S32_LE, 1, std::string("\7\7\1\2", 4), 1), (Samples{513, 513}));
    EXPECT_EQ(of(SNDRV_PCM_FORMAT_U8, 2, "\x80\x90", 1), (Samples{0, 4096}));
    EXPECT_EQ(of(SNDRV_PCM_FORMAT_S16_LE, 2, "abc", 1), Samples());
    EXPECT_EQ(of(SNDRV_PCM_FORMAT_S16_LE, 0, "abcd", 1), Samples());
    EXPECT_EQ(of(SNDRV_PCM_FORMAT_A_LAW, 1, "abcd", 1), Samples());
}

TEST(AgeStatistics, SpeakOfTheLastSecond) {
    AgeStatistics statistics;
    const auto start = AgeStatistics::Clock::now();
    for (unsigned i = 0; i < 20; ++i) {
        board::wire::ViewFlip flip{};
        flip.shown_ns = (i + 1) * 1000000;
        flip.marked = 1;
        flip.repeated = i == 5 ? 1 : 0;
        flip.skipped = i == 9 ? 2 : 0;
        statistics.take(flip, start + milliseconds(i * 10));
    }
    const AgeSecond second = statistics.lastSecond(start + milliseconds(500));
    EXPECT_EQ(second.shown, 19u);
    EXPECT_EQ(second.repeated, 1u);
    EXPECT_EQ(second.skipped, 2u);
    EXPECT_DOUBLE_EQ(second.median_ms, 11);
    EXPECT_DOUBLE_EQ(second.p95_ms, 19);
    EXPECT_EQ(statistics.lastSecond(start + milliseconds(1300)).shown, 0u);
}

}  // namespace
