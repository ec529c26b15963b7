extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/opt.h>
#include <libavutil/pixdesc.h>
}

#include <memory>
#include <stdexcept>
#include <string>

#include "tests/unit/mpp/coded.h"

namespace coded {
namespace {

struct Free {
    void operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
    void operator()(AVFrame* frame) const { av_frame_free(&frame); }
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
};
template <class T>
using Owned = std::unique_ptr<T, Free>;

Bytes plane(const AVFrame& frame, int index, int width, int height) {
    Bytes samples;
    samples.reserve(static_cast<std::size_t>(width) * height);
    for (int y = 0; y < height; ++y) {
        const std::uint8_t* line =
            frame.data[index] + static_cast<std::ptrdiff_t>(y) * frame.linesize[index];
        samples.insert(samples.end(), line, line + width);
    }
    return samples;
}

Picture take(const AVFrame& frame) {
    Picture picture;
    picture.width = frame.width;
    picture.height = frame.height;
    picture.y = plane(frame, 0, frame.width, frame.height);
    const AVPixFmtDescriptor* about = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(frame.format));
    if (about->nb_components == 3) {
        picture.chromaWidth = AV_CEIL_RSHIFT(frame.width, about->log2_chroma_w);
        picture.chromaHeight = AV_CEIL_RSHIFT(frame.height, about->log2_chroma_h);
        picture.u = plane(frame, 1, picture.chromaWidth, picture.chromaHeight);
        picture.v = plane(frame, 2, picture.chromaWidth, picture.chromaHeight);
    }
    picture.damaged = (frame.flags & AV_FRAME_FLAG_CORRUPT) != 0 || frame.decode_error_flags != 0;
    return picture;
}

std::vector<Picture> decode(AVCodecID id, const std::vector<Bytes>& units) {
    const Owned<AVCodecContext> codec(avcodec_alloc_context3(avcodec_find_decoder(id)));
    const Owned<AVFrame> frame(av_frame_alloc());
    const Owned<AVPacket> packet(av_packet_alloc());
    codec->thread_count = 1;
    codec->log_level_offset = 100;
    if (avcodec_open2(codec.get(), nullptr, nullptr) != 0) {
        throw std::runtime_error("no decoder");
    }
    std::vector<Picture> pictures;
    const auto receive = [&] {
        while (avcodec_receive_frame(codec.get(), frame.get()) == 0) {
            pictures.push_back(take(*frame));
        }
    };
    for (const Bytes& unit : units) {
        av_new_packet(packet.get(), static_cast<int>(unit.size()));
        std::copy(unit.begin(), unit.end(), packet->data);
        avcodec_send_packet(codec.get(), packet.get());
        av_packet_unref(packet.get());
        receive();
    }
    avcodec_send_packet(codec.get(), nullptr);
    receive();
    return pictures;
}

void fill(AVFrame& frame, const Avc& how, int number) {
    const Bytes pixels = scene(how.width, how.height, number, how.seed);
    const int down = how.highSampling ? 1 : 2;
    for (int y = 0; y < how.height; ++y) {
        for (int x = 0; x < how.width; ++x) {
            const std::uint8_t* pixel =
                pixels.data() + (static_cast<std::size_t>(y) * how.width + x) * 3;
            frame.data[0][y * frame.linesize[0] + x] = pixel[0];
            frame.data[1][y / down * frame.linesize[1] + x / 2] = pixel[1];
            frame.data[2][y / down * frame.linesize[2] + x / 2] = pixel[2];
        }
    }
}

}  // namespace

Picture decodeJpeg(const Bytes& jpeg) {
    const std::vector<Picture> pictures = decode(AV_CODEC_ID_MJPEG, {jpeg});
    return pictures.size() == 1 ? pictures.front() : Picture{};
}

std::vector<Picture> decodeAvc(const std::vector<Bytes>& units) {
    return decode(AV_CODEC_ID_H264, units);
}

std::vector<Bytes> encode(const Avc& how) {
    const AVCodec* x264 = avcodec_find_encoder_by_name("libx264");
    const Owned<AVCodecContext> codec(avcodec_alloc_context3(x264));
    codec->width = how.width;
    codec->height = how.height;
    codec->time_base = {1, 30};
    codec->pix_fmt = how.highSampling ? AV_PIX_FMT_YUV422P : AV_PIX_FMT_YUV420P;
    codec->gop_size = how.keyDistance;
    codec->max_b_frames = how.bFrames;
    codec->slices = how.slices;
    codec->thread_count = 1;
    codec->log_level_offset = 100;  // its statistics are not of interest
    av_opt_set(codec->priv_data, "preset", "veryfast", 0);
    std::string parameters = "scenecut=0:b-adapt=0:rc-lookahead=0";
    if (how.more[0] != '\0') {
        parameters += std::string(":") + how.more;
    }
    av_opt_set(codec->priv_data, "x264-params", parameters.c_str(), 0);
    if (avcodec_open2(codec.get(), x264, nullptr) != 0) {
        throw std::runtime_error("libx264 refuses");
    }
    const Owned<AVFrame> frame(av_frame_alloc());
    frame->format = codec->pix_fmt;
    frame->width = how.width;
    frame->height = how.height;
    av_frame_get_buffer(frame.get(), 0);
    const Owned<AVPacket> packet(av_packet_alloc());
    std::vector<Bytes> units;
    const auto receive = [&] {
        while (avcodec_receive_packet(codec.get(), packet.get()) == 0) {
            units.emplace_back(packet->data, packet->data + packet->size);
            av_packet_unref(packet.get());
        }
    };
    for (int i = 0; i < how.frames; ++i) {
        av_frame_make_writable(frame.get());
        fill(*frame, how, i);
        frame->pts = i;
        avcodec_send_frame(codec.get(), frame.get());
        receive();
    }
    avcodec_send_frame(codec.get(), nullptr);
    receive();
    return units;
}

}  // namespace coded
