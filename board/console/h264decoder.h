// A camera's H.264 stream in small.
#pragma once

#include "board/console/i420picture.h"

#include <cstddef>
#include <cstdint>
#include <memory>

namespace board::console {

// Needs every payload of the stream. Shows nothing until a key frame came, nor after damage until
// the next one. Used by one thread.
class H264Decoder {
  public:
    H264Decoder();
    ~H264Decoder();
    H264Decoder(const H264Decoder&) = delete;
    H264Decoder& operator=(const H264Decoder&) = delete;

    // True when a picture came out; `small` has it then, no larger than `most`.
    bool decode(const std::uint8_t* bytes, std::size_t size, PictureSize most, I420Picture& small);
    // Payloads are missing here.
    void skip();

  private:
    struct Library;
    bool send(const std::uint8_t* bytes, std::size_t size);
    bool show(PictureSize most, I420Picture& small);

    std::unique_ptr<Library> library_;
    bool synchronous_ = false;  // a key frame came, and nothing was missing since
};

}  // namespace board::console
