// A video in a .mp4: H.264 where the installed FFmpeg can write it, MPEG-4 elsewhere.
#pragma once

#include "board/daemon/display/screenview.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

struct AVCodec;
struct AVCodecContext;
struct AVFormatContext;
struct AVFrame;
struct AVPacket;

namespace board {

// Used by one thread at a time. Every call returns an error line, empty on success.
class VideoFile {
  public:
    // Sizes in pixels; an odd last column or line is left out.
    VideoFile(const std::string& path, std::uint32_t width, std::uint32_t height);
    ~VideoFile();
    VideoFile(const VideoFile&) = delete;
    VideoFile& operator=(const VideoFile&) = delete;

    std::string create();  // quick: makes the file, opens no encoder yet
    // The picture shown from `time_ns` on; scaled when its size is another.
    std::string add(const Snapshot& picture, std::int64_t time_ns);
    std::string finish();  // a file without pictures is removed again

  private:
    std::string openEncoder();
    void convert(const Snapshot& picture);
    std::string encode(const AVFrame* frame);  // null: what is left in the encoder
    std::string problem(const char* what, int error) const;

    std::string path_;
    int width_, height_;
    const AVCodec* codec_ = nullptr;
    AVFormatContext* container_ = nullptr;
    AVCodecContext* encoder_ = nullptr;
    AVFrame* frame_ = nullptr;
    AVPacket* packet_ = nullptr;
    std::vector<std::uint8_t> unscaled_;  // I420 of a picture of another size
    bool started_ = false;
    std::int64_t first_ns_ = 0, lastPts_ = -1;
};

}  // namespace board
