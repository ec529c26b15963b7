// What FFmpeg makes of a camera's payloads.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/nv12.h"

namespace support {

// Samples are taken as they are, whatever range the stream declares; the chroma lines of 4:2:2 are
// averaged in pairs.
class ReferenceDecoder {
  public:
    using Use = std::function<void(const Picture&)>;

    // `fourcc`: MJPG or H264. Throws std::runtime_error.
    ReferenceDecoder(std::uint32_t fourcc, Use use);
    ~ReferenceDecoder();
    ReferenceDecoder(const ReferenceDecoder&) = delete;
    ReferenceDecoder& operator=(const ReferenceDecoder&) = delete;

    // One payload; false when the decoder calls it damaged. Pictures come in the order of showing.
    bool decode(const std::vector<std::uint8_t>& payload);
    void finish();
    // A file of payloads, one behind the other, to its end.
    void decodeFile(const std::string& path);

  private:
    struct Library;
    bool send(const std::uint8_t* bytes, std::size_t length);

    std::unique_ptr<Library> library_;
    Use use_;
};

}  // namespace support
