// Scaled real pictures against FFmpeg's scaler.
#include <gtest/gtest.h>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libswscale/swscale.h>
}

#include <cmath>
#include <filesystem>
#include <memory>

#include "tests/unit/engine/pictures.h"

using namespace pictures;

namespace {

constexpr const char* folder = "/usr/share/doc/opencv-doc/examples/data/";

struct FreeFrame {
    void operator()(AVFrame* frame) const { av_frame_free(&frame); }
};
using Frame = std::unique_ptr<AVFrame, FreeFrame>;

Frame makeFrame(AVPixelFormat format, int width, int height) {
    Frame frame(av_frame_alloc());
    frame->format = format;
    frame->width = width;
    frame->height = height;
    if (av_frame_get_buffer(frame.get(), 0) < 0) {
        throw std::runtime_error("no memory for a frame");
    }
    return frame;
}

Frame scaled(const AVFrame& from, AVPixelFormat format, int width, int height, int flags) {
    Frame to = makeFrame(format, width, height);
    SwsContext* context = sws_getContext(
        from.width, from.height, static_cast<AVPixelFormat>(from.format), width, height, format,
        flags | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INT, nullptr, nullptr, nullptr);
    sws_scale(context, from.data, from.linesize, 0, from.height, to->data, to->linesize);
    sws_freeContext(context);
    return to;
}

Frame firstPicture(const std::string& path) {
    AVFormatContext* file = nullptr;
    if (avformat_open_input(&file, path.c_str(), nullptr, nullptr) < 0) {
        return nullptr;
    }
    avformat_find_stream_info(file, nullptr);
    const AVCodecParameters* parameters = file->streams[0]->codecpar;
    AVCodecContext* decoder = avcodec_alloc_context3(avcodec_find_decoder(parameters->codec_id));
    avcodec_parameters_to_context(decoder, parameters);
    avcodec_open2(decoder, nullptr, nullptr);
    Frame frame(av_frame_alloc());
    AVPacket* packet = av_packet_alloc();
    bool found = false;
    while (!found && av_read_frame(file, packet) == 0) {
        avcodec_send_packet(decoder, packet);
        av_packet_unref(packet);
        found = avcodec_receive_frame(decoder, frame.get()) == 0;
    }
    av_packet_free(&packet);
    avcodec_free_context(&decoder);
    avformat_close_input(&file);
    if (!found) {
        return nullptr;
    }
    return scaled(*frame, AV_PIX_FMT_RGB24, frame->width & ~15, frame->height & ~15, SWS_BICUBIC);
}

AVPixelFormat frameFormat(int code) {
    if (!isYuv(code)) {
        return AV_PIX_FMT_RGB24;
    }
    return halvesChromaLines(code) ? AV_PIX_FMT_YUV420P : AV_PIX_FMT_YUV422P;
}

Sample sampleOf(const AVFrame& frame, int x, int y) {
    if (frame.format == AV_PIX_FMT_RGB24) {
        const std::uint8_t* pixel = frame.data[0] + y * frame.linesize[0] + 3 * x;
        return {pixel[0], pixel[1], pixel[2]};
    }
    const int line = frame.format == AV_PIX_FMT_YUV420P ? y / 2 : y;
    return {frame.data[0][y * frame.linesize[0] + x],
            frame.data[1][line * frame.linesize[1] + x / 2],
            frame.data[2][line * frame.linesize[2] + x / 2]};
}

// Worst of the three channels, in dB of 8 bits. RGB_565 is judged against the reference's eight
// bits at the middle of its step: FFmpeg's own RGB_565 is dithered.
double worstPsnr(const Picture& picture, const AVFrame& reference) {
    const bool is565 = picture.code() == RK_FORMAT_RGB_565;
    double sums[3] = {};
    for (int y = 0; y < picture.height(); ++y) {
        for (int x = 0; x < picture.width(); ++x) {
            Sample found = picture.at(x, y);
            if (is565) {
                found = {found.a * 8 + 4, found.b * 4 + 2, found.c * 8 + 4};
            }
            const Sample wanted = sampleOf(reference, x, y);
            sums[0] += std::pow(found.a - wanted.a, 2);
            sums[1] += std::pow(found.b - wanted.b, 2);
            sums[2] += std::pow(found.c - wanted.c, 2);
        }
    }
    const double worst = std::max({sums[0], sums[1], sums[2], 1.0});
    return 10 * std::log10(255.0 * 255 * picture.width() * picture.height() / worst);
}

class RgaQuality : public testing::TestWithParam<const char*> {};

}  // namespace

TEST_P(RgaQuality, ScaledPicturesAreCloseToTheReference) {
    const std::string path = std::string(folder) + GetParam();
    if (!std::filesystem::exists(path)) {
        GTEST_SKIP() << path << " is missing: install opencv-doc";
    }
    const Frame photo = firstPicture(path);
    ASSERT_NE(photo, nullptr);
    const int sizes[][2] = {{1280, 720}, {640, 360}, {320, 240}, {720, 576}};
    RockchipRga engine;
    double lowest = 99;
    for (const Code& from : sources) {
        const Frame in =
            scaled(*photo, frameFormat(from.code), photo->width, photo->height, SWS_BICUBIC);
        Picture source(from.code, photo->width, photo->height);
        for (int y = 0; y < photo->height; ++y) {
            for (int x = 0; x < photo->width; ++x) {
                source.put(x, y, sampleOf(*in, x, y));
            }
        }
        for (const Code& to : destinations) {
            for (const auto& size : sizes) {
                SCOPED_TRACE(std::string(from.name) + " to " + to.name + " " +
                             std::to_string(size[0]));
                const Frame reference =
                    scaled(*in, frameFormat(to.code), size[0], size[1], SWS_BILINEAR);
                Picture destination(to.code, size[0], size[1]);
                rga_info_t src = source.info();
                rga_info_t dst = destination.info();
                ASSERT_EQ(engine.RkRgaBlit(&src, &dst, nullptr), 0);
                const double psnr = worstPsnr(destination, *reference);
                EXPECT_GE(psnr, 30.0);
                lowest = std::min(lowest, psnr);
            }
        }
    }
    std::printf("lowest PSNR %.1f dB\n", lowest);
}

INSTANTIATE_TEST_SUITE_P(Pictures, RgaQuality,
                         testing::Values("fruits.jpg", "home.jpg", "vtest.avi"),
                         [](const auto& info) {
                             const std::string name = info.param;
                             return name.substr(0, name.find('.'));
                         });
