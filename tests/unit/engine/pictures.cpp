#include "tests/unit/engine/pictures.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

namespace pictures {
namespace {

std::size_t pictureBytes(int code, int wstride, int hstride) {
    const auto pixels = static_cast<std::size_t>(wstride) * static_cast<std::size_t>(hstride);
    switch (code) {
        case RK_FORMAT_BGR_888:
        case RK_FORMAT_RGB_888:
            return pixels * 3;
        case RK_FORMAT_RGB_565:
        case RK_FORMAT_YCbCr_422_SP:
        case RK_FORMAT_YCrCb_422_SP:
            return pixels * 2;
        default:
            return pixels * 3 / 2;
    }
}

}  // namespace

const std::vector<Code> sources = {
    {RK_FORMAT_YCrCb_420_P, "YCrCb_420_P"},   {RK_FORMAT_YCbCr_420_P, "YCbCr_420_P"},
    {RK_FORMAT_YCrCb_420_SP, "YCrCb_420_SP"}, {RK_FORMAT_YCbCr_420_SP, "YCbCr_420_SP"},
    {RK_FORMAT_YCrCb_422_SP, "YCrCb_422_SP"}, {RK_FORMAT_YCbCr_422_SP, "YCbCr_422_SP"},
    {RK_FORMAT_BGR_888, "BGR_888"},           {RK_FORMAT_RGB_888, "RGB_888"},
};

const std::vector<Code> destinations = {
    {RK_FORMAT_YCrCb_420_SP, "YCrCb_420_SP"}, {RK_FORMAT_YCbCr_420_SP, "YCbCr_420_SP"},
    {RK_FORMAT_RGB_565, "RGB_565"},           {RK_FORMAT_YCrCb_420_P, "YCrCb_420_P"},
    {RK_FORMAT_YCbCr_420_P, "YCbCr_420_P"},
};

bool isYuv(int code) {
    return code != RK_FORMAT_BGR_888 && code != RK_FORMAT_RGB_888 && code != RK_FORMAT_RGB_565;
}

bool halvesChromaLines(int code) {
    return isYuv(code) && code != RK_FORMAT_YCrCb_422_SP && code != RK_FORMAT_YCbCr_422_SP;
}

Guarded::Guarded(std::size_t bytes) : size_(bytes) {
    const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    const std::size_t usable = (bytes + page - 1) / page * page;
    mapped_ = usable + page;
    mapping_ = mmap(nullptr, mapped_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (mapping_ == MAP_FAILED) {
        throw std::runtime_error("no memory for a test picture");
    }
    data_ = static_cast<std::uint8_t*>(mapping_) + usable - bytes;
    mprotect(static_cast<std::uint8_t*>(mapping_) + usable, page, PROT_NONE);
}

Guarded::~Guarded() {
    munmap(mapping_, mapped_);
}

Picture::Picture(int code, int wstride, int hstride)
    : code_(code),
      wstride_(wstride),
      hstride_(hstride),
      memory_(pictureBytes(code, wstride, hstride)) {}

Picture::Places Picture::places(int x, int y) const {
    const auto stride = static_cast<std::size_t>(wstride_);
    const auto lines = static_cast<std::size_t>(hstride_);
    const auto pixel = static_cast<std::size_t>(y) * stride + static_cast<std::size_t>(x);
    if (code_ == RK_FORMAT_BGR_888) {
        return {pixel * 3 + 2, pixel * 3 + 1, pixel * 3};
    }
    if (code_ == RK_FORMAT_RGB_888) {
        return {pixel * 3, pixel * 3 + 1, pixel * 3 + 2};
    }
    const std::size_t column = std::min(static_cast<std::size_t>(x) / 2, stride / 2 - 1);
    const std::size_t line = halvesChromaLines(code_)
                                 ? std::min(static_cast<std::size_t>(y) / 2, lines / 2 - 1)
                                 : static_cast<std::size_t>(y);
    const std::size_t base = stride * lines;
    std::size_t first = 0;
    std::size_t second = 0;
    if (code_ == RK_FORMAT_YCbCr_420_P || code_ == RK_FORMAT_YCrCb_420_P) {
        first = base + line * (stride / 2) + column;
        second = first + base / 4;
    } else {
        first = base + line * stride + column * 2;
        second = first + 1;
    }
    const bool swapped = code_ == RK_FORMAT_YCrCb_420_P || code_ == RK_FORMAT_YCrCb_420_SP ||
                         code_ == RK_FORMAT_YCrCb_422_SP;
    return swapped ? Places{pixel, second, first} : Places{pixel, first, second};
}

Sample Picture::at(int x, int y) const {
    const std::uint8_t* bytes = memory_.data();
    if (code_ == RK_FORMAT_RGB_565) {
        const std::size_t place =
            (static_cast<std::size_t>(y) * static_cast<std::size_t>(wstride_) +
             static_cast<std::size_t>(x)) *
            2;
        const int word = bytes[place] | bytes[place + 1] << 8;
        return {word >> 11, word >> 5 & 0x3f, word & 0x1f};
    }
    const Places place = places(x, y);
    return {bytes[place.a], bytes[place.b], bytes[place.c]};
}

void Picture::put(int x, int y, const Sample& sample) {
    const Places place = places(x, y);
    memory_.data()[place.a] = static_cast<std::uint8_t>(sample.a);
    memory_.data()[place.b] = static_cast<std::uint8_t>(sample.b);
    memory_.data()[place.c] = static_cast<std::uint8_t>(sample.c);
}

void Picture::fill(const Sample& sample) {
    for (int y = 0; y < hstride_; ++y) {
        for (int x = 0; x < wstride_; ++x) {
            put(x, y, sample);
        }
    }
}

void Picture::fillRandom(unsigned seed) {
    std::mt19937 random(seed);
    for (std::size_t i = 0; i < memory_.size(); ++i) {
        memory_.data()[i] = static_cast<std::uint8_t>(random());
    }
}

void Picture::fillBytes(std::uint8_t value) {
    std::memset(memory_.data(), value, memory_.size());
}

rga_info_t Picture::info() {
    return info(0, 0, wstride_, hstride_);
}

rga_info_t Picture::info(int x, int y, int width, int height) {
    rga_info_t record;
    std::memset(&record, 0, sizeof record);
    record.fd = -1;
    record.mmuFlag = 1;
    record.virAddr = memory_.data();
    rga_set_rect(&record.rect, x, y, width, height, wstride_, hstride_, code_);
    return record;
}

Sample red(int code) {
    if (isYuv(code)) {
        return {82, 90, 240};
    }
    return code == RK_FORMAT_RGB_565 ? Sample{31, 0, 0} : Sample{255, 0, 0};
}

Sample green(int code) {
    if (isYuv(code)) {
        return {145, 54, 34};
    }
    return code == RK_FORMAT_RGB_565 ? Sample{0, 63, 0} : Sample{0, 255, 0};
}

Sample blue(int code) {
    if (isYuv(code)) {
        return {41, 240, 110};
    }
    return code == RK_FORMAT_RGB_565 ? Sample{0, 0, 31} : Sample{0, 0, 255};
}

std::string describe(const Sample& sample) {
    return std::to_string(sample.a) + "," + std::to_string(sample.b) + "," +
           std::to_string(sample.c);
}

int distance(const Sample& one, const Sample& other) {
    return std::max(
        {std::abs(one.a - other.a), std::abs(one.b - other.b), std::abs(one.c - other.c)});
}

}  // namespace pictures
