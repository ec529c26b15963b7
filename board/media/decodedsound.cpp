#include "board/media/decodedsound.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libswresample/swresample.h>
}

#include <memory>
#include <stdexcept>

namespace board {

namespace {

struct Library {
    AVFormatContext* container = nullptr;
    AVCodecContext* decoder = nullptr;
    SwrContext* converter = nullptr;
    AVPacket* packet = av_packet_alloc();
    AVFrame* frame = av_frame_alloc();
    AVChannelLayout layout = {};
    int stream = -1;

    ~Library() {
        av_channel_layout_uninit(&layout);
        swr_free(&converter);
        av_frame_free(&frame);
        av_packet_free(&packet);
        avcodec_free_context(&decoder);
        avformat_close_input(&container);
    }
};

void open(Library& lib, const std::string& path) {
    if (lib.packet == nullptr || lib.frame == nullptr)
        throw std::bad_alloc();
    if (avformat_open_input(&lib.container, path.c_str(), nullptr, nullptr) < 0)
        throw std::runtime_error(path + ": cannot be opened as a media file");
    const AVCodec* codec = nullptr;
    if (avformat_find_stream_info(lib.container, nullptr) >= 0)
        lib.stream = av_find_best_stream(lib.container, AVMEDIA_TYPE_AUDIO, -1, -1, &codec, 0);
    if (lib.stream < 0 || codec == nullptr)
        throw std::runtime_error(path + ": has no sound that can be decoded");
    lib.decoder = avcodec_alloc_context3(codec);
    if (lib.decoder == nullptr ||
        avcodec_parameters_to_context(lib.decoder, lib.container->streams[lib.stream]->codecpar) <
            0 ||
        avcodec_open2(lib.decoder, codec, nullptr) < 0)
        throw std::runtime_error(path + ": the decoder '" + codec->name + "' cannot be opened");
}

// The converter is made for the first frame: only then is its layout certain.
void makeConverter(Library& lib, const std::string& path, std::uint32_t rate_Hz) {
    const AVFrame& frame = *lib.frame;
    if (frame.ch_layout.order == AV_CHANNEL_ORDER_UNSPEC)
        av_channel_layout_default(&lib.layout, frame.ch_layout.nb_channels);
    else
        av_channel_layout_copy(&lib.layout, &frame.ch_layout);
    if (swr_alloc_set_opts2(&lib.converter, &lib.layout, AV_SAMPLE_FMT_S32, int(rate_Hz),
                            &lib.layout, AVSampleFormat(frame.format), frame.sample_rate, 0,
                            nullptr) < 0 ||
        swr_init(lib.converter) < 0)
        throw std::runtime_error(path + ": its sound cannot be converted");
}

// Appends what comes out for `frames` frames at `data` (null: what the converter still holds).
void convert(Library& lib, const std::uint8_t** data, int frames, DecodedSound& sound) {
    const int most = swr_get_out_samples(lib.converter, frames);
    if (most <= 0)
        return;
    const std::size_t before = sound.samples.size();
    sound.samples.resize(before + std::size_t(most) * sound.channels);
    auto* place = reinterpret_cast<std::uint8_t*>(sound.samples.data() + before);
    const int came = swr_convert(lib.converter, &place, most, data, frames);
    sound.samples.resize(before + std::size_t(came > 0 ? came : 0) * sound.channels);
}

}  // namespace

DecodedSound decodeSound(const std::string& path, std::uint32_t rate_Hz, unsigned longest_s) {
    Library lib;
    open(lib, path);
    DecodedSound sound;
    const auto isLong = [&] {
        return sound.channels != 0 &&
               sound.samples.size() / sound.channels >= std::size_t(rate_Hz) * longest_s;
    };
    const auto takeFrames = [&] {
        while (!isLong() && avcodec_receive_frame(lib.decoder, lib.frame) == 0) {
            if (lib.converter == nullptr)
                makeConverter(lib, path, rate_Hz);
            sound.channels = std::uint32_t(lib.layout.nb_channels);
            convert(lib, const_cast<const std::uint8_t**>(lib.frame->extended_data),
                    lib.frame->nb_samples, sound);
        }
    };
    while (!isLong() && av_read_frame(lib.container, lib.packet) >= 0) {
        // A damaged packet costs its sound only.
        if (lib.packet->stream_index == lib.stream)
            avcodec_send_packet(lib.decoder, lib.packet);
        av_packet_unref(lib.packet);
        takeFrames();
    }
    avcodec_send_packet(lib.decoder, nullptr);
    takeFrames();
    if (lib.converter != nullptr)
        convert(lib, nullptr, 0, sound);
    if (sound.samples.empty())
        throw std::runtime_error(path + ": has no sound that can be decoded");
    if (isLong())
        sound.samples.resize(std::size_t(rate_Hz) * longest_s * sound.channels);
    return sound;
}

}  // namespace board
