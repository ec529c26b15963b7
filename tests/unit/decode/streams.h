// Compressed test streams, made and decoded by libavcodec, independently of what is tested.
#pragma once

#include <cstdint>
#include <vector>

namespace streams {

using Bytes = std::vector<std::uint8_t>;

// Three planes without padding; chroma has half the columns and half (4:2:0) or all of the lines.
struct Picture {
    int width = 0, height = 0;
    bool halfLines = true;
    Bytes y, u, v;
};

// Number n of a moving sequence. Even sizes.
Picture drawn(int width, int height, int n, bool halfLines = true);

Bytes jpegOf(const Picture& picture);
Picture decodedJpeg(const Bytes& jpeg);

struct H264Settings {
    int keyDistance = 10;
    int bFrames = 0;
    bool headersOnce = false;  // parameter sets with the first key frame only
};
// One packet a picture, in decoding order.
std::vector<Bytes> h264Of(const std::vector<Picture>& pictures, const H264Settings& settings);
// In showing order.
std::vector<Picture> decodedH264(const std::vector<Bytes>& packets);

// What a display in NV12 of that size shows of it: chroma lines in pairs become one.
Bytes nv12Of(const Picture& picture);
// In decibels, over all bytes; 99 when equal, 0 for different lengths.
double psnr(const Bytes& seen, const Bytes& expected);

// The last two leave alone what they do not find.
// Without its Huffman tables, as many cameras send it.
Bytes withoutHuffmanTables(const Bytes& jpeg);
// With another size in its header.
Bytes withSize(const Bytes& jpeg, unsigned width, unsigned height);

}  // namespace streams
