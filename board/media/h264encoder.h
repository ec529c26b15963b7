// Pictures as an H.264 camera's payloads: one access unit each, in decoding order, with start
// codes.
#pragma once

#include "board/media/encoding.h"
#include "board/media/packetloop.h"

#include <cstdint>
#include <functional>
#include <memory>

namespace board {

class H264Encoder {
  public:
    using Take = std::function<void(MediaPacket)>;
    // Throws std::runtime_error with one line.
    H264Encoder(std::uint32_t width, std::uint32_t height, const Encoding& encoding, Take take);
    ~H264Encoder();
    H264Encoder(const H264Encoder&) = delete;
    H264Encoder& operator=(const H264Encoder&) = delete;

    // YU12 without gaps. Packets come when they are ready, the last ones from finish().
    void encode(const std::uint8_t* picture);
    void finish();

  private:
    struct Library;
    void take();

    std::unique_ptr<Library> library_;
    Take take_;
    std::int64_t count_ = 0;
};

// Takes sequence and picture parameter sets out of an access unit with start codes.
std::vector<std::uint8_t> takeParameterSets(std::vector<std::uint8_t>& unit);

}  // namespace board
