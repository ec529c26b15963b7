#include "board/media/mediapackets.h"

extern "C" {
#include <libavcodec/bsf.h>
#include <libavformat/avformat.h>
}

#include <linux/videodev2.h>

namespace board {

namespace {

constexpr std::size_t mostBytes = 64000000;

struct Demuxer {
    AVFormatContext* container = nullptr;
    AVBSFContext* filter = nullptr;
    AVPacket* packet = av_packet_alloc();
    int stream = -1;

    Demuxer() = default;
    Demuxer(const Demuxer&) = delete;
    Demuxer& operator=(const Demuxer&) = delete;
    ~Demuxer() {
        av_packet_free(&packet);
        av_bsf_free(&filter);
        avformat_close_input(&container);
    }

    bool open(const std::string& path, AVCodecID codec, std::uint32_t width, std::uint32_t height) {
        if (packet == nullptr ||
            avformat_open_input(&container, path.c_str(), nullptr, nullptr) < 0 ||
            avformat_find_stream_info(container, nullptr) < 0)
            return false;
        stream = av_find_best_stream(container, AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
        if (stream < 0)
            return false;
        const AVCodecParameters& found = *container->streams[stream]->codecpar;
        return found.codec_id == codec && found.width == int(width) &&
               found.height == int(height) &&
               openFilter(found, codec == AV_CODEC_ID_H264 ? "h264_mp4toannexb" : "null");
    }

    bool openFilter(const AVCodecParameters& parameters, const char* name) {
        const AVBitStreamFilter* found = av_bsf_get_by_name(name);
        return found != nullptr && av_bsf_alloc(found, &filter) >= 0 &&
               avcodec_parameters_copy(filter->par_in, &parameters) >= 0 &&
               av_bsf_init(filter) >= 0;
    }

    // The next packet of the stream into `packet`.
    bool next() {
        for (;;) {
            const int got = av_bsf_receive_packet(filter, packet);
            if (got == 0)
                return true;
            if (got != AVERROR(EAGAIN) || av_read_frame(container, packet) < 0)
                return false;
            if (packet->stream_index != stream)
                av_packet_unref(packet);
            else if (av_bsf_send_packet(filter, packet) < 0)
                return false;
        }
    }
};

}  // namespace

std::vector<MediaPacket> readPackets(const std::string& path, std::uint32_t fourcc,
                                     std::uint32_t width, std::uint32_t height) {
    std::vector<MediaPacket> packets;
    Demuxer demuxer;
    const AVCodecID codec = fourcc == V4L2_PIX_FMT_H264 ? AV_CODEC_ID_H264 : AV_CODEC_ID_MJPEG;
    if (path.compare(0, 6, "field:") == 0 || !demuxer.open(path, codec, width, height))
        return packets;
    for (std::size_t bytes = 0; bytes < mostBytes && demuxer.next();) {
        const AVPacket& found = *demuxer.packet;
        MediaPacket packet;
        packet.key = (found.flags & AV_PKT_FLAG_KEY) != 0;
        packet.bytes.assign(found.data, found.data + found.size);
        if (packet.key || !packets.empty()) {
            bytes += packet.bytes.size();
            packets.push_back(std::move(packet));
        }
        av_packet_unref(demuxer.packet);
    }
    return packets;
}

}  // namespace board
