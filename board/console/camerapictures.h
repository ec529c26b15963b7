// What the camera delivers, as parts of a live view.
#pragma once

#include "board/console/h264decoder.h"
#include "board/console/i420picture.h"
#include "board/console/jpegdecoder.h"
#include "board/console/viewsocket.h"

#include <chrono>
#include <optional>
#include <string>

namespace board::console {

// Used by one thread.
class CameraPictures {
  public:
    // The part for a packet of the camera's view; empty when there is none: a payload that shows
    // nothing, or one too many for the live view's rate.
    std::string part(const ViewPacket& packet, std::chrono::steady_clock::time_point now);
    // Whether the camera's payloads build on each other.
    bool needsEveryPayload() const { return h264_.has_value(); }
    void forget();  // another stream comes next

  private:
    bool decode(const wire::ViewPayload& payload, const std::uint8_t* bytes);
    bool decodeMjpg(const wire::ViewPayload& payload, const std::uint8_t* bytes);
    bool decodeYuyv(const wire::ViewPayload& payload, const std::uint8_t* bytes);
    bool decodeH264(const wire::ViewPayload& payload, const std::uint8_t* bytes);

    I420Picture small_, whole_;
    BgrxPicture bgrx_, scaled_;
    std::optional<H264Decoder> h264_;
    std::uint32_t width_ = 0, height_ = 0, lastFrame_ = 0;
    std::chrono::steady_clock::time_point due_{};
};

}  // namespace board::console
