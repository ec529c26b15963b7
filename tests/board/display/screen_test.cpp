#include "tests/board/display/displayrig.h"

#include <gtest/gtest.h>
#include <png.h>
#include <unistd.h>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace board::test {
namespace {

namespace fs = std::filesystem;

struct Picture {
    std::uint32_t width = 0, height = 0;
    std::vector<std::uint8_t> rgb;

    std::vector<int> at(std::uint32_t x, std::uint32_t y) const {
        const std::uint8_t* pixel = &rgb[(std::size_t(y) * width + x) * 3];
        return {pixel[0], pixel[1], pixel[2]};
    }
};

Picture readPng(const std::string& path) {
    Picture picture;
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    if (png_image_begin_read_from_file(&image, path.c_str()) == 0)
        return picture;
    image.format = PNG_FORMAT_RGB;
    picture.rgb.resize(PNG_IMAGE_SIZE(image));
    if (png_image_finish_read(&image, nullptr, picture.rgb.data(), 0, nullptr) == 0)
        return picture;
    picture.width = image.width;
    picture.height = image.height;
    return picture;
}

void expectNear(const std::vector<int>& actual, const std::vector<int>& expected) {
    for (unsigned i = 0; i < 3; ++i)
        EXPECT_NEAR(actual[i], expected[i], 3) << "channel " << i;
}

struct Video {
    int width = 0, height = 0;
    std::string codec;
    std::vector<std::int64_t> times_ms;
};

Video readVideo(const std::string& path) {
    Video video;
    AVFormatContext* file = nullptr;
    if (avformat_open_input(&file, path.c_str(), nullptr, nullptr) != 0)
        return video;
    avformat_find_stream_info(file, nullptr);
    const AVStream* stream = file->streams[0];
    video.width = stream->codecpar->width;
    video.height = stream->codecpar->height;
    video.codec = avcodec_get_name(stream->codecpar->codec_id);
    AVPacket* packet = av_packet_alloc();
    while (av_read_frame(file, packet) == 0) {
        video.times_ms.push_back(av_rescale_q(packet->pts, stream->time_base, {1, 1000}));
        av_packet_unref(packet);
    }
    av_packet_free(&packet);
    avformat_close_input(&file);
    return video;
}

class Screen : public ::testing::Test {
  protected:
    Rig rig{displayWith({smallMode(656, 480, 100)})};
    Client client{rig.board};
    // Of this process alone: the same tests may run in another build at the same time.
    std::string folder = ::testing::TempDir() + "screen-test-" + std::to_string(getpid());

    void SetUp() override {
        fs::remove_all(folder);
        fs::create_directories(folder);
    }
    void TearDown() override { fs::remove_all(folder); }

    std::string takePicture(const std::string& path) {
        return rig.await([&](auto done) { rig.display->picture(path, done); });
    }
    void show(Canvas& canvas) {
        ASSERT_EQ(client.setCrtc(canvas.framebufferId(), client.modes()[0]), 0);
    }
    void flipTo(const Canvas& canvas) {
        ASSERT_EQ(client.flip(canvas.framebufferId()), 0);
        ASSERT_TRUE(client.event());
    }
};

TEST_F(Screen, pictureOfNv12HasItsColours) {
    Canvas canvas(client, 656, 480);  // pitch 704: padding must not show
    ASSERT_EQ(canvas.pitch(), 704u);
    canvas.fill(81, 90, 240);                // red in BT.601 limited range
    std::memset(canvas.pixels(), 235, 656);  // a white line on top, red chroma below it
    show(canvas);
    ASSERT_EQ(takePicture(folder + "/nv12.png"), "");
    const Picture picture = readPng(folder + "/nv12.png");
    ASSERT_EQ(picture.width, 656u);
    ASSERT_EQ(picture.height, 480u);
    expectNear(picture.at(0, 100), {255, 0, 0});
    expectNear(picture.at(655, 479), {255, 0, 0});
    EXPECT_GT(picture.at(655, 0)[1], 100);
}

TEST_F(Screen, pictureOfXrgbIsExact) {
    Canvas canvas(client, 656, 480, DRM_FORMAT_XRGB8888);
    const std::uint32_t colour = 0x00123456;
    for (std::size_t i = 0; i < std::size_t(canvas.pitch()) * 480; i += 4)
        std::memcpy(canvas.pixels() + i, &colour, 4);
    show(canvas);
    ASSERT_EQ(takePicture(folder + "/xr24.png"), "");
    const Picture picture = readPng(folder + "/xr24.png");
    ASSERT_EQ(picture.width, 656u);
    EXPECT_EQ(picture.at(655, 479), (std::vector<int>{0x12, 0x34, 0x56}));
}

TEST_F(Screen, consoleAndDarkScreenAreBlack) {
    ASSERT_EQ(takePicture(folder + "/console.png"), "");
    EXPECT_EQ(readPng(folder + "/console.png").at(10, 10), (std::vector<int>{0, 0, 0}));
    Canvas canvas(client, 656, 480);
    canvas.fill(235, 128, 128);
    show(canvas);
    drm_mode_connector_set_property power{};
    power.connector_id = 33;
    power.prop_id = 2;
    power.value = DRM_MODE_DPMS_OFF;
    ASSERT_EQ(client.call(DRM_IOCTL_MODE_SETPROPERTY, power), 0);
    ASSERT_EQ(takePicture(folder + "/asleep.png"), "");
    EXPECT_EQ(readPng(folder + "/asleep.png").at(300, 300), (std::vector<int>{0, 0, 0}));
    power.value = DRM_MODE_DPMS_ON;
    ASSERT_EQ(client.call(DRM_IOCTL_MODE_SETPROPERTY, power), 0);
    ASSERT_EQ(takePicture(folder + "/awake.png"), "");
    EXPECT_GT(readPng(folder + "/awake.png").at(300, 300)[0], 250);
    ASSERT_EQ(client.crtcOff(), 0);
    ASSERT_EQ(takePicture(folder + "/off.png"), "");
    const Picture off = readPng(folder + "/off.png");
    ASSERT_EQ(off.width, 656u);
    EXPECT_EQ(off.at(300, 300), (std::vector<int>{0, 0, 0}));
}

TEST_F(Screen, pictureThatCannotBeWrittenSaysWhy) {
    const std::string line = takePicture(folder + "/missing/x.png");
    EXPECT_NE(line.find(folder + "/missing/x.png"), std::string::npos) << line;
    EXPECT_NE(line.find("No such file"), std::string::npos) << line;
}

TEST_F(Screen, figuresReadTheMarksOfBothFormats) {
    for (const std::uint32_t format : {DRM_FORMAT_NV12, DRM_FORMAT_XRGB8888}) {
        rig.board.run([&] { rig.display->resetFigures(); });
        Canvas a(client, 656, 480, format), b(client, 656, 480, format);
        show(a);
        const auto now = std::uint32_t(rig.board.clock().now_ns() / 100000);
        a.stamp(7, now);
        b.stamp(9, now - 500);
        flipTo(a);
        flipTo(b);
        flipTo(b);
        const DisplayFigures figures = rig.figures();
        EXPECT_EQ(figures.flips, 3u);
        EXPECT_EQ(figures.shown, 3u);
        EXPECT_EQ(figures.repeated, 1u);
        EXPECT_EQ(figures.skipped, 1u);
        EXPECT_EQ(figures.lastFrame, 9u);
        EXPECT_GE(figures.latencyP99_ms, 50.0);
        EXPECT_LT(figures.latencyMedian_ms, figures.latencyP99_ms);
    }
}

TEST_F(Screen, aPictureDrawnOverBeforeItIsShownIsCounted) {
    Canvas a(client, 656, 480), b(client, 656, 480);
    show(a);
    a.stamp(7, 0);
    flipTo(a);
    for (const bool blank : {false, true}) {
        rig.board.run([&] { rig.display->holdFlips(true); });
        b.stamp(8, 0);
        ASSERT_EQ(client.flip(b.framebufferId()), 0);
        b.stamp(44, 0);
        if (blank)
            b.fill(16, 128, 128);
        rig.board.run([&] { rig.display->holdFlips(false); });
        ASSERT_TRUE(client.event());
        a.stamp(9, 0);
        flipTo(a);
    }
    EXPECT_EQ(rig.figures().overwritten, 2u);
    EXPECT_EQ(rig.figures().outOfOrder, 1u);
}

TEST_F(Screen, unmarkedPicturesCountAsFlipsOnly) {
    Canvas canvas(client, 656, 480);
    canvas.fill(100, 128, 128);
    show(canvas);
    flipTo(canvas);
    EXPECT_EQ(rig.figures().flips, 1u);
    EXPECT_EQ(rig.figures().shown, 0u);
}

TEST_F(Screen, dumpHoldsNewPicturesExactly) {
    Canvas a(client, 656, 480), b(client, 656, 480);
    a.fill(60, 100, 110);
    b.fill(90, 120, 130);
    a.stamp(1, 0);
    b.stamp(2, 0);
    show(a);
    const std::string target = folder + "/dump";
    std::thread flipper;
    const std::string line = rig.await([&](auto done) {
        rig.display->dumpFrames(target, 2, done);
        flipper = std::thread([&] {
            flipTo(a);
            flipTo(a);  // shown before: left out
            flipTo(b);
        });
    });
    flipper.join();
    ASSERT_EQ(line, "");
    std::ostringstream index;
    index << std::ifstream(target + "/index.json").rdbuf();
    EXPECT_NE(index.str().find("\"file\": \"000.nv12\", \"frame\": 1, \"width\": 656, \"height\": "
                               "480, \"format\": \"nv12\", \"time_100us\": "),
              std::string::npos)
        << index.str();
    EXPECT_NE(index.str().find("\"file\": \"001.nv12\", \"frame\": 2"), std::string::npos);
    for (const Canvas* canvas : {&a, &b}) {
        std::ostringstream content;
        content << std::ifstream(target + (canvas == &a ? "/000.nv12" : "/001.nv12"),
                                 std::ios::binary)
                       .rdbuf();
        const std::string bytes = content.str();
        ASSERT_EQ(bytes.size(), 656u * 480 * 3 / 2);
        for (unsigned row = 0; row < 720; ++row) {
            ASSERT_EQ(std::memcmp(&bytes[row * 656], canvas->pixels() + row * canvas->pitch(), 656),
                      0)
                << "row " << row;
        }
    }
    EXPECT_FALSE(fs::exists(target + "/002.nv12"));
}

TEST_F(Screen, dumpRefusesAndReplaces) {
    const auto dump = [&](unsigned count) {
        return rig.await([&](auto done) { rig.display->dumpFrames(folder, count, done); });
    };
    EXPECT_NE(dump(0).find("1 to 64"), std::string::npos);
    EXPECT_NE(dump(65).find("1 to 64"), std::string::npos);
    const std::string line = rig.await([&](auto done) {
        rig.display->dumpFrames(folder, 1, done);
        rig.display->dumpFrames(folder, 1, [](const std::string&) {});
    });
    EXPECT_EQ(line, "another dump took this one's place");
}

TEST_F(Screen, recordingIsAVideoOfAtMostThirtyPicturesASecond) {
    Canvas a(client, 656, 480), b(client, 656, 480);
    a.fill(40, 128, 128);
    b.fill(200, 128, 128);
    show(a);
    const std::string path = folder + "/screen.mp4";
    std::string problem;
    rig.board.run([&] { problem = rig.display->startRecording(path); });
    ASSERT_EQ(problem, "");
    rig.board.run([&] { problem = rig.display->startRecording(path); });
    EXPECT_NE(problem, "");
    for (unsigned i = 0; i < 100; ++i)
        flipTo(i % 2 == 0 ? b : a);
    ASSERT_EQ(rig.await([&](auto done) { rig.display->stopRecording(done); }), "");
    EXPECT_NE(rig.await([&](auto done) { rig.display->stopRecording(done); }), "");
    const Video video = readVideo(path);
    EXPECT_EQ(video.width, 656);
    EXPECT_EQ(video.height, 480);
    EXPECT_TRUE(video.codec == "h264" || video.codec == "mpeg4") << video.codec;
    ASSERT_GE(video.times_ms.size(), 3u);
    const double seconds = double(video.times_ms.back() - video.times_ms.front()) / 1000;
    EXPECT_GT(seconds, 0.5);  // a hundred flips at a hundred a second
    EXPECT_LE(double(video.times_ms.size()), seconds * 30 + 3);
}

TEST_F(Screen, recordingIntoNowhereFailsAtOnce) {
    std::string problem;
    rig.board.run([&] { problem = rig.display->startRecording(folder + "/missing/x.mp4"); });
    EXPECT_NE(problem.find("missing/x.mp4"), std::string::npos) << problem;
}

TEST_F(Screen, displayMayGoWhileRecording) {
    const std::string path = folder + "/cut.mp4";
    {
        Rig other(displayWith({smallMode(320, 240, 60)}));
        std::string problem;
        other.board.run([&] { problem = other.display->startRecording(path); });
        ASSERT_EQ(problem, "");
    }
    EXPECT_EQ(readVideo(path).times_ms.size(), 1u);  // what was on screen at the start
}

}  // namespace
}  // namespace board::test
