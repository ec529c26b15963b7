#include "board/console/camerapictures.h"

#include "board/console/jpegencoder.h"
#include "board/console/livepart.h"
#include "board/console/mappedmemory.h"

#include <libyuv.h>

#include <algorithm>

namespace board::console {

namespace {

constexpr PictureSize largest{640, 480};
constexpr int quality = 75;
constexpr auto period =
    std::chrono::milliseconds(60);                // two frames of thirty a second, four of sixty
constexpr std::uint32_t mostPixels = 8192;        // of a side
constexpr std::uint32_t frameNumbers = 1u << 24;  // as in the pictures' marks

constexpr std::uint32_t fourcc(char a, char b, char c, char d) {
    return std::uint32_t(a) | std::uint32_t(b) << 8 | std::uint32_t(c) << 16 |
           std::uint32_t(d) << 24;
}

}  // namespace

std::string CameraPictures::part(const ViewPacket& packet,
                                 std::chrono::steady_clock::time_point now) {
    wire::ViewPayload payload{};
    if (!packet.read(payload) || packet.descriptors.list().empty() || payload.width == 0 ||
        payload.height == 0 || payload.width > mostPixels || payload.height > mostPixels)
        return {};
    MappedMemory memory;
    const MappedMemory::Bytes bytes = memory.of(packet.descriptors.list().front());
    if (bytes.data == nullptr || payload.bytes == 0 || payload.bytes > bytes.size)
        return {};
    // Payloads that build on each other come all of them, others as often as they are asked for.
    if (!decode(payload, bytes.data) || (needsEveryPayload() && now < due_))
        return {};
    due_ = now + period;
    small_.pad();
    LivePart part;
    part.jpeg = encodeJpeg(small_, quality);
    part.frame = payload.frame % frameNumbers;
    part.width = payload.width;
    part.height = payload.height;
    return part.jpeg.empty() ? "" : part.text();
}

void CameraPictures::forget() {
    h264_.reset();
}

bool CameraPictures::decode(const wire::ViewPayload& payload, const std::uint8_t* bytes) {
    const bool h264 = payload.fourcc == fourcc('H', '2', '6', '4');
    if (!h264 || payload.width != width_ || payload.height != height_)
        forget();
    width_ = payload.width;
    height_ = payload.height;
    if (h264)
        return decodeH264(payload, bytes);
    if (payload.fourcc == fourcc('M', 'J', 'P', 'G'))
        return decodeMjpg(payload, bytes);
    return payload.fourcc == fourcc('Y', 'U', 'Y', 'V') && decodeYuyv(payload, bytes);
}

bool CameraPictures::decodeMjpg(const wire::ViewPayload& payload, const std::uint8_t* bytes) {
    if (!decodeJpeg(bytes, payload.bytes, largest.width, bgrx_))
        return false;
    const PictureSize size = fitInto({bgrx_.width, bgrx_.height}, largest);
    const int width = int(size.width), height = int(size.height);
    scaled_.bytes.resize(std::size_t(size.width) * size.height * 4);
    libyuv::ARGBScale(bgrx_.bytes.data(), int(bgrx_.width) * 4, int(bgrx_.width), int(bgrx_.height),
                      scaled_.bytes.data(), width * 4, width, height, libyuv::kFilterBox);
    small_.resize(size.width, size.height);
    libyuv::ARGBToJ420(scaled_.bytes.data(), width * 4, small_.y.data(), int(small_.stride),
                       small_.u.data(), int(small_.stride / 2), small_.v.data(),
                       int(small_.stride / 2), width, height);
    return true;
}

bool CameraPictures::decodeYuyv(const wire::ViewPayload& payload, const std::uint8_t* bytes) {
    // What a short payload leaves out keeps the lines of the one before.
    const std::uint32_t pitch = (payload.width + 1) / 2 * 4;
    const std::uint32_t lines = std::min(payload.height, payload.bytes / pitch) & ~1u;
    if (lines == 0)
        return false;
    whole_.resize(payload.width, payload.height);
    const int stride = int(whole_.stride);
    libyuv::YUY2ToI420(bytes, int(pitch), whole_.y.data(), stride, whole_.u.data(), stride / 2,
                       whole_.v.data(), stride / 2, int(payload.width), int(lines));
    const PictureSize size = fitInto({payload.width, payload.height}, largest);
    small_.resize(size.width, size.height);
    const int target = int(small_.stride);
    libyuv::I420Scale(whole_.y.data(), stride, whole_.u.data(), stride / 2, whole_.v.data(),
                      stride / 2, int(payload.width), int(payload.height), small_.y.data(), target,
                      small_.u.data(), target / 2, small_.v.data(), target / 2, int(size.width),
                      int(size.height), libyuv::kFilterBox);
    small_.expandRange();
    return true;
}

bool CameraPictures::decodeH264(const wire::ViewPayload& payload, const std::uint8_t* bytes) {
    if (!h264_)
        h264_.emplace();
    else if (payload.frame != lastFrame_ + 1)
        h264_->skip();
    lastFrame_ = payload.frame;
    return h264_->decode(bytes, payload.bytes, largest, small_);
}

}  // namespace board::console
