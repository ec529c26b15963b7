#include "board/console/h264decoder.h"

extern "C" {
#include <libavcodec/avcodec.h>
}

#include <libyuv.h>

#include <algorithm>
#include <new>

namespace board::console {

namespace {

constexpr unsigned coded_idr = 5;

// Whether the payload has an IDR picture: Annex B, units after 00 00 01.
bool hasKeyFrame(const std::uint8_t* bytes, std::size_t size) {
    for (std::size_t i = 0; i + 3 < size; ++i)
        if (bytes[i] == 0 && bytes[i + 1] == 0 && bytes[i + 2] == 1 &&
            (bytes[i + 3] & 0x1f) == coded_idr)
            return true;
    return false;
}

}  // namespace

struct H264Decoder::Library {
    AVCodecContext* decoder = avcodec_alloc_context3(avcodec_find_decoder(AV_CODEC_ID_H264));
    AVFrame* frame = av_frame_alloc();
    AVPacket* packet = av_packet_alloc();

    ~Library() {
        avcodec_free_context(&decoder);
        av_frame_free(&frame);
        av_packet_free(&packet);
    }
};

H264Decoder::H264Decoder() : library_(std::make_unique<Library>()) {
    if (library_->decoder == nullptr || library_->frame == nullptr || library_->packet == nullptr)
        throw std::bad_alloc();
    // Damage is what this view is there to show; the library would write a line for each.
    av_log_set_level(AV_LOG_QUIET);
    library_->decoder->thread_count = 1;
    // A small picture does not show what the filter leaves out where no other frame builds on it.
    library_->decoder->skip_loop_filter = AVDISCARD_NONREF;
    if (avcodec_open2(library_->decoder, nullptr, nullptr) < 0)
        throw std::bad_alloc();
}

H264Decoder::~H264Decoder() = default;

void H264Decoder::skip() {
    if (synchronous_)
        avcodec_flush_buffers(library_->decoder);
    synchronous_ = false;
}

bool H264Decoder::send(const std::uint8_t* bytes, std::size_t size) {
    // The decoder reads a little beyond the end: it gets a copy that is padded.
    if (av_new_packet(library_->packet, int(size)) < 0)
        return false;
    std::copy(bytes, bytes + size, library_->packet->data);
    const int result = avcodec_send_packet(library_->decoder, library_->packet);
    av_packet_unref(library_->packet);
    return result >= 0;
}

bool H264Decoder::decode(const std::uint8_t* bytes, std::size_t size, PictureSize most,
                         I420Picture& small) {
    constexpr std::size_t largest = 64u << 20;
    if (!synchronous_ && !hasKeyFrame(bytes, size))
        return false;
    synchronous_ = true;
    if (size == 0 || size > largest || !send(bytes, size)) {
        skip();
        return false;
    }
    bool shown = false;
    while (avcodec_receive_frame(library_->decoder, library_->frame) >= 0) {
        shown = show(most, small);
        const bool damaged = library_->frame->decode_error_flags != 0;
        av_frame_unref(library_->frame);
        if (damaged) {
            skip();
            return false;
        }
    }
    return shown;
}

bool H264Decoder::show(PictureSize most, I420Picture& small) {
    const AVFrame& frame = *library_->frame;
    const bool full = frame.format == AV_PIX_FMT_YUVJ420P;
    if ((!full && frame.format != AV_PIX_FMT_YUV420P) || frame.width <= 0 || frame.height <= 0)
        return false;
    const PictureSize size =
        fitInto({std::uint32_t(frame.width), std::uint32_t(frame.height)}, most);
    small.resize(size.width, size.height);
    const int stride = int(small.stride);
    libyuv::I420Scale(frame.data[0], frame.linesize[0], frame.data[1], frame.linesize[1],
                      frame.data[2], frame.linesize[2], frame.width, frame.height, small.y.data(),
                      stride, small.u.data(), stride / 2, small.v.data(), stride / 2,
                      int(size.width), int(size.height), libyuv::kFilterBox);
    if (!full && frame.color_range != AVCOL_RANGE_JPEG)
        small.expandRange();
    return true;
}

}  // namespace board::console
