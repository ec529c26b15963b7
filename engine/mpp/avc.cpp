#include "engine/mpp/avc.h"

#include <libyuv.h>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/frame.h>
}

#include <algorithm>
#include <cstring>
#include <thread>

namespace mpp {
namespace {

// The largest that the board's decoders take.
constexpr RK_U32 maximumSide = 8192;
constexpr std::int64_t maximumArea = std::int64_t{8192} * 4352;
constexpr unsigned maximumThreads = 4;
constexpr int silence = 200;  // above every level: what is wrong stands in the frame
constexpr std::uint8_t neutralChroma = 128;

}  // namespace

void AvcDecoder::Free::operator()(AVCodecContext* context) const {
    avcodec_free_context(&context);
}

void AvcDecoder::Free::operator()(AVCodecParserContext* parser) const {
    av_parser_close(parser);
}

void AvcDecoder::Free::operator()(AVFrame* frame) const {
    av_frame_free(&frame);
}

void AvcDecoder::Free::operator()(AVPacket* packet) const {
    av_packet_free(&packet);
}

AvcDecoder::AvcDecoder() = default;
AvcDecoder::~AvcDecoder() = default;

bool AvcDecoder::open() {
    const AVCodec* codec = avcodec_find_decoder(AV_CODEC_ID_H264);
    if (codec == nullptr) {
        return false;
    }
    codec_.reset(avcodec_alloc_context3(codec));
    parsed_.reset(avcodec_alloc_context3(codec));
    parser_.reset(av_parser_init(AV_CODEC_ID_H264));
    frame_.reset(av_frame_alloc());
    packet_.reset(av_packet_alloc());
    if (!codec_ || !parsed_ || !parser_ || !frame_ || !packet_) {
        return false;
    }
    parser_->flags |= PARSER_FLAG_COMPLETE_FRAMES;
    parsed_->log_level_offset = silence;
    codec_->log_level_offset = silence;
    // Slices side by side, not frames: each picture comes out with the unit that completes it.
    codec_->thread_type = FF_THREAD_SLICE;
    codec_->thread_count =
        static_cast<int>(std::clamp(std::thread::hardware_concurrency(), 1U, maximumThreads));
    codec_->flags |= AV_CODEC_FLAG_OUTPUT_CORRUPT;  // given out marked, not swallowed
    codec_->max_pixels = maximumArea;
    return avcodec_open2(codec_.get(), codec, nullptr) == 0;
}

PictureSize AvcDecoder::load(const AccessUnit& unit) {
    av_packet_unref(packet_.get());
    if (av_new_packet(packet_.get(), static_cast<int>(unit.bytes.size())) != 0) {
        return {};
    }
    std::memcpy(packet_->data, unit.bytes.data(), unit.bytes.size());
    packet_->pts = unit.pts;
    std::uint8_t* data = nullptr;
    int size = 0;
    av_parser_parse2(parser_.get(), parsed_.get(), &data, &size, packet_->data, packet_->size, 0, 0,
                     -1);
    const PictureSize told{static_cast<RK_U32>(std::max(parser_->width, 0)),
                           static_cast<RK_U32>(std::max(parser_->height, 0))};
    const bool fits = told.width <= maximumSide && told.height <= maximumSide &&
                      static_cast<std::int64_t>(told.width) * told.height <= maximumArea;
    return fits ? told : PictureSize{};
}

bool AvcDecoder::send(std::int64_t number) {
    codec_->reordered_opaque = number;
    const int result = avcodec_send_packet(codec_.get(), packet_.get());
    av_packet_unref(packet_.get());
    return result == 0;
}

void AvcDecoder::drain() {
    avcodec_send_packet(codec_.get(), nullptr);
}

const AVFrame* AvcDecoder::receive() {
    return avcodec_receive_frame(codec_.get(), frame_.get()) == 0 ? frame_.get() : nullptr;
}

void AvcDecoder::flush() {
    avcodec_flush_buffers(codec_.get());
}

FrameInfo infoOf(const PictureSize& size) {
    FrameInfo info;
    info.width = size.width;
    info.height = size.height;
    info.horStride = align16(size.width);
    info.verStride = align16(size.height);
    // Room for 4:2:2, whatever it will be.
    info.bufSize = static_cast<std::size_t>(info.horStride) * info.verStride * 2;
    return info;
}

PictureSize sizeOf(const AVFrame& picture) {
    return {static_cast<RK_U32>(picture.width), static_cast<RK_U32>(picture.height)};
}

std::int64_t numberOf(const AVFrame& picture) {
    return picture.reordered_opaque;
}

bool formatOf(const AVFrame& picture, MppFrameFormat& format) {
    switch (picture.format) {
        case AV_PIX_FMT_YUV420P:
        case AV_PIX_FMT_YUVJ420P:
        case AV_PIX_FMT_GRAY8:  // with neutral chroma, so that every program can show it
            format = MPP_FMT_YUV420SP;
            return true;
        case AV_PIX_FMT_YUV422P:
        case AV_PIX_FMT_YUVJ422P:
            format = MPP_FMT_YUV422SP;
            return true;
        default:
            return false;
    }
}

void copyPicture(const AVFrame& picture, const FrameInfo& info, unsigned char* to) {
    const auto stride = static_cast<int>(info.horStride);
    libyuv::CopyPlane(picture.data[0], picture.linesize[0], to, stride, picture.width,
                      picture.height);
    unsigned char* pairs = to + static_cast<std::size_t>(info.horStride) * info.verStride;
    const int across = (picture.width + 1) / 2;
    const int down = info.format == MPP_FMT_YUV422SP ? picture.height : (picture.height + 1) / 2;
    if (picture.format == AV_PIX_FMT_GRAY8) {
        libyuv::SetPlane(pairs, stride, 2 * across, down, neutralChroma);
        return;
    }
    libyuv::MergeUVPlane(picture.data[1], picture.linesize[1], picture.data[2], picture.linesize[2],
                         pairs, stride, across, down);
}

}  // namespace mpp
