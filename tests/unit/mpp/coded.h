// Coded pictures to decode, made by the usual encoders, and what libavcodec makes of them.
#pragma once

#include <cstdint>
#include <vector>

namespace coded {

using Bytes = std::vector<std::uint8_t>;

// Samples without padding, chroma as coded.
struct Picture {
    int width = 0, height = 0;
    int chromaWidth = 0, chromaHeight = 0;  // 0: none
    Bytes y, u, v;
    bool damaged = false;  // as the reference decoder says
};

struct Jpeg {
    int width = 64, height = 48;
    int across = 2, down = 2;  // luma samples for one of chroma; 0: luma only
    int lumaFactor = 0;        // vertical sampling factor of all, where it is not `down`
    int quality = 90;
    bool ownTables = false;  // Huffman tables made for the picture
    bool progressive = false;
    bool rgb = false;
    int restart = 0;  // MCU rows
    unsigned seed = 1;
};

// A smooth moving scene with some grain, `number` is its time.
Bytes scene(int width, int height, int number, unsigned seed);  // Y, U, V triplets

Bytes encode(const Jpeg& how);
// Without the segments of this marker (0xc4: the Huffman tables).
Bytes withoutSegments(const Bytes& jpeg, std::uint8_t marker);
// Where the coded blocks begin.
std::size_t scanBegin(const Bytes& jpeg);
Picture decodeJpeg(const Bytes& jpeg);

struct Avc {
    int width = 64, height = 48;
    int frames = 12;
    int bFrames = 0;
    int keyDistance = 250;
    int slices = 1;
    bool highSampling = false;  // 4:2:2
    const char* more = "";      // of x264's own parameters, key=value:...
    unsigned seed = 1;
};

// One access unit each, start codes in front, parameter sets with every key frame.
std::vector<Bytes> encode(const Avc& how);
// Everything in display order.
std::vector<Picture> decodeAvc(const std::vector<Bytes>& units);

double psnr(const Bytes& one, const Bytes& other);

}  // namespace coded
