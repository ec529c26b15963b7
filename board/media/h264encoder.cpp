#include "board/media/h264encoder.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/imgutils.h>
#include <libavutil/opt.h>
}

#include <algorithm>
#include <stdexcept>
#include <string>
#include <utility>

namespace board {

struct H264Encoder::Library {
    AVCodecContext* encoder = nullptr;
    AVPacket* packet = av_packet_alloc();
    AVFrame* frame = av_frame_alloc();

    ~Library() {
        av_frame_free(&frame);
        av_packet_free(&packet);
        avcodec_free_context(&encoder);
    }
};

namespace {

void configure(AVCodecContext& encoder, const Encoding& encoding) {
    encoder.pix_fmt = AV_PIX_FMT_YUV420P;
    encoder.framerate = {int(encoding.framesPerSecond), 1};
    encoder.time_base = {1, int(encoding.framesPerSecond)};
    encoder.bit_rate = encoding.bitRate;
    encoder.rc_max_rate = encoding.bitRate;
    encoder.rc_buffer_size = int(encoding.bitRate);
    encoder.gop_size = int(encoding.keyFrameDistance);
    encoder.keyint_min = int(encoding.keyFrameDistance);
    encoder.max_b_frames = int(encoding.bFrames);
    encoder.log_level_offset = AV_LOG_INFO - AV_LOG_WARNING;  // warnings are the least that it says
    // One thread: the same pictures give the same bytes everywhere.
    encoder.thread_count = 1;
    // The fastest preset, with the tools back in that cameras' encoders use.
    av_opt_set(encoder.priv_data, "preset", "ultrafast", 0);
    av_opt_set(encoder.priv_data, "tune", "zerolatency", 0);
    av_opt_set(encoder.priv_data, "x264-params",
               "cabac=1:deblock=0,0:scenecut=0:b-adapt=0:force-cfr=1", 0);
}

// Where the next start code begins, or the end.
std::size_t nextUnit(const std::vector<std::uint8_t>& bytes, std::size_t from) {
    for (std::size_t at = from; at + 3 <= bytes.size(); ++at) {
        if (bytes[at] != 0 || bytes[at + 1] != 0 || bytes[at + 2] != 1)
            continue;
        return at > from && bytes[at - 1] == 0 ? at - 1 : at;
    }
    return bytes.size();
}

}  // namespace

std::vector<std::uint8_t> takeParameterSets(std::vector<std::uint8_t>& unit) {
    std::vector<std::uint8_t> sets, rest;
    std::size_t at = nextUnit(unit, 0);
    while (at < unit.size()) {
        const std::size_t header = unit[at + 2] == 1 ? at + 3 : at + 4;
        const std::size_t next = nextUnit(unit, header);
        const unsigned type = header < unit.size() ? unit[header] & 0x1f : 0;
        std::vector<std::uint8_t>& part = type == 7 || type == 8 ? sets : rest;
        part.insert(part.end(), unit.begin() + std::ptrdiff_t(at),
                    unit.begin() + std::ptrdiff_t(next));
        at = next;
    }
    unit = std::move(rest);
    return sets;
}

H264Encoder::H264Encoder(std::uint32_t width, std::uint32_t height, const Encoding& encoding,
                         Take take)
    : library_(std::make_unique<Library>()), take_(std::move(take)) {
    Library& lib = *library_;
    const AVCodec* codec = avcodec_find_encoder_by_name("libx264");
    if (codec == nullptr)
        throw std::runtime_error("this FFmpeg has no H.264 encoder (libx264)");
    lib.encoder = avcodec_alloc_context3(codec);
    if (lib.encoder == nullptr || lib.packet == nullptr || lib.frame == nullptr)
        throw std::bad_alloc();
    lib.encoder->width = int(width);
    lib.encoder->height = int(height);
    configure(*lib.encoder, encoding);
    if (avcodec_open2(lib.encoder, codec, nullptr) < 0)
        throw std::runtime_error("no H.264 encoder for " + std::to_string(width) + "x" +
                                 std::to_string(height) + " opens");
    lib.frame->format = AV_PIX_FMT_YUV420P;
    lib.frame->width = int(width);
    lib.frame->height = int(height);
    if (av_frame_get_buffer(lib.frame, 0) < 0)
        throw std::bad_alloc();
}

H264Encoder::~H264Encoder() = default;

void H264Encoder::encode(const std::uint8_t* picture) {
    AVFrame& frame = *library_->frame;
    if (av_frame_make_writable(&frame) < 0)
        throw std::bad_alloc();
    std::uint8_t* planes[4] = {};
    int strides[4] = {};
    // The frame is written, the picture only read: the function serves both ends.
    av_image_fill_arrays(planes, strides, picture, AV_PIX_FMT_YUV420P, frame.width, frame.height,
                         1);
    const std::uint8_t* source[] = {planes[0], planes[1], planes[2], nullptr};
    av_image_copy(frame.data, frame.linesize, source, strides, AV_PIX_FMT_YUV420P, frame.width,
                  frame.height);
    frame.pts = count_++;
    if (avcodec_send_frame(library_->encoder, &frame) < 0)
        throw std::runtime_error("a picture cannot be encoded as H.264");
    take();
}

void H264Encoder::finish() {
    avcodec_send_frame(library_->encoder, nullptr);
    take();
}

void H264Encoder::take() {
    AVPacket& found = *library_->packet;
    while (avcodec_receive_packet(library_->encoder, &found) == 0) {
        MediaPacket packet;
        packet.bytes.assign(found.data, found.data + found.size);
        packet.key = (found.flags & AV_PKT_FLAG_KEY) != 0;
        packet.shown = std::uint32_t(found.pts);
        packet.parameterSets = takeParameterSets(packet.bytes);
        take_(std::move(packet));
        av_packet_unref(&found);
    }
}

}  // namespace board
