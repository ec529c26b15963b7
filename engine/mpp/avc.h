// H.264 pictures out of access units, by libavcodec.
#pragma once

#include <memory>

#include "engine/mpp/accessunits.h"
#include "engine/mpp/frame.h"

struct AVCodecContext;
struct AVCodecParserContext;
struct AVFrame;
struct AVPacket;

namespace mpp {

struct PictureSize {
    RK_U32 width = 0, height = 0;
    bool operator==(const PictureSize& other) const {
        return width == other.width && height == other.height;
    }
    bool operator!=(const PictureSize& other) const { return !(*this == other); }
    bool known() const { return width != 0 && height != 0; }
};

class AvcDecoder {
  public:
    AvcDecoder();
    ~AvcDecoder();
    AvcDecoder(const AvcDecoder&) = delete;
    AvcDecoder& operator=(const AvcDecoder&) = delete;

    // False when libavcodec has no decoder; nothing else may be called then.
    bool open();

    // Takes the next unit. Tells the size of the pictures from it on, as its parameter sets tell,
    // or the last one told when it has none; unknown before the first, and for sizes that no
    // decoder of the board takes.
    PictureSize load(const AccessUnit& unit);
    // Decodes the loaded unit; its pictures carry the number. The pictures it completes come from
    // receive(). False when it could not be decoded.
    bool send(std::int64_t number);
    // No more units: the pictures that are held back come from receive(). flush() afterwards.
    void drain();
    // The next picture in display order, valid until the next call; null when there is none.
    const AVFrame* receive();
    void flush();

  private:
    struct Free {
        void operator()(AVCodecContext* context) const;
        void operator()(AVCodecParserContext* parser) const;
        void operator()(AVFrame* frame) const;
        void operator()(AVPacket* packet) const;
    };
    std::unique_ptr<AVCodecContext, Free> codec_;
    std::unique_ptr<AVCodecContext, Free> parsed_;  // the parser's
    std::unique_ptr<AVCodecParserContext, Free> parser_;
    std::unique_ptr<AVFrame, Free> frame_;
    std::unique_ptr<AVPacket, Free> packet_;
};

// Sizes, strides, format and needed buffer of pictures of that size.
FrameInfo infoOf(const PictureSize& size);
PictureSize sizeOf(const AVFrame& picture);
std::int64_t numberOf(const AVFrame& picture);
// False for pictures of other samplings than 4:0:0, 4:2:0 and 4:2:2 with 8 bits.
bool formatOf(const AVFrame& picture, MppFrameFormat& format);
// Into a buffer of at least info.bufSize, as `info` says.
void copyPicture(const AVFrame& picture, const FrameInfo& info, unsigned char* to);

}  // namespace mpp
