#include "board/media/payloaddamage.h"

#include <linux/videodev2.h>

#include <algorithm>

namespace board {

namespace {

struct Named {
    const char* name;
    PayloadFault fault;
};

constexpr Named all[] = {
    {"truncate", PayloadFault::truncate},
    {"flip-bits", PayloadFault::flipBits},
    {"no-huffman", PayloadFault::noHuffman},
    {"bytes-before", PayloadFault::bytesBefore},
    {"bytes-after", PayloadFault::bytesAfter},
    {"wrong-size", PayloadFault::wrongSize},
    {"empty", PayloadFault::empty},
    {"oversized", PayloadFault::oversized},
    {"error-flag", PayloadFault::errorFlag},
};
static_assert(sizeof all / sizeof all[0] == payloadFaultCount);

constexpr std::size_t mostStrayBytes = 4096;
constexpr std::size_t longestSegment = 65533;  // of a JPEG, without its marker and length

using Bytes = std::vector<std::uint8_t>;

Bytes noise(std::size_t room, std::mt19937& random) {
    Bytes bytes(std::min<std::size_t>(1 + random() % mostStrayBytes, room));
    for (std::uint8_t& byte : bytes)
        byte = std::uint8_t(random());
    return bytes;
}

void flipBits(Bytes& payload, std::mt19937& random) {
    if (payload.empty())
        return;
    const std::size_t bits = 1 + payload.size() / 1000;
    for (std::size_t i = 0; i < bits; ++i)
        payload[random() % payload.size()] ^= std::uint8_t(1u << random() % 8);
}

// Calls `use` with the place of each segment of a JPEG's header (its marker, its whole length),
// until the scan begins; `use` returns whether the walk goes on at the same place.
template <typename Use>
void forSegments(Bytes& jpeg, const Use& use) {
    std::size_t at = 2;
    while (at + 4 <= jpeg.size() && jpeg[at] == 0xff && jpeg[at + 1] != 0xda) {
        const std::size_t length = 2 + (std::size_t(jpeg[at + 2]) << 8 | jpeg[at + 3]);
        if (at + length > jpeg.size())
            return;
        if (!use(at, jpeg[at + 1], length))
            at += length;
    }
}

void dropHuffmanTables(Bytes& jpeg) {
    forSegments(jpeg, [&jpeg](std::size_t at, std::uint8_t marker, std::size_t length) {
        if (marker != 0xc4)
            return false;
        const auto first = jpeg.begin() + std::ptrdiff_t(at);
        jpeg.erase(first, first + std::ptrdiff_t(length));
        return true;
    });
}

void changeSize(Bytes& jpeg, std::mt19937& random) {
    const unsigned how = random() % 5;
    forSegments(jpeg, [&jpeg, how](std::size_t at, std::uint8_t marker, std::size_t length) {
        if (marker != 0xc0 || length < 9)
            return false;
        const auto change = [&](std::size_t place) {
            const unsigned old = unsigned(jpeg[at + place]) << 8 | jpeg[at + place + 1];
            const unsigned sizes[] = {old * 2, old / 2, old + 16, 65535, 1};
            jpeg[at + place] = std::uint8_t(sizes[how] >> 8);
            jpeg[at + place + 1] = std::uint8_t(sizes[how]);
        };
        change(5);  // height
        change(7);  // width
        return false;
    });
}

// Comments behind the start of the image, as long as they fit.
void fillJpeg(Bytes& jpeg, std::size_t room) {
    Bytes comments;
    while (jpeg.size() + comments.size() + 5 <= room) {
        const std::size_t left = room - jpeg.size() - comments.size() - 4;
        const std::size_t length = std::min(left, longestSegment);
        const std::size_t field = length + 2;
        comments.insert(comments.end(),
                        {0xff, 0xfe, std::uint8_t(field >> 8), std::uint8_t(field)});
        comments.insert(comments.end(), length, ' ');
    }
    if (jpeg.size() >= 2)
        jpeg.insert(jpeg.begin() + 2, comments.begin(), comments.end());
}

// A filler unit behind the picture.
void fillH264(Bytes& unit, std::size_t room) {
    if (unit.size() + 7 > room)
        return;
    const std::size_t length = room - unit.size() - 6;
    unit.insert(unit.end(), {0, 0, 0, 1, 12});
    unit.insert(unit.end(), length, 0xff);
    unit.push_back(0x80);
}

}  // namespace

std::optional<PayloadFault> payloadFaultNamed(const std::string& name) {
    for (const Named& known : all)
        if (name == known.name)
            return known.fault;
    return std::nullopt;
}

std::string payloadFaultNames() {
    std::string names;
    for (const Named& known : all)
        names += (names.empty() ? "" : ", ") + std::string(known.name);
    return names;
}

bool canHave(std::uint32_t fourcc, PayloadFault fault) {
    switch (fault) {
        case PayloadFault::noHuffman:
        case PayloadFault::wrongSize:
            return fourcc == V4L2_PIX_FMT_MJPEG;
        case PayloadFault::oversized:
            return fourcc == V4L2_PIX_FMT_MJPEG || fourcc == V4L2_PIX_FMT_H264;
        default:
            return true;
    }
}

void damage(PayloadFault fault, std::uint32_t fourcc, std::size_t room, std::mt19937& random,
            Bytes& payload) {
    const std::size_t left = room > payload.size() ? room - payload.size() : 0;
    switch (fault) {
        case PayloadFault::truncate:
            payload.resize(payload.size() * (random() % 95) / 100);
            break;
        case PayloadFault::flipBits:
            flipBits(payload, random);
            break;
        case PayloadFault::noHuffman:
            dropHuffmanTables(payload);
            break;
        case PayloadFault::bytesBefore: {
            const Bytes stray = noise(left, random);
            payload.insert(payload.begin(), stray.begin(), stray.end());
            break;
        }
        case PayloadFault::bytesAfter: {
            const Bytes stray = noise(left, random);
            payload.insert(payload.end(), stray.begin(), stray.end());
            break;
        }
        case PayloadFault::wrongSize:
            changeSize(payload, random);
            break;
        case PayloadFault::empty:
            payload.clear();
            break;
        case PayloadFault::oversized:
            if (fourcc == V4L2_PIX_FMT_MJPEG)
                fillJpeg(payload, room);
            else
                fillH264(payload, room);
            break;
        case PayloadFault::errorFlag:
            break;
    }
}

}  // namespace board
