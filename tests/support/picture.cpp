#include "tests/support/picture.h"

#include <gtest/gtest.h>
#include <linux/videodev2.h>

#include <cmath>
#include <filesystem>
#include <memory>
#include <stdexcept>

#include "board/media/stamp.h"

extern "C" {
#include <libswscale/swscale.h>
}

namespace support {

namespace {

double decibels(const std::vector<std::uint8_t>& a, const std::vector<std::uint8_t>& b,
                std::size_t first, std::size_t step) {
    double sum = 0;
    std::size_t samples = 0;
    for (std::size_t i = first; i < a.size(); i += step, ++samples) {
        const double difference = double(a[i]) - double(b[i]);
        sum += difference * difference;
    }
    return sum == 0 ? 99 : 10 * std::log10(255.0 * 255.0 * double(samples) / sum);
}

Picture fromYuyv(const std::vector<std::uint8_t>& yuyv, std::uint32_t width, std::uint32_t height) {
    Picture picture{width, height, {}, {}};
    picture.luma.resize(std::size_t(width) * height);
    picture.chroma.resize(std::size_t(width) * (height / 2));
    const std::size_t stride = std::size_t(width) * 2;
    for (std::size_t i = 0; i < picture.luma.size(); ++i) {
        picture.luma[i] = yuyv[2 * i];
    }
    for (std::size_t line = 0; line < height / 2; ++line) {
        const std::uint8_t* upper = yuyv.data() + 2 * line * stride;
        for (std::size_t x = 0; x < width; ++x) {
            const unsigned sum = unsigned(upper[2 * x + 1]) + upper[2 * x + 1 + stride];
            picture.chroma[line * width + x] = std::uint8_t((sum + 1) / 2);
        }
    }
    return picture;
}

Picture scaledBySwscale(const Picture& source, std::uint32_t width, std::uint32_t height) {
    Picture result{width, height, {}, {}};
    result.luma.resize(std::size_t(width) * height);
    result.chroma.resize(std::size_t(width) * (height / 2));
    const std::unique_ptr<SwsContext, void (*)(SwsContext*)> scaler(
        sws_getContext(int(source.width), int(source.height), AV_PIX_FMT_NV12, int(width),
                       int(height), AV_PIX_FMT_NV12, SWS_BILINEAR | SWS_ACCURATE_RND, nullptr,
                       nullptr, nullptr),
        sws_freeContext);
    if (!scaler) {
        throw std::runtime_error("swscale does not take these sizes");
    }
    const std::uint8_t* from[] = {source.luma.data(), source.chroma.data()};
    const int fromStrides[] = {int(source.width), int(source.width)};
    std::uint8_t* to[] = {result.luma.data(), result.chroma.data()};
    const int toStrides[] = {int(width), int(width)};
    sws_scale(scaler.get(), from, fromStrides, 0, int(source.height), to, toStrides);
    return result;
}

Picture readPicture(const std::string& path, std::uint32_t width, std::uint32_t height) {
    const std::string bytes = readFile(path);
    const std::size_t lumaBytes = std::size_t(width) * height;
    if (bytes.size() != lumaBytes + std::size_t(width) * (height / 2)) {
        throw std::runtime_error(path + " is not as long as its size says");
    }
    const auto middle = bytes.begin() + std::ptrdiff_t(lumaBytes);
    return {width, height, {bytes.begin(), middle}, {middle, bytes.end()}};
}

}  // namespace

std::vector<ShownFrame> takeShownFrames(Board& board, unsigned count) {
    const std::string folder = makeTemporaryFolder("frames-");
    board.order(R"({"order":"frames","folder":")" + folder + R"(","count":)" +
                std::to_string(count) + "}");
    rapidjson::Document index;
    index.Parse(readFile(folder + "/index.json").c_str());
    if (index.HasParseError() || !index.IsArray()) {
        throw std::runtime_error(folder + "/index.json is no list");
    }
    std::vector<ShownFrame> frames;
    for (const rapidjson::Value& entry : index.GetArray()) {
        ShownFrame shown;
        shown.picture = readPicture(folder + "/" + entry["file"].GetString(),
                                    entry["width"].GetUint(), entry["height"].GetUint());
        const auto stamp = board::readStamp(shown.picture.luma.data(), 1, shown.picture.width,
                                            shown.picture.width, shown.picture.height);
        if (stamp) {
            shown.frame = stamp->frame;
            shown.time_100us = stamp->time_100us;
            frames.push_back(std::move(shown));
        }
    }
    std::filesystem::remove_all(folder);
    return frames;
}

Likeness compare(const Picture& seen, const Picture& expected) {
    if (seen.width != expected.width || seen.height != expected.height) {
        ADD_FAILURE() << "a picture of " << seen.width << "x" << seen.height << " instead of "
                      << expected.width << "x" << expected.height;
        return {};
    }
    return {decibels(seen.luma, expected.luma, 0, 1), decibels(seen.chroma, expected.chroma, 0, 2),
            decibels(seen.chroma, expected.chroma, 1, 2)};
}

ExpectedPictures::ExpectedPictures(const std::string& recording, std::uint32_t cameraWidth,
                                   std::uint32_t cameraHeight)
    : loop_(board::loadPictures(recording, V4L2_PIX_FMT_YUYV, cameraWidth, cameraHeight,
                                board::loopLength(cameraWidth, cameraHeight))) {}

Picture ExpectedPictures::of(const ShownFrame& shown) const {
    std::vector<std::uint8_t> yuyv(loop_.pictureBytes);
    board::composeFrame(loop_, shown.frame, shown.time_100us, yuyv.data());
    Picture picture = fromYuyv(yuyv, loop_.width, loop_.height);
    if (shown.picture.width == loop_.width && shown.picture.height == loop_.height) {
        return picture;
    }
    return scaledBySwscale(picture, shown.picture.width, shown.picture.height);
}

Colour middleColour(const Picture& picture) {
    Colour colour;
    std::size_t samples = 0;
    for (std::uint32_t y = picture.height / 2; y < picture.height * 3 / 4; y += 2) {
        for (std::uint32_t x = picture.width / 4 * 2; x < picture.width * 3 / 4; x += 2) {
            const std::size_t chroma = std::size_t(y / 2) * picture.width + (x & ~1u);
            colour.y += picture.luma[std::size_t(y) * picture.width + x];
            colour.u += picture.chroma[chroma];
            colour.v += picture.chroma[chroma + 1];
            ++samples;
        }
    }
    colour.y /= double(samples);
    colour.u /= double(samples);
    colour.v /= double(samples);
    return colour;
}

}  // namespace support
