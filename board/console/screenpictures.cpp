#include "board/console/screenpictures.h"

#include "board/console/jpegencoder.h"
#include "board/console/livepart.h"
#include "board/media/stamp.h"

#include <drm_fourcc.h>
#include <libyuv.h>

#include <algorithm>

namespace board::console {

namespace {

constexpr PictureSize largest{1280, 720};
constexpr int quality = 80;
constexpr std::uint32_t mostPixels = 16384;  // of a side

// Whether `lines` lines of `bytes` bytes lie inside the memory.
bool liesInside(const MappedMemory::Bytes& memory, std::uint32_t offset, std::uint32_t pitch,
                std::uint32_t bytes, std::uint32_t lines) {
    return memory.data != nullptr && lines > 0 && bytes <= pitch &&
           offset + std::uint64_t(pitch) * (lines - 1) + bytes <= memory.size;
}

bool isIntact(const wire::ViewPicture& picture, const std::uint8_t* luma) {
    if (picture.marked == 0)
        return true;
    const auto stamp = readStamp(luma, 1, picture.pitches[0], picture.width, picture.height);
    return stamp && stamp->frame == picture.mark;
}

}  // namespace

std::string ScreenPictures::part(const ViewPacket& packet) {
    wire::ViewPicture picture{};
    if (!packet.read(picture) || picture.width == 0 || picture.height == 0 ||
        picture.width > mostPixels || picture.height > mostPixels)
        return {};
    const PictureSize size = fitInto({picture.width, picture.height}, largest);
    small_.resize(size.width, size.height);
    if (picture.format == 0)
        paintBlack();
    else if (!scale(picture, packet.descriptors.list()))
        return {};
    small_.pad();
    LivePart part;
    part.jpeg = encodeJpeg(small_, quality);
    if (picture.marked != 0) {
        part.frame = picture.frame;
        part.age_ms = double(picture.shown_ns - picture.taken_ns) / 1e6;
    }
    part.width = picture.width;
    part.height = picture.height;
    return part.jpeg.empty() ? "" : part.text();
}

void ScreenPictures::forget() {
    memory_.clear();
}

void ScreenPictures::paintBlack() {
    std::fill(small_.y.begin(), small_.y.end(), std::uint8_t(0));
    std::fill(small_.u.begin(), small_.u.end(), std::uint8_t(128));
    std::fill(small_.v.begin(), small_.v.end(), std::uint8_t(128));
}

bool ScreenPictures::scale(const wire::ViewPicture& picture, const std::vector<int>& descriptors) {
    if (descriptors.empty())
        return false;
    const MappedMemory::Bytes first = memory_.of(descriptors.front());
    const MappedMemory::Bytes second = memory_.of(descriptors.back());
    if (picture.format == DRM_FORMAT_XRGB8888)
        return liesInside(first, picture.offsets[0], picture.pitches[0], picture.width * 4,
                          picture.height) &&
               scaleXrgb(picture, first.data + picture.offsets[0]);
    const std::uint32_t pairs = (picture.width + 1) / 2, lines = (picture.height + 1) / 2;
    return picture.format == DRM_FORMAT_NV12 &&
           liesInside(first, picture.offsets[0], picture.pitches[0], picture.width,
                      picture.height) &&
           liesInside(second, picture.offsets[1], picture.pitches[1], pairs * 2, lines) &&
           scaleNv12(picture, first.data + picture.offsets[0], second.data + picture.offsets[1]);
}

bool ScreenPictures::scaleNv12(const wire::ViewPicture& picture, const std::uint8_t* luma,
                               const std::uint8_t* chroma) {
    const int stride = int(small_.stride), width = int(small_.width), height = int(small_.height);
    scratch_.resize(std::size_t(stride) * std::size_t((height + 1) / 2));
    libyuv::NV12Scale(luma, int(picture.pitches[0]), chroma, int(picture.pitches[1]),
                      int(picture.width), int(picture.height), small_.y.data(), stride,
                      scratch_.data(), stride, width, height, libyuv::kFilterBox);
    libyuv::SplitUVPlane(scratch_.data(), stride, small_.u.data(), stride / 2, small_.v.data(),
                         stride / 2, (width + 1) / 2, (height + 1) / 2);
    small_.expandRange();
    return isIntact(picture, luma);
}

bool ScreenPictures::scaleXrgb(const wire::ViewPicture& picture, const std::uint8_t* pixels) {
    const int stride = int(small_.stride), width = int(small_.width), height = int(small_.height);
    scratch_.resize(std::size_t(width) * std::size_t(height) * 4);
    libyuv::ARGBScale(pixels, int(picture.pitches[0]), int(picture.width), int(picture.height),
                      scratch_.data(), width * 4, width, height, libyuv::kFilterBox);
    libyuv::ARGBToJ420(scratch_.data(), width * 4, small_.y.data(), stride, small_.u.data(),
                       stride / 2, small_.v.data(), stride / 2, width, height);
    return true;
}

}  // namespace board::console
