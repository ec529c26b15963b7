#include "board/media/recording.h"

#include "board/media/decodedfile.h"

#include <linux/videodev2.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <stdexcept>

namespace board {

namespace {

constexpr char packagedRecording[] = "/usr/share/doc/opencv-doc/examples/data/vtest.avi";
constexpr std::size_t loopBudget = 200000000;
constexpr unsigned longestLoop = 48;

struct Colour {  // BT.601, limited range
    std::uint8_t y, u, v;
};

struct Field {
    const char* name;
    std::vector<Colour> columns;
};

const std::vector<Field>& fields() {
    static const std::vector<Field> all = {
        {"red", {{81, 90, 240}}},
        {"green", {{145, 54, 34}}},
        {"blue", {{41, 240, 110}}},
        {"grey", {{126, 128, 128}}},
        {"bars",
         {{180, 128, 128},
          {162, 44, 142},
          {131, 156, 44},
          {112, 72, 58},
          {84, 184, 198},
          {65, 100, 212},
          {35, 212, 114},
          {16, 128, 128}}},
    };
    return all;
}

std::string fourccText(std::uint32_t fourcc) {
    std::string text;
    for (int i = 0; i < 4; ++i)
        text += char(fourcc >> (8 * i) & 0xff);
    return text;
}

// Offsets of the chroma planes behind the luma plane, for the planar formats.
struct ChromaPlanes {
    std::size_t u, v;
    std::uint32_t step, stride;
};

ChromaPlanes chromaPlanes(const PictureLoop& loop) {
    const std::size_t luma = std::size_t(loop.width) * loop.height;
    if (loop.fourcc == V4L2_PIX_FMT_NV12)
        return {luma, luma + 1, 2, loop.width};
    return {luma, luma + luma / 4, 1, loop.width / 2};
}

bool hasChromaPlanes(std::uint32_t fourcc) {
    return fourcc == V4L2_PIX_FMT_NV12 || fourcc == V4L2_PIX_FMT_YUV420;
}

PictureLoop emptyLoop(std::uint32_t fourcc, std::uint32_t width, std::uint32_t height) {
    if (!canLoadPictures(fourcc))
        throw std::runtime_error(
            "format '" + fourccText(fourcc) +
            "' cannot be made from a recording; choose YUYV, NV12, YU12 or GREY");
    if (width == 0 || height == 0 || width % 2 != 0 || height % 2 != 0)
        throw std::runtime_error("picture size " + std::to_string(width) + "x" +
                                 std::to_string(height) + " is not even in both directions");
    PictureLoop loop;
    loop.fourcc = fourcc;
    loop.width = width;
    loop.height = height;
    loop.stride = fourcc == V4L2_PIX_FMT_YUYV ? width * 2 : width;
    loop.pictureBytes = std::size_t(loop.stride) * height;
    if (hasChromaPlanes(fourcc))
        loop.pictureBytes += std::size_t(width) * height / 2;
    return loop;
}

void paint(const PictureLoop& loop, const std::vector<Colour>& columns,
           std::vector<std::uint8_t>& picture) {
    const auto colourAt = [&](std::uint32_t x) { return columns[x * columns.size() / loop.width]; };
    for (std::uint32_t y = 0; y < loop.height; ++y) {
        std::uint8_t* line = picture.data() + std::size_t(y) * loop.stride;
        for (std::uint32_t x = 0; x < loop.width; ++x) {
            const Colour pair = colourAt(x / 2 * 2);  // two pixels share their chroma
            if (loop.fourcc == V4L2_PIX_FMT_YUYV) {
                line[std::size_t(x) * 2] = colourAt(x).y;
                line[std::size_t(x) * 2 + 1] = x % 2 == 0 ? pair.u : pair.v;
            } else {
                line[x] = colourAt(x).y;
            }
        }
    }
    if (!hasChromaPlanes(loop.fourcc))
        return;
    const ChromaPlanes planes = chromaPlanes(loop);
    for (std::uint32_t y = 0; y < loop.height / 2; ++y) {
        for (std::uint32_t x = 0; x < loop.width / 2; ++x) {
            const std::size_t offset =
                std::size_t(y) * planes.stride + std::size_t(x) * planes.step;
            picture[planes.u + offset] = colourAt(x * 2).u;
            picture[planes.v + offset] = colourAt(x * 2).v;
        }
    }
}

void neutralChroma(const PictureLoop& loop, std::uint8_t* picture) {
    const ChromaPlanes planes = chromaPlanes(loop);
    const std::uint32_t cell = stampCell(loop.width);
    for (std::uint32_t y = 0; y < (stampRows * cell + 1) / 2; ++y) {
        for (std::uint32_t x = 0; x < (stampColumns * cell + 1) / 2; ++x) {
            const std::size_t offset =
                std::size_t(y) * planes.stride + std::size_t(x) * planes.step;
            picture[planes.u + offset] = 128;
            picture[planes.v + offset] = 128;
        }
    }
}

}  // namespace

bool canLoadPictures(std::uint32_t fourcc) {
    return fourcc == V4L2_PIX_FMT_YUYV || fourcc == V4L2_PIX_FMT_GREY || hasChromaPlanes(fourcc);
}

PictureLoop loadPictures(const std::string& recording, std::uint32_t fourcc, std::uint32_t width,
                         std::uint32_t height, unsigned count) {
    PictureLoop loop = emptyLoop(fourcc, width, height);
    const std::string prefix = "field:";
    if (recording.compare(0, prefix.size(), prefix) == 0) {
        const auto field = std::find_if(fields().begin(), fields().end(), [&](const Field& known) {
            return recording.substr(prefix.size()) == known.name;
        });
        if (field == fields().end())
            throw std::runtime_error("picture source '" + recording +
                                     "' is unknown; there are red, green, blue, grey and bars");
        loop.pictures.emplace_back(loop.pictureBytes);
        paint(loop, field->columns, loop.pictures.back());
        return loop;
    }
    DecodedFile file(recording);
    while (loop.pictures.size() < count) {
        std::vector<std::uint8_t> picture(loop.pictureBytes);
        if (!file.next(fourcc, width, height, picture.data()))
            break;
        loop.pictures.push_back(std::move(picture));
    }
    if (loop.pictures.empty())
        throw std::runtime_error(recording + ": no picture could be decoded");
    const std::size_t decoded = loop.pictures.size();
    while (loop.pictures.size() < count)
        loop.pictures.push_back(loop.pictures[loop.pictures.size() - decoded]);
    return loop;
}

std::string defaultRecording() {
    if (access(packagedRecording, R_OK) == 0)
        return packagedRecording;
    std::fprintf(stderr, "%s: not readable; colour bars instead (install the package opencv-doc)\n",
                 packagedRecording);
    return "field:bars";
}

unsigned loopLength(std::uint32_t width, std::uint32_t height) {
    const std::size_t bytes = std::max<std::size_t>(std::size_t(width) * height * 2, 1);
    return unsigned(std::clamp<std::size_t>(loopBudget / bytes, 1, longestLoop));
}

void composeFrame(const PictureLoop& loop, std::uint32_t number, std::uint32_t time_100us,
                  std::uint8_t* destination) {
    composeStamped(loop, number % loop.pictures.size(), {number, time_100us}, destination);
}

void composeStamped(const PictureLoop& loop, std::size_t place, const Stamp& stamp,
                    std::uint8_t* destination) {
    const auto& picture = loop.pictures[place];
    std::memcpy(destination, picture.data(), picture.size());
    if (stampRows * stampCell(loop.width) > loop.height)
        return;
    if (loop.fourcc == V4L2_PIX_FMT_YUYV) {
        drawStampYuyv(destination, loop.stride, loop.width, stamp);
        return;
    }
    drawStampLuma(destination, 1, loop.stride, loop.width, stamp);
    if (hasChromaPlanes(loop.fourcc))
        neutralChroma(loop, destination);
}

}  // namespace board
