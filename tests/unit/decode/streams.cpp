#include "tests/unit/decode/streams.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/opt.h>
}

#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>

namespace streams {
namespace {

struct Deleter {
    void operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
    void operator()(AVFrame* frame) const { av_frame_free(&frame); }
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
};
template <typename T>
using Owned = std::unique_ptr<T, Deleter>;

void check(int result, const char* what) {
    if (result < 0) {
        throw std::runtime_error(std::string(what) + ": " + std::to_string(result));
    }
}

Owned<AVCodecContext> contextFor(const AVCodec* codec) {
    av_log_set_level(AV_LOG_QUIET);
    if (codec == nullptr) {
        throw std::runtime_error("libavcodec lacks a codec");
    }
    return Owned<AVCodecContext>(avcodec_alloc_context3(codec));
}

void copyPlane(const Bytes& from, int width, std::uint8_t* to, int stride) {
    const auto line = static_cast<std::size_t>(width);
    for (std::size_t at = 0; at < from.size(); at += line, to += stride) {
        std::memcpy(to, from.data() + at, line);
    }
}

Owned<AVFrame> frameOf(const Picture& picture, AVPixelFormat format, std::int64_t pts) {
    Owned<AVFrame> frame(av_frame_alloc());
    frame->width = picture.width;
    frame->height = picture.height;
    frame->format = format;
    frame->pts = pts;
    check(av_frame_get_buffer(frame.get(), 0), "av_frame_get_buffer");
    copyPlane(picture.y, picture.width, frame->data[0], frame->linesize[0]);
    copyPlane(picture.u, picture.width / 2, frame->data[1], frame->linesize[1]);
    copyPlane(picture.v, picture.width / 2, frame->data[2], frame->linesize[2]);
    return frame;
}

Bytes planeOf(const std::uint8_t* from, int stride, int width, int height) {
    Bytes plane;
    for (int line = 0; line < height; ++line, from += stride) {
        plane.insert(plane.end(), from, from + width);
    }
    return plane;
}

Picture pictureOf(const AVFrame& frame) {
    Picture picture{frame.width, frame.height, true, {}, {}, {}};
    picture.halfLines = frame.format != AV_PIX_FMT_YUVJ422P && frame.format != AV_PIX_FMT_YUV422P;
    const int chromaLines = picture.halfLines ? (frame.height + 1) / 2 : frame.height;
    const int chromaWidth = (frame.width + 1) / 2;
    picture.y = planeOf(frame.data[0], frame.linesize[0], frame.width, frame.height);
    picture.u = planeOf(frame.data[1], frame.linesize[1], chromaWidth, chromaLines);
    picture.v = planeOf(frame.data[2], frame.linesize[2], chromaWidth, chromaLines);
    return picture;
}

std::vector<Bytes> encode(AVCodecContext* encoder, const std::vector<Picture>& pictures,
                          AVPixelFormat format) {
    std::vector<Bytes> packets;
    const Owned<AVPacket> packet(av_packet_alloc());
    const auto takeAll = [&] {
        while (avcodec_receive_packet(encoder, packet.get()) == 0) {
            packets.emplace_back(packet->data, packet->data + packet->size);
            av_packet_unref(packet.get());
        }
    };
    std::int64_t pts = 0;
    for (const Picture& picture : pictures) {
        const Owned<AVFrame> frame = frameOf(picture, format, pts++);
        frame->quality = encoder->global_quality;
        check(avcodec_send_frame(encoder, frame.get()), "avcodec_send_frame");
        takeAll();
    }
    check(avcodec_send_frame(encoder, nullptr), "avcodec_send_frame");
    takeAll();
    return packets;
}

std::vector<Picture> decode(AVCodecID codec, const std::vector<Bytes>& packets) {
    const AVCodec* found = avcodec_find_decoder(codec);
    const Owned<AVCodecContext> decoder = contextFor(found);
    decoder->thread_count = 1;
    check(avcodec_open2(decoder.get(), found, nullptr), "avcodec_open2");
    std::vector<Picture> pictures;
    const Owned<AVFrame> frame(av_frame_alloc());
    const auto takeAll = [&] {
        while (avcodec_receive_frame(decoder.get(), frame.get()) == 0) {
            pictures.push_back(pictureOf(*frame));
        }
    };
    for (const Bytes& bytes : packets) {
        const Owned<AVPacket> packet(av_packet_alloc());
        check(av_new_packet(packet.get(), static_cast<int>(bytes.size())), "av_new_packet");
        std::memcpy(packet->data, bytes.data(), bytes.size());
        check(avcodec_send_packet(decoder.get(), packet.get()), "avcodec_send_packet");
        takeAll();
    }
    avcodec_send_packet(decoder.get(), nullptr);
    takeAll();
    return pictures;
}

// Calls `visit` with the begin, the marker and the end of each segment before the scan.
void walkSegments(const Bytes& jpeg,
                  const std::function<void(std::size_t, std::uint8_t, std::size_t)>& visit) {
    std::size_t at = 2;
    while (at + 10 <= jpeg.size() && jpeg[at] == 0xFF) {
        const std::uint8_t marker = jpeg[at + 1];
        const std::size_t end =
            std::min(at + 2 + (std::size_t{jpeg[at + 2]} << 8 | jpeg[at + 3]), jpeg.size());
        visit(at, marker, end);
        if (marker == 0xDA) {
            return;
        }
        at = end;
    }
}

}  // namespace

Picture drawn(int width, int height, int n, bool halfLines) {
    Picture picture{width, height, halfLines, {}, {}, {}};
    const int blockX = n * 8 % width, blockY = n * 4 % height;
    const int lines = halfLines ? height / 2 : height;
    picture.y.resize(static_cast<std::size_t>(width) * static_cast<std::size_t>(height));
    picture.u.resize(static_cast<std::size_t>(width / 2) * static_cast<std::size_t>(lines));
    picture.v = picture.u;
    std::uint8_t* luma = picture.y.data();
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const bool inBlock =
                x >= blockX && x < blockX + width / 4 && y >= blockY && y < blockY + height / 4;
            const int slope = 40 + x * 120 / width + y * 60 / height;
            *luma++ = static_cast<std::uint8_t>(inBlock ? 20 + n * 3 % 60 : slope);
        }
    }
    std::size_t at = 0;
    for (int y = 0; y < lines; ++y) {
        for (int x = 0; x < width / 2; ++x, ++at) {
            picture.u[at] = static_cast<std::uint8_t>(80 + x * 160 / width);
            picture.v[at] = static_cast<std::uint8_t>(90 + y * 80 / lines);
        }
    }
    return picture;
}

Bytes jpegOf(const Picture& picture) {
    const AVCodec* codec = avcodec_find_encoder(AV_CODEC_ID_MJPEG);
    const Owned<AVCodecContext> encoder = contextFor(codec);
    encoder->width = picture.width;
    encoder->height = picture.height;
    encoder->time_base = {1, 30};
    encoder->pix_fmt = picture.halfLines ? AV_PIX_FMT_YUVJ420P : AV_PIX_FMT_YUVJ422P;
    encoder->color_range = AVCOL_RANGE_JPEG;
    encoder->flags |= AV_CODEC_FLAG_QSCALE;
    encoder->global_quality = FF_QP2LAMBDA * 3;
    av_opt_set(encoder->priv_data, "huffman", "default", 0);  // the standard tables
    check(avcodec_open2(encoder.get(), codec, nullptr), "avcodec_open2");
    return encode(encoder.get(), {picture}, encoder->pix_fmt).at(0);
}

Picture decodedJpeg(const Bytes& jpeg) {
    return decode(AV_CODEC_ID_MJPEG, {jpeg}).at(0);
}

std::vector<Bytes> h264Of(const std::vector<Picture>& pictures, const H264Settings& settings) {
    const AVCodec* codec = avcodec_find_encoder_by_name("libx264");
    const Owned<AVCodecContext> encoder = contextFor(codec);
    encoder->width = pictures.at(0).width;
    encoder->height = pictures.at(0).height;
    encoder->time_base = {1, 30};
    encoder->pix_fmt = AV_PIX_FMT_YUV420P;
    encoder->gop_size = settings.keyDistance;
    encoder->max_b_frames = settings.bFrames;
    encoder->thread_count = 1;
    av_opt_set(encoder->priv_data, "preset", "veryfast", 0);
    av_opt_set(encoder->priv_data, "crf", "20", 0);
    av_opt_set(encoder->priv_data, "x264-params",
               settings.bFrames > 0 ? "scenecut=0:b-adapt=0" : "scenecut=0", 0);
    if (settings.headersOnce) {
        encoder->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    }
    check(avcodec_open2(encoder.get(), codec, nullptr), "avcodec_open2");
    std::vector<Bytes> packets = encode(encoder.get(), pictures, encoder->pix_fmt);
    if (settings.headersOnce) {
        packets.at(0).insert(packets.at(0).begin(), encoder->extradata,
                             encoder->extradata + encoder->extradata_size);
    }
    return packets;
}

std::vector<Picture> decodedH264(const std::vector<Bytes>& packets) {
    return decode(AV_CODEC_ID_H264, packets);
}

Bytes nv12Of(const Picture& picture) {
    Bytes bytes = picture.y;
    const auto width = static_cast<std::size_t>(picture.width) / 2;
    const std::size_t step = picture.halfLines ? 1 : 2;
    const auto lines = static_cast<std::size_t>(picture.height) / 2;
    bytes.resize(picture.y.size() + width * lines * 2);
    std::uint8_t* to = bytes.data() + picture.y.size();
    const std::uint8_t* u = picture.u.data();
    const std::uint8_t* v = picture.v.data();
    for (std::size_t line = 0; line < lines; ++line) {
        for (std::size_t x = 0; x < width; ++x) {
            const std::size_t upper = line * step * width + x;
            const std::size_t lower = upper + (step - 1) * width;
            *to++ = static_cast<std::uint8_t>((u[upper] + u[lower] + 1) / 2);
            *to++ = static_cast<std::uint8_t>((v[upper] + v[lower] + 1) / 2);
        }
    }
    return bytes;
}

double psnr(const Bytes& seen, const Bytes& expected) {
    if (seen.size() != expected.size() || seen.empty()) {
        return 0.0;
    }
    std::uint64_t sum = 0;
    for (std::size_t i = 0; i < seen.size(); ++i) {
        const int difference = seen[i] - expected[i];
        sum += static_cast<std::uint64_t>(difference * difference);
    }
    const auto squares = static_cast<double>(sum);
    if (squares == 0) {
        return 99.0;
    }
    return 10.0 * std::log10(255.0 * 255.0 * static_cast<double>(seen.size()) / squares);
}

Bytes withoutHuffmanTables(const Bytes& jpeg) {
    if (jpeg.size() < 2) {
        return jpeg;
    }
    Bytes result(jpeg.begin(), jpeg.begin() + 2);
    std::size_t rest = 2;
    walkSegments(jpeg, [&](std::size_t begin, std::uint8_t marker, std::size_t end) {
        if (marker != 0xC4) {
            result.insert(result.end(), jpeg.begin() + static_cast<std::ptrdiff_t>(begin),
                          jpeg.begin() + static_cast<std::ptrdiff_t>(end));
        }
        rest = end;
    });
    result.insert(result.end(), jpeg.begin() + static_cast<std::ptrdiff_t>(rest), jpeg.end());
    return result;
}

Bytes withSize(const Bytes& jpeg, unsigned width, unsigned height) {
    Bytes result = jpeg;
    walkSegments(jpeg, [&](std::size_t begin, std::uint8_t marker, std::size_t) {
        if (marker == 0xC0) {
            result.at(begin + 5) = static_cast<std::uint8_t>(height >> 8);
            result.at(begin + 6) = static_cast<std::uint8_t>(height);
            result.at(begin + 7) = static_cast<std::uint8_t>(width >> 8);
            result.at(begin + 8) = static_cast<std::uint8_t>(width);
        }
    });
    return result;
}

}  // namespace streams
