// alsa-lib's programs and other users of it on the sound cards.

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <ostream>
#include <sstream>

#include "tests/board/foreign/soundscenario.h"

namespace {

using sound::SoundScenario;
using sound::usualMicrophone;
using sound::usualOutput;
using support::Board;
using support::ClientResult;
using support::Milliseconds;
using support::readFile;
using support::SoundFigures;

// The samples of a WAV file.
std::string samplesOf(const std::string& path) {
    const std::string file = readFile(path);
    const std::size_t data = file.find("data");
    return data == std::string::npos ? "" : file.substr(data + 8);
}

std::uint64_t framesOf(const std::string& path, std::size_t frameBytes) {
    return samplesOf(path).size() / frameBytes;
}

// Whether every frame of stereo S16 counts on from the one before it, as the source does.
bool countsOn(const std::string& samples) {
    for (std::size_t at = 4; at + 4 <= samples.size(); at += 4) {
        std::uint16_t before = 0, left = 0, right = 0;
        std::memcpy(&before, samples.data() + at - 4, 2);
        std::memcpy(&left, samples.data() + at, 2);
        std::memcpy(&right, samples.data() + at + 2, 2);
        if (left != std::uint16_t(before + 1) || right != std::uint16_t(left + 1)) {
            return false;
        }
    }
    return samples.size() >= 8;
}

void expectDone(const ClientResult& result) {
    EXPECT_TRUE(result.ended);
    EXPECT_EQ(result.exitCode, 0) << result.out << result.err;
}

TEST(Alsa, CardsAreListedAndShowTheirLimits) {
    const SoundScenario scenario("usb-audio-device", usualOutput);
    Board board(scenario.path());
    const ClientResult list = runClient(board, {"aplay", "-l"});
    expectDone(list);
    EXPECT_NE(list.out.find("card 0: rockchiphdmi [rockchip-hdmi], device 0"), std::string::npos);
    const ClientResult limits = runClient(
        board, {"aplay", "-D", "hw:0,0", "--dump-hw-params", "-f", "S8", "-d", "1", "/dev/zero"});
    EXPECT_EQ(limits.exitCode, 1);  // the card has no such format
    for (const char* line :
         {"\nACCESS:  MMAP_INTERLEAVED RW_INTERLEAVED\n", "\nFORMAT:  S16_LE S24_LE S32_LE\n",
          "\nCHANNELS: [2 8]\n", "\nRATE: [32000 192000]\n", "\nPERIOD_BYTES: [256 65536]\n",
          "\nPERIODS: [2 32]\n", "\nBUFFER_BYTES: [256 131072]\n"}) {
        EXPECT_NE(limits.err.find(line), std::string::npos) << line << limits.err;
    }
    const ClientResult usb = runClient(
        board, {"arecord", "-D", "hw:1,0", "--dump-hw-params", "-f", "S8", "-d", "1", "/dev/null"});
    for (const char* line : {"\nFORMAT:  S16_LE S24_3LE\n", "\nCHANNELS: 2\n",
                             "\nRATE: [8000 48000]\n", "\nPERIOD_TIME: [1000 "}) {
        EXPECT_NE(usb.err.find(line), std::string::npos) << line << usb.err;
    }
    EXPECT_EQ(readFile(board.rootPath("/proc/asound/card1/stream0")),
              readFile(support::sourcePath("board/scenarios/sound/stream0/usb-audio-device.txt")));
    EXPECT_FALSE(std::filesystem::exists(board.rootPath("/proc/asound/card0/stream0")));
}

struct Exact {
    const char* microphone;
    const char* format;
    const char* rate;
    const char* channels;
    std::size_t frameBytes;
};

void PrintTo(const Exact& one, std::ostream* out) {
    *out << one.microphone << " " << one.format << " " << one.rate << " Hz, " << one.channels
         << " channels";
}

class EveryFormat : public testing::TestWithParam<Exact> {};

// What was recorded on one card and played on another is the same, bit by bit.
TEST_P(EveryFormat, PassesUnchanged) {
    const Exact& exact = GetParam();
    const SoundScenario scenario(exact.microphone, exact.microphone);
    Board board(scenario.path(), 2);
    const std::string recorded = scenario.file("a.wav"), played = scenario.file("b.wav");
    expectDone(runClient(board, {"arecord", "-q", "-D", "hw:1,0", "-f", exact.format, "-r",
                                 exact.rate, "-c", exact.channels, "-d", "1", recorded}));
    board.recordSound(played);
    expectDone(runClient(board, {"aplay", "-q", "-D", "hw:0,0", recorded}));
    EXPECT_GE(board.stopSound(), std::stoul(exact.rate));
    const std::string heard = samplesOf(recorded);
    EXPECT_EQ(heard.size(), std::stoul(exact.rate) * exact.frameBytes);
    // The player fills its last period with silence.
    EXPECT_TRUE(samplesOf(played).compare(0, heard.size(), heard) == 0);
    EXPECT_EQ(samplesOf(played).find_first_not_of('\0', heard.size()), std::string::npos);
    EXPECT_NE(heard.find_first_not_of('\0'), std::string::npos);
    EXPECT_EQ(board.sound("output").xruns, 0u);
    EXPECT_EQ(board.sound("output").missing, 0u);
}

INSTANTIATE_TEST_SUITE_P(Formats, EveryFormat,
                         testing::Values(Exact{"usb-audio-device", "S16_LE", "48000", "2", 4},
                                         Exact{"usb-audio-device", "S16_LE", "8000", "2", 4},
                                         Exact{"usb-audio-device", "S24_3LE", "44100", "2", 6},
                                         Exact{"arturia-minifuse-2", "S32_LE", "96000", "4", 16},
                                         Exact{"razer-razer-kraken-x-usb", "S16_LE", "44100", "2",
                                               4}),
                         [](const auto& info) {
                             return std::string(info.param.format) + "_" + info.param.rate + "_" +
                                    std::to_string(info.index);
                         });

TEST(Alsa, PlugConvertsOverTheMappedBuffer) {
    const SoundScenario scenario(usualMicrophone, usualOutput);
    Board board(scenario.path(), 2);
    const std::string recorded = scenario.file("a.wav");
    board.hear("tone:1000");
    expectDone(runClient(board, {"arecord", "-q", "-D", "plughw:1,0", "-f", "U8", "-r", "8000",
                                 "-c", "1", "-d", "1", recorded}));
    EXPECT_EQ(framesOf(recorded, 1), 8000u);
    const auto before = board.sound("output");
    const auto player = startClient(board, {"aplay", "-q", "-D", "plughw:0,0", recorded});
    const auto status = player->waitForEnd(Milliseconds(20000));
    EXPECT_EQ(status.value_or(-1), 0) << player->err().text();
    const auto after = board.sound("output");
    EXPECT_GE(after.frames - before.frames, 32000u);  // 1 s at the card's own rate
    EXPECT_EQ(after.xruns, before.xruns);
}

TEST(Alsa, SpeakerTest) {
    const SoundScenario scenario(usualMicrophone, usualOutput);
    Board board(scenario.path(), 8);
    expectDone(runClient(board,
                         {"speaker-test", "-D", "hw:0,0", "-c", "2", "-r", "48000", "-F", "S16_LE",
                          "-t", "sine", "-f", "1000", "-l", "1"},
                         Milliseconds(30000)));
    EXPECT_GT(board.sound("output").frames, 48000u);
}

TEST(Alsa, FfmpegRecordsAndPlays) {
    const SoundScenario scenario(usualMicrophone, usualOutput);
    Board board(scenario.path());
    const std::string recorded = scenario.file("a.wav"), played = scenario.file("b.wav");
    expectDone(runClient(board, {"ffmpeg", "-v", "error", "-f", "alsa", "-channels", "2",
                                 "-sample_rate", "48000", "-i", "hw:1,0", "-t", "0.5", recorded}));
    EXPECT_GE(framesOf(recorded, 4), 20000u);  // cut by its own time stamps
    EXPECT_TRUE(countsOn(samplesOf(recorded)));
    board.recordSound(played);
    expectDone(runClient(board, {"ffmpeg", "-v", "error", "-i", recorded, "-f", "alsa", "hw:0,0"}));
    EXPECT_EQ(board.stopSound(), framesOf(recorded, 4));
    EXPECT_TRUE(samplesOf(played) == samplesOf(recorded));
}

TEST(Alsa, GstreamerRecordsAndPlays) {
    const SoundScenario scenario(usualMicrophone, usualOutput);
    Board board(scenario.path());
    const std::string recorded = scenario.file("a.wav"), played = scenario.file("b.wav");
    expectDone(
        runClient(board, {"gst-launch-1.0", "-q", "alsasrc", "device=hw:1,0", "num-buffers=50", "!",
                          "audio/x-raw,format=S16LE,rate=48000,channels=2", "!", "wavenc", "!",
                          "filesink", "location=" + recorded}));
    EXPECT_TRUE(countsOn(samplesOf(recorded)));
    board.recordSound(played);
    expectDone(runClient(board, {"gst-launch-1.0", "-q", "filesrc", "location=" + recorded, "!",
                                 "wavparse", "!", "alsasink", "device=hw:0,0"}));
    EXPECT_GT(board.stopSound(), 0u);
    // The sink ends with silence up to a whole segment.
    const std::string heard = samplesOf(recorded);
    EXPECT_TRUE(samplesOf(played).compare(0, heard.size(), heard) == 0);
}

// Buffer and period times of 16 and of 1 x 1024 frames: a loose card's period is not 1024.
TEST(Alsa, LooseCardGrantsItsOwnPeriod) {
    const SoundScenario scenario("usb-audio-device", usualOutput);
    Board board(scenario.path());
    const ClientResult result =
        runClient(board, {SOUND_CLIENT, "times", "hw:1,0", "44100", "371504", "23219"});
    expectDone(result);
    EXPECT_EQ(result.out, "buffer 16383\nperiod 5461\n");
    const ClientResult usual =
        runClient(board, {SOUND_CLIENT, "times", "hw:1,0", "48000", "341328", "21333"});
    EXPECT_EQ(usual.out, "buffer 16384\nperiod 1024\n");
}

TEST(Alsa, EveryPeriodIsNotified) {
    const SoundScenario scenario(usualMicrophone, usualOutput);
    Board board(scenario.path());
    const ClientResult result = runClient(board, {SOUND_CLIENT, "notified", "hw:1,0", "40"});
    expectDone(result);
    EXPECT_NE(result.out.find("state 3\n"), std::string::npos) << result.out;  // still running
    // No call without a period; on a busy machine two periods may share one.
    const SoundFigures figures = board.sound("microphone");
    EXPECT_GE(figures.periods, 40u);
    EXPECT_LE(figures.periods, 60 * support::timeFactor());
    EXPECT_EQ(figures.xruns, 0u);
}

// Times of the periods in the table beside a recording.
std::vector<std::pair<double, double>> periodTimes(const std::string& path) {
    std::vector<std::pair<double, double>> times;
    std::ifstream table(path);
    for (std::string line; std::getline(table, line);) {
        double time_ns = 0, frame = 0, left = 0;
        char event[16] = {};
        if (std::sscanf(line.c_str(), "%lf,%lf,%lf,%15s", &time_ns, &frame, &left, event) == 4 &&
            std::strcmp(event, "period") == 0) {
            times.emplace_back(time_ns, frame);
        }
    }
    return times;
}

// Room for a client that a busy machine keeps waiting, at ten times the speed.
const std::string roomyCard = "usb-audio-device", roomyBuffer = "--buffer-time=4000000";

TEST(Alsa, ClockErrorChangesTheRate) {
    const SoundScenario scenario(usualMicrophone, roomyCard);
    Board board(scenario.path(), 10);
    for (const int ppm : {-1000, 0, 20000}) {
        board.setClockError("output", ppm);
        const std::string played = scenario.file("rate.wav");
        board.recordSound(played);
        expectDone(runClient(board, {"aplay", "-q", "-D", "hw:0,0", "-f", "S16_LE", "-r", "48000",
                                     "-c", "2", roomyBuffer, "-d", "6", "/dev/zero"}));
        EXPECT_GE(board.stopSound(), 6 * 48000u);
        const auto times = periodTimes(scenario.file("rate.csv"));
        ASSERT_GE(times.size(), 3u);
        const double rate = (times.back().second - times.front().second) /
                            (times.back().first - times.front().first) * 1e9;
        EXPECT_NEAR(rate / 48000, 1 + ppm * 1e-6, 2e-6) << ppm;
    }
}

// The same against the clock on the wall: ten times the speed, and a tenth more.
TEST(Alsa, SpeedAndClockErrorAgainstTheMachinesClock) {
    const SoundScenario scenario(roomyCard, usualOutput);
    Board board(scenario.path(), 10);
    board.setClockError("microphone", 100000);
    const auto process = startClient(board, {"arecord", "-q", "-D", "hw:1,0", "-f", "S16_LE", "-r",
                                             "48000", "-c", "2", roomyBuffer, "/dev/null"});
    ASSERT_TRUE(board.waitForSound(
        "microphone", [](const auto& now) { return now.frames > 0; }, Milliseconds(10000)));
    const std::uint64_t first = board.sound("microphone").frames;
    const auto begin = support::Clock::now();
    // A period is a second of board time: many of them make its granularity small.
    ASSERT_TRUE(board.waitForSound(
        "microphone", [&](const auto& now) { return now.frames >= first + 600000; },
        Milliseconds(10000)));
    const std::uint64_t last = board.sound("microphone").frames;
    const std::chrono::duration<double> took = support::Clock::now() - begin;
    EXPECT_EQ(board.sound("microphone").starts, 1u);
    EXPECT_NEAR(double(last - first) / (480000 * took.count()), 1.1, 0.05);
}

// A client that waits must not spin, in any way of waiting.
TEST(Alsa, WaitingCostsLittle) {
    const SoundScenario scenario(usualMicrophone, usualOutput);
    Board board(scenario.path());
    const auto player = startClient(board, {"aplay", "-q", "-D", "plughw:0,0", "-f", "S16_LE", "-r",
                                            "44100", "-c", "1", "/dev/zero"});
    ASSERT_TRUE(board.waitForSound(
        "output", [](const auto& now) { return now.frames > 1000; }, Milliseconds(10000)))
        << player->err().text();
    const double cpu = player->figures().cpu_s;
    const std::uint64_t frames = board.sound("output").frames;
    ASSERT_TRUE(board.waitForSound(
        "output", [&](const auto& now) { return now.frames > frames + 32000; },
        Milliseconds(10000)));
    EXPECT_LT(player->figures().cpu_s - cpu, 0.1);
}

TEST(Alsa, FilesAreHeard) {
    const SoundScenario scenario(usualMicrophone, usualOutput);
    Board board(scenario.path(), 2);
    const std::string first = scenario.file("a.wav"), second = scenario.file("b.wav");
    const std::vector<std::string> record = {"arecord", "-q",    "-D", "hw:1,0", "-f", "S16_LE",
                                             "-r",      "48000", "-c", "2",      "-d", "1"};
    auto command = record;
    command.push_back(first);
    expectDone(runClient(board, command));
    board.hear(first);
    command.back() = second;
    expectDone(runClient(board, command));
    EXPECT_TRUE(samplesOf(first) == samplesOf(second));
    const auto refused = board.tryOrder(R"({"order": "hear", "name": "/etc/passwd"})");
    EXPECT_STREQ(refused["error"].GetString(), "/etc/passwd: cannot be opened as a media file");
}

TEST(Alsa, SpeechIsHeard) {
    const SoundScenario scenario(usualMicrophone, usualOutput);
    Board board(scenario.path(), 2);
    const std::string speech = scenario.file("speech.wav"), heard = scenario.file("heard.wav");
    expectDone(runClient(board, {"espeak-ng", "-w", speech, "one two three"}));
    board.hear(speech);
    expectDone(runClient(board, {"arecord", "-q", "-D", "hw:1,0", "-f", "S16_LE", "-r", "48000",
                                 "-c", "2", "-d", "1", heard}));
    const std::string samples = samplesOf(heard);
    int loudest = 0;
    for (std::size_t at = 0; at + 2 <= samples.size(); at += 2) {
        std::int16_t sample = 0;
        std::memcpy(&sample, samples.data() + at, 2);
        loudest = std::max(loudest, std::abs(int(sample)));
    }
    EXPECT_GT(loudest, 3000);
}

}  // namespace
