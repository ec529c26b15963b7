// What a microphone hears, and the files that recordings become.
#include "board/daemon/sound/soundrecorder.h"
#include "board/daemon/sound/soundsource.h"
#include "board/daemon/sound/wavefile.h"
#include "board/media/decodedsound.h"
#include "tests/board/sound/soundbench.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace {

namespace fs = std::filesystem;
using board::packSample;
using board::SoundFormat;

class Folder {
  public:
    Folder() {
        char name[] = "/tmp/sound-test.XXXXXX";
        path_ = ::mkdtemp(name);
    }
    ~Folder() { fs::remove_all(path_); }
    std::string file(const std::string& name) const { return path_ + "/" + name; }

  private:
    std::string path_;
};

SoundFormat formatOf(int format, std::uint32_t bits, std::uint32_t channels = 2) {
    SoundFormat chosen;
    chosen.format = format;
    chosen.sampleBits = bits;
    chosen.channels = channels;
    chosen.rate_Hz = 48000;
    return chosen;
}

std::vector<std::uint8_t> packed(std::int32_t sample, int format, std::size_t bytes) {
    std::vector<std::uint8_t> memory(bytes);
    packSample(sample, format, memory.data());
    return memory;
}

std::string readAll(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

TEST(Samples, StandInMemoryAsTheFormatSays) {
    using Bytes = std::vector<std::uint8_t>;
    const std::int32_t sample = 0x12345678;
    EXPECT_EQ(packed(sample, SNDRV_PCM_FORMAT_S8, 1), Bytes({0x12}));
    EXPECT_EQ(packed(sample, SNDRV_PCM_FORMAT_U8, 1), Bytes({0x92}));
    EXPECT_EQ(packed(sample, SNDRV_PCM_FORMAT_S16_LE, 2), Bytes({0x34, 0x12}));
    EXPECT_EQ(packed(sample, SNDRV_PCM_FORMAT_S16_BE, 2), Bytes({0x12, 0x34}));
    EXPECT_EQ(packed(sample, SNDRV_PCM_FORMAT_U16_LE, 2), Bytes({0x34, 0x92}));
    EXPECT_EQ(packed(sample, SNDRV_PCM_FORMAT_S24_LE, 4), Bytes({0x56, 0x34, 0x12, 0}));
    EXPECT_EQ(packed(sample, SNDRV_PCM_FORMAT_S24_3LE, 3), Bytes({0x56, 0x34, 0x12}));
    EXPECT_EQ(packed(sample, SNDRV_PCM_FORMAT_S24_3BE, 3), Bytes({0x12, 0x34, 0x56}));
    EXPECT_EQ(packed(sample, SNDRV_PCM_FORMAT_S32_LE, 4), Bytes({0x78, 0x56, 0x34, 0x12}));
    EXPECT_EQ(packed(-0x40000000, SNDRV_PCM_FORMAT_FLOAT_LE, 4), Bytes({0, 0, 0, 0xbf}));
}

TEST(Sources, KnownOnesAndOthers) {
    for (const char* name : {"sweep", "tone:1000", "clicks", "noise", "ramp", "silence"})
        EXPECT_NE(board::makeGenerator(name), nullptr) << name;
    for (const char* name : {"", "tone:", "tone:-1", "tone:1x", "Sweep", "/some/file.wav"})
        EXPECT_EQ(board::makeGenerator(name), nullptr) << name;
}

TEST(Sources, ToneHasItsFrequency) {
    const auto tone = board::makeGenerator("tone:1000");
    unsigned risings = 0;
    for (std::uint64_t frame = 1; frame <= 48000; ++frame)
        risings += tone->sample(frame - 1, 0, 48000) < 0 && tone->sample(frame, 0, 48000) >= 0;
    EXPECT_NEAR(risings, 1000, 1);
    EXPECT_EQ(tone->sample(12, 0, 48000), tone->sample(48000ULL * 86400 * 365 + 12, 0, 48000));
    EXPECT_NEAR(tone->sample(12, 0, 48000) / 1073741824.0, 1, 1e-6);  // a quarter turn
}

TEST(WaveFiles, CarryLengthsAndSamples) {
    const Folder folder;
    const std::vector<std::uint8_t> frames = {1, 2, 3, 4, 5, 6, 7, 8};
    board::WaveFile(folder.file("a.wav"), formatOf(SNDRV_PCM_FORMAT_S16_LE, 16))
        .append(frames.data(), frames.size());
    const std::string file = readAll(folder.file("a.wav"));
    ASSERT_EQ(file.size(), 44u + 8u);
    EXPECT_EQ(file.substr(0, 4) + file.substr(8, 8), "RIFFWAVEfmt ");
    EXPECT_EQ(file[4], char(36 + 8));
    EXPECT_EQ(file[40], char(8));
    EXPECT_EQ(file.substr(44), std::string(frames.begin(), frames.end()));
    // Three bytes in four stand at the top of a 32-bit sample.
    board::WaveFile(folder.file("b.wav"), formatOf(SNDRV_PCM_FORMAT_S24_LE, 32))
        .append(frames.data(), frames.size());
    EXPECT_EQ(readAll(folder.file("b.wav")).substr(44), std::string({0, 1, 2, 3, 0, 5, 6, 7}));
    EXPECT_THROW(board::WaveFile("/nowhere/a.wav", formatOf(SNDRV_PCM_FORMAT_S16_LE, 16)),
                 std::runtime_error);
}

// A file of every width comes back exact at its own rate.
TEST(DecodedSounds, AreExact) {
    const Folder folder;
    const auto noise = board::makeGenerator("noise");
    for (const auto& [format, bits, mask] :
         {std::tuple(SNDRV_PCM_FORMAT_S16_LE, 16U, 0xffff0000U),
          std::tuple(SNDRV_PCM_FORMAT_S24_3LE, 24U, 0xffffff00U),
          std::tuple(SNDRV_PCM_FORMAT_S32_LE, 32U, 0xffffffffU)}) {
        std::vector<std::uint8_t> bytes(std::size_t(5000) * 2 * bits / 8);
        for (std::size_t i = 0; i < 10000; ++i)
            packSample(noise->sample(i / 2, i % 2, 48000), format, &bytes[i * bits / 8]);
        const std::string path = folder.file("noise.wav");
        board::WaveFile(path, formatOf(format, bits)).append(bytes.data(), bytes.size());
        const board::DecodedSound sound = board::decodeSound(path, 48000, 10);
        ASSERT_EQ(sound.channels, 2u);
        ASSERT_EQ(sound.samples.size(), 10000u);
        for (std::size_t i = 0; i < 10000; ++i)
            ASSERT_EQ(std::uint32_t(sound.samples[i]),
                      std::uint32_t(noise->sample(i / 2, i % 2, 48000)) & mask);
    }
    EXPECT_NEAR(double(board::decodeSound(folder.file("noise.wav"), 16000, 10).samples.size()),
                10000 / 3.0, 40);
    EXPECT_THROW(board::decodeSound("/etc/passwd", 48000, 10), std::runtime_error);
    EXPECT_THROW(board::decodeSound("/none", 48000, 10), std::runtime_error);
}

class Recording : public testing::Test {
  protected:
    board::SoundRecorder::Result stop() {
        board::SoundRecorder::Result result;
        bool done = false;
        recorder_.stop([&](const auto& told) {
            result = told;
            done = true;
        });
        EXPECT_TRUE(bench_.runUntil([&] { return done; }));
        return result;
    }
    Folder folder_;
    soundbench::Bench bench_;
    board::JobWorker worker_;
    board::SoundRecorder recorder_{bench_.loop(), worker_};
    std::vector<std::uint8_t> frames_ = std::vector<std::uint8_t>(400, 5);
};

TEST_F(Recording, WritesFramesAndTable) {
    ASSERT_EQ(recorder_.start(folder_.file("s.wav")), "");
    EXPECT_NE(recorder_.start(folder_.file("t.wav")), "");
    recorder_.format(formatOf(SNDRV_PCM_FORMAT_S16_LE, 16));
    recorder_.event("start", 5, 0);
    recorder_.frames(frames_.data(), 100);
    recorder_.event("period", 77, 12);
    const auto result = stop();
    EXPECT_EQ(result.error, "");
    EXPECT_EQ(result.frames, 100u);
    EXPECT_EQ(readAll(folder_.file("s.wav")).size(), 444u);
    EXPECT_EQ(readAll(folder_.file("s.csv")),
              "time_ns,frame,left,event\n5,0,0,start\n77,100,12,period\n");
    EXPECT_NE(stop().error, "");
}

TEST_F(Recording, AnotherFormatGoesToAFileOfItsOwn) {
    ASSERT_EQ(recorder_.start(folder_.file("s.wav")), "");
    recorder_.format(formatOf(SNDRV_PCM_FORMAT_S16_LE, 16));
    recorder_.frames(frames_.data(), 100);
    recorder_.format(formatOf(SNDRV_PCM_FORMAT_S32_LE, 32));
    recorder_.frames(frames_.data(), 50);
    EXPECT_EQ(stop().error, "");
    EXPECT_EQ(readAll(folder_.file("s.wav")).size(), 444u);
    EXPECT_EQ(readAll(folder_.file("s-2.wav")).size(), 444u);
}

TEST_F(Recording, TellsWhatWentWrong) {
    EXPECT_NE(recorder_.start("/nowhere/s.wav"), "");
    ASSERT_EQ(recorder_.start(folder_.file("s.wav")), "");
    EXPECT_EQ(stop().error, "nothing was played");
    ASSERT_EQ(recorder_.start(folder_.file("s.wav")), "");
    recorder_.format(formatOf(SNDRV_PCM_FORMAT_S16_BE, 16));
    recorder_.frames(frames_.data(), 100);
    EXPECT_EQ(stop().error, "the stream's format cannot stand in a WAV file");
}

}  // namespace
