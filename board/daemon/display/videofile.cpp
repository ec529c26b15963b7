#include "board/daemon/display/videofile.h"

#include <drm_fourcc.h>
#include <libyuv.h>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/log.h>
#include <libavutil/opt.h>
}

#include <algorithm>
#include <cstdio>

namespace board {

namespace {

constexpr int ticksPerSecond = 1000;  // MPEG-4 allows no finer time base than 1/65535
constexpr int keyFrameDistance = 60;
constexpr std::int64_t mpeg4BitsPerSecond = 12000000;

int half(int size) {
    return (size + 1) / 2;
}

// Three planes of an I420 picture.
struct Planes {
    std::uint8_t* data[3];
    int pitches[3];
};

void toI420(const ScreenView& view, const Planes& to, int width, int height) {
    if (view.format == DRM_FORMAT_NV12)
        libyuv::NV12ToI420(view.planes[0], int(view.pitches[0]), view.planes[1],
                           int(view.pitches[1]), to.data[0], to.pitches[0], to.data[1],
                           to.pitches[1], to.data[2], to.pitches[2], width, height);
    else
        libyuv::ARGBToI420(view.planes[0], int(view.pitches[0]), to.data[0], to.pitches[0],
                           to.data[1], to.pitches[1], to.data[2], to.pitches[2], width, height);
}

}  // namespace

VideoFile::VideoFile(const std::string& path, std::uint32_t width, std::uint32_t height)
    : path_(path), width_(int(width & ~1u)), height_(int(height & ~1u)) {}

VideoFile::~VideoFile() {
    av_packet_free(&packet_);
    av_frame_free(&frame_);
    avcodec_free_context(&encoder_);
    if (container_ != nullptr) {
        avio_closep(&container_->pb);
        avformat_free_context(container_);
    }
}

std::string VideoFile::problem(const char* what, int error) const {
    char text[AV_ERROR_MAX_STRING_SIZE] = "";
    av_strerror(error, text, sizeof text);
    return "cannot record to " + path_ + ": " + what + ": " + text;
}

std::string VideoFile::create() {
    av_log_set_level(AV_LOG_ERROR);
    codec_ = avcodec_find_encoder_by_name("libx264");
    if (codec_ == nullptr)
        codec_ = avcodec_find_encoder(AV_CODEC_ID_MPEG4);
    if (codec_ == nullptr)
        return "cannot record to " + path_ + ": FFmpeg has neither an H.264 nor an MPEG-4 encoder";
    int result = avformat_alloc_output_context2(&container_, nullptr, "mp4", path_.c_str());
    if (result < 0)
        return problem("no mp4 writer", result);
    result = avio_open(&container_->pb, path_.c_str(), AVIO_FLAG_WRITE);
    return result < 0 ? problem("cannot open the file", result) : std::string();
}

std::string VideoFile::openEncoder() {
    encoder_ = avcodec_alloc_context3(codec_);
    packet_ = av_packet_alloc();
    frame_ = av_frame_alloc();
    AVStream* stream = avformat_new_stream(container_, nullptr);
    if (encoder_ == nullptr || packet_ == nullptr || frame_ == nullptr || stream == nullptr)
        return problem("encoder", AVERROR(ENOMEM));
    encoder_->width = frame_->width = width_;
    encoder_->height = frame_->height = height_;
    encoder_->pix_fmt = AV_PIX_FMT_YUV420P;
    frame_->format = AV_PIX_FMT_YUV420P;
    encoder_->color_range = frame_->color_range = AVCOL_RANGE_MPEG;
    encoder_->colorspace = frame_->colorspace = AVCOL_SPC_SMPTE170M;
    encoder_->time_base = {1, ticksPerSecond};
    encoder_->gop_size = keyFrameDistance;
    encoder_->max_b_frames = 0;
    encoder_->thread_count = 1;  // leaves the other processors to the work that is watched
    encoder_->bit_rate = codec_->id == AV_CODEC_ID_MPEG4 ? mpeg4BitsPerSecond : 0;
    if ((container_->oformat->flags & AVFMT_GLOBALHEADER) != 0)
        encoder_->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    // Options of libx264; MPEG-4 has none of that name and keeps its own.
    av_opt_set(encoder_->priv_data, "preset", "ultrafast", 0);
    av_opt_set(encoder_->priv_data, "crf", "20", 0);
    int result = avcodec_open2(encoder_, codec_, nullptr);
    if (result < 0)
        return problem("cannot open the encoder", result);
    result = av_frame_get_buffer(frame_, 0);
    if (result < 0)
        return problem("picture", result);
    avcodec_parameters_from_context(stream->codecpar, encoder_);
    stream->time_base = encoder_->time_base;
    result = avformat_write_header(container_, nullptr);
    if (result < 0)
        return problem("header", result);
    started_ = true;
    return {};
}

void VideoFile::convert(const Snapshot& picture) {
    const Planes target = {{frame_->data[0], frame_->data[1], frame_->data[2]},
                           {frame_->linesize[0], frame_->linesize[1], frame_->linesize[2]}};
    if (picture.black()) {
        libyuv::I420Rect(target.data[0], target.pitches[0], target.data[1], target.pitches[1],
                         target.data[2], target.pitches[2], 0, 0, width_, height_, 16, 128, 128);
        return;
    }
    const ScreenView view = picture.view();
    const int width = int(view.width), height = int(view.height);
    if ((width & ~1) == width_ && (height & ~1) == height_) {
        toI420(view, target, width_, height_);
        return;
    }
    const std::size_t pixels = std::size_t(width) * std::size_t(height);
    const std::size_t chroma = std::size_t(half(width)) * std::size_t(half(height));
    unscaled_.resize(pixels + 2 * chroma);
    std::uint8_t* luma = unscaled_.data();
    const Planes source = {{luma, luma + pixels, luma + pixels + chroma},
                           {width, half(width), half(width)}};
    toI420(view, source, width, height);
    libyuv::I420Scale(source.data[0], source.pitches[0], source.data[1], source.pitches[1],
                      source.data[2], source.pitches[2], width, height, target.data[0],
                      target.pitches[0], target.data[1], target.pitches[1], target.data[2],
                      target.pitches[2], width_, height_, libyuv::kFilterBilinear);
}

std::string VideoFile::add(const Snapshot& picture, std::int64_t time_ns) {
    if (!started_) {
        std::string line = openEncoder();
        if (!line.empty())
            return line;
        first_ns_ = time_ns;
    }
    // The encoder may still refer to the picture before.
    const int result = av_frame_make_writable(frame_);
    if (result < 0)
        return problem("picture", result);
    convert(picture);
    const std::int64_t pts = (time_ns - first_ns_) / (1000000000 / ticksPerSecond);
    lastPts_ = std::max(pts, lastPts_ + 1);
    frame_->pts = lastPts_;
    return encode(frame_);
}

std::string VideoFile::encode(const AVFrame* frame) {
    int result = avcodec_send_frame(encoder_, frame);
    if (result < 0)
        return problem("encoder", result);
    while ((result = avcodec_receive_packet(encoder_, packet_)) == 0) {
        av_packet_rescale_ts(packet_, encoder_->time_base, container_->streams[0]->time_base);
        result = av_interleaved_write_frame(container_, packet_);
        if (result < 0)
            return problem("write", result);
    }
    const bool fine = result == AVERROR(EAGAIN) || result == AVERROR_EOF;
    return fine ? std::string() : problem("encoder", result);
}

std::string VideoFile::finish() {
    if (!started_) {
        std::remove(path_.c_str());
        return "nothing recorded to " + path_ + ": no picture came on screen";
    }
    std::string line = encode(nullptr);
    int result = av_write_trailer(container_);
    if (line.empty() && result < 0)
        line = problem("trailer", result);
    result = avio_closep(&container_->pb);
    if (line.empty() && result < 0)
        line = problem("close", result);
    return line;
}

}  // namespace board
