#include "tests/support/reference.h"

#include <fstream>
#include <sstream>
#include <stdexcept>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/pixdesc.h>
}

#include <linux/videodev2.h>

namespace support {

namespace {

Picture nv12Of(const AVFrame& frame) {
    const AVPixFmtDescriptor& form = *av_pix_fmt_desc_get(AVPixelFormat(frame.format));
    if (form.nb_components != 3 || form.log2_chroma_w != 1 || form.log2_chroma_h > 1) {
        throw std::runtime_error(std::string("a picture in ") + form.name);
    }
    Picture picture{std::uint32_t(frame.width), std::uint32_t(frame.height), {}, {}};
    for (int line = 0; line < frame.height; ++line) {
        const std::uint8_t* first = frame.data[0] + std::ptrdiff_t(line) * frame.linesize[0];
        picture.luma.insert(picture.luma.end(), first, first + frame.width);
    }
    const bool full = form.log2_chroma_h == 0;
    for (int line = 0; line < frame.height / 2; ++line) {
        for (int x = 0; x < frame.width / 2; ++x) {
            for (const int plane : {1, 2}) {
                const std::uint8_t* sample =
                    frame.data[plane] +
                    std::ptrdiff_t(full ? 2 * line : line) * frame.linesize[plane] + x;
                const unsigned below = full ? sample[frame.linesize[plane]] : *sample;
                picture.chroma.push_back(std::uint8_t((*sample + below + 1) / 2));
            }
        }
    }
    return picture;
}

}  // namespace

struct ReferenceDecoder::Library {
    AVCodecContext* decoder = nullptr;
    AVCodecParserContext* parser = nullptr;
    AVPacket* packet = av_packet_alloc();
    AVFrame* frame = av_frame_alloc();

    ~Library() {
        av_frame_free(&frame);
        av_packet_free(&packet);
        av_parser_close(parser);
        avcodec_free_context(&decoder);
    }
};

ReferenceDecoder::ReferenceDecoder(std::uint32_t fourcc, Use use)
    : library_(std::make_unique<Library>()), use_(std::move(use)) {
    Library& lib = *library_;
    const AVCodecID id = fourcc == V4L2_PIX_FMT_H264 ? AV_CODEC_ID_H264 : AV_CODEC_ID_MJPEG;
    const AVCodec* codec = avcodec_find_decoder(id);
    lib.decoder = avcodec_alloc_context3(codec);
    lib.parser = av_parser_init(id);
    lib.decoder->thread_count = 1;
    lib.decoder->err_recognition = AV_EF_EXPLODE;
    if (avcodec_open2(lib.decoder, codec, nullptr) < 0) {
        throw std::runtime_error("no decoder opens");
    }
}

ReferenceDecoder::~ReferenceDecoder() = default;

bool ReferenceDecoder::send(const std::uint8_t* bytes, std::size_t length) {
    Library& lib = *library_;
    bool good = true;
    if (bytes != nullptr) {
        if (av_new_packet(lib.packet, int(length)) < 0) {
            throw std::bad_alloc();
        }
        std::copy(bytes, bytes + length, lib.packet->data);
        good = avcodec_send_packet(lib.decoder, lib.packet) == 0;
        av_packet_unref(lib.packet);
    } else {
        avcodec_send_packet(lib.decoder, nullptr);
    }
    int got = 0;
    while ((got = avcodec_receive_frame(lib.decoder, lib.frame)) == 0) {
        use_(nv12Of(*lib.frame));
    }
    return good && (got == AVERROR(EAGAIN) || got == AVERROR_EOF);
}

bool ReferenceDecoder::decode(const std::vector<std::uint8_t>& payload) {
    return send(payload.data(), payload.size());
}

void ReferenceDecoder::finish() {
    send(nullptr, 0);
}

void ReferenceDecoder::decodeFile(const std::string& path) {
    std::ostringstream content;
    content << std::ifstream(path, std::ios::binary).rdbuf();
    std::string bytes = content.str();
    const std::size_t length = bytes.size();
    bytes.append(AV_INPUT_BUFFER_PADDING_SIZE, '\0');
    const auto* at = reinterpret_cast<const std::uint8_t*>(bytes.data());
    std::size_t left = length;
    // An empty piece at the end makes the parser give what it still holds.
    for (bool ended = false; !ended;) {
        ended = left == 0;
        std::uint8_t* unit = nullptr;
        int unitLength = 0;
        const int used = av_parser_parse2(library_->parser, library_->decoder, &unit, &unitLength,
                                          at, int(left), AV_NOPTS_VALUE, AV_NOPTS_VALUE, 0);
        at += used;
        left -= std::size_t(used);
        if (unitLength > 0) {
            send(unit, std::size_t(unitLength));
        }
    }
    finish();
}

}  // namespace support
