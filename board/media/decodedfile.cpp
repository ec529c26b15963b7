#include "board/media/decodedfile.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/imgutils.h>
#include <libswscale/swscale.h>
}

#include <linux/videodev2.h>

#include <stdexcept>

namespace board {

namespace {

AVPixelFormat pixelFormat(std::uint32_t fourcc) {
    switch (fourcc) {
        case V4L2_PIX_FMT_YUYV:
            return AV_PIX_FMT_YUYV422;
        case V4L2_PIX_FMT_NV12:
            return AV_PIX_FMT_NV12;
        case V4L2_PIX_FMT_YUV420:
            return AV_PIX_FMT_YUV420P;
        case V4L2_PIX_FMT_GREY:
            return AV_PIX_FMT_GRAY8;
        default:
            return AV_PIX_FMT_NONE;
    }
}

// The old names of the full-range formats say the range in the name; libswscale warns about them.
AVPixelFormat withoutRange(AVPixelFormat format, bool* fullRange) {
    switch (format) {
        case AV_PIX_FMT_YUVJ420P:
            *fullRange = true;
            return AV_PIX_FMT_YUV420P;
        case AV_PIX_FMT_YUVJ422P:
            *fullRange = true;
            return AV_PIX_FMT_YUV422P;
        case AV_PIX_FMT_YUVJ444P:
            *fullRange = true;
            return AV_PIX_FMT_YUV444P;
        default:
            return format;
    }
}

}  // namespace

struct DecodedFile::Library {
    AVFormatContext* container = nullptr;
    AVCodecContext* decoder = nullptr;
    AVPacket* packet = av_packet_alloc();
    AVFrame* frame = av_frame_alloc();
    SwsContext* scaler = nullptr;
    int stream = -1;
    bool draining = false;

    ~Library() {
        sws_freeContext(scaler);
        av_frame_free(&frame);
        av_packet_free(&packet);
        avcodec_free_context(&decoder);
        avformat_close_input(&container);
    }
};

DecodedFile::DecodedFile(const std::string& path)
    : path_(path), library_(std::make_unique<Library>()) {
    Library& lib = *library_;
    if (lib.packet == nullptr || lib.frame == nullptr)
        throw std::bad_alloc();
    if (avformat_open_input(&lib.container, path.c_str(), nullptr, nullptr) < 0)
        throw std::runtime_error(path + ": cannot be opened as a media file");
    const AVCodec* codec = nullptr;
    if (avformat_find_stream_info(lib.container, nullptr) < 0 ||
        (lib.stream = av_find_best_stream(lib.container, AVMEDIA_TYPE_VIDEO, -1, -1, &codec, 0)) <
            0)
        throw std::runtime_error(path + ": has no video stream that can be decoded");
    lib.decoder = avcodec_alloc_context3(codec);
    if (lib.decoder == nullptr)
        throw std::bad_alloc();
    // One thread and exact arithmetic: the same file gives the same bytes everywhere.
    lib.decoder->thread_count = 1;
    lib.decoder->flags |= AV_CODEC_FLAG_BITEXACT;
    const AVStream& stream = *lib.container->streams[lib.stream];
    if (avcodec_parameters_to_context(lib.decoder, stream.codecpar) < 0 ||
        avcodec_open2(lib.decoder, codec, nullptr) < 0)
        throw std::runtime_error(path + ": the decoder '" + codec->name + "' cannot be opened");
}

DecodedFile::~DecodedFile() = default;

// Puts the next decoded picture into library_->frame.
bool DecodedFile::decode() {
    Library& lib = *library_;
    for (;;) {
        const int got = avcodec_receive_frame(lib.decoder, lib.frame);
        if (got == 0)
            return true;
        if (got != AVERROR(EAGAIN) || lib.draining)
            return false;
        if (av_read_frame(lib.container, lib.packet) < 0) {
            lib.draining = true;
            avcodec_send_packet(lib.decoder, nullptr);
            continue;
        }
        // A damaged packet costs its picture only: the decoder says so and the next one is tried.
        if (lib.packet->stream_index == lib.stream)
            avcodec_send_packet(lib.decoder, lib.packet);
        av_packet_unref(lib.packet);
    }
}

bool DecodedFile::next(std::uint32_t fourcc, std::uint32_t width, std::uint32_t height,
                       std::uint8_t* destination) {
    if (!decode())
        return false;
    Library& lib = *library_;
    const AVFrame& frame = *lib.frame;
    bool fullRange = frame.color_range == AVCOL_RANGE_JPEG;
    const AVPixelFormat from = withoutRange(AVPixelFormat(frame.format), &fullRange);
    const AVPixelFormat to = pixelFormat(fourcc);
    lib.scaler = sws_getCachedContext(
        lib.scaler, frame.width, frame.height, from, int(width), int(height), to,
        SWS_BICUBIC | SWS_ACCURATE_RND | SWS_BITEXACT, nullptr, nullptr, nullptr);
    if (lib.scaler == nullptr)
        throw std::runtime_error(path_ + ": its pictures cannot be scaled to " +
                                 std::to_string(width) + "x" + std::to_string(height));
    const int* source =
        sws_getCoefficients(frame.colorspace == AVCOL_SPC_BT709 ? SWS_CS_ITU709 : SWS_CS_ITU601);
    sws_setColorspaceDetails(lib.scaler, source, fullRange ? 1 : 0,
                             sws_getCoefficients(SWS_CS_ITU601), 0, 0, 1 << 16, 1 << 16);
    std::uint8_t* planes[4] = {};
    int strides[4] = {};
    if (av_image_fill_arrays(planes, strides, destination, to, int(width), int(height), 1) < 0)
        throw std::runtime_error(path_ + ": picture size " + std::to_string(width) + "x" +
                                 std::to_string(height) + " is not possible");
    sws_scale(lib.scaler, frame.data, frame.linesize, 0, frame.height, planes, strides);
    return true;
}

}  // namespace board
