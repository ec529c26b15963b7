#include <cmath>
#include <cstdio>

#include <jpeglib.h>

#include <cstdlib>
#include <random>

#include "tests/unit/mpp/coded.h"

namespace coded {

Bytes scene(int width, int height, int number, unsigned seed) {
    Bytes pixels;
    pixels.reserve(static_cast<std::size_t>(width) * height * 3);
    std::minstd_rand random(seed + static_cast<unsigned>(number));
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const double wave = std::sin((x + 3 * number) * 0.11) + std::cos((y - number) * 0.07);
            const int grain = static_cast<int>(random() % 5) - 2;
            const bool bar = (x + 5 * number) % width < width / 8;
            pixels.push_back(static_cast<std::uint8_t>((bar ? 200 : 110) + 20 * wave + grain));
            pixels.push_back(static_cast<std::uint8_t>(90 + x * 80 / width));
            pixels.push_back(static_cast<std::uint8_t>(170 - y * 80 / height));
        }
    }
    return pixels;
}

namespace {

void setSampling(jpeg_compress_struct& jpeg, const Jpeg& how) {
    if (how.across == 0) {
        return;
    }
    const int down = how.lumaFactor != 0 ? how.lumaFactor : how.down;
    jpeg.comp_info[0].h_samp_factor = how.across;
    jpeg.comp_info[0].v_samp_factor = down;
    for (int i = 1; i < 3; ++i) {
        jpeg.comp_info[i].h_samp_factor = 1;
        jpeg.comp_info[i].v_samp_factor = down / how.down;
    }
}

}  // namespace

Bytes encode(const Jpeg& how) {
    jpeg_compress_struct jpeg;
    jpeg_error_mgr errors;
    jpeg.err = jpeg_std_error(&errors);
    jpeg_create_compress(&jpeg);
    unsigned char* memory = nullptr;
    unsigned long size = 0;
    jpeg_mem_dest(&jpeg, &memory, &size);
    jpeg.image_width = static_cast<JDIMENSION>(how.width);
    jpeg.image_height = static_cast<JDIMENSION>(how.height);
    jpeg.input_components = how.across == 0 ? 1 : 3;
    jpeg.in_color_space = how.across == 0 ? JCS_GRAYSCALE : how.rgb ? JCS_RGB : JCS_YCbCr;
    jpeg_set_defaults(&jpeg);
    if (how.rgb) {
        jpeg_set_colorspace(&jpeg, JCS_RGB);
    }
    jpeg_set_quality(&jpeg, how.quality, TRUE);
    setSampling(jpeg, how);
    jpeg.optimize_coding = how.ownTables ? TRUE : FALSE;
    jpeg.restart_in_rows = how.restart;
    if (how.progressive) {
        jpeg_simple_progression(&jpeg);
    }
    jpeg_start_compress(&jpeg, TRUE);
    const Bytes pixels = scene(how.width, how.height, 0, how.seed);
    Bytes line(static_cast<std::size_t>(how.width) * jpeg.input_components);
    while (jpeg.next_scanline < jpeg.image_height) {
        const std::uint8_t* from =
            pixels.data() + static_cast<std::size_t>(jpeg.next_scanline) * how.width * 3;
        for (int x = 0; x < how.width; ++x) {
            for (int c = 0; c < jpeg.input_components; ++c) {
                line[static_cast<std::size_t>(x) * jpeg.input_components + c] = from[3 * x + c];
            }
        }
        JSAMPROW row = line.data();
        jpeg_write_scanlines(&jpeg, &row, 1);
    }
    jpeg_finish_compress(&jpeg);
    Bytes bytes(memory, memory + size);
    jpeg_destroy_compress(&jpeg);
    std::free(memory);
    return bytes;
}

namespace {

// Length of the segment at `at`, marker included; 0 at the scan's own.
std::size_t segmentLength(const Bytes& jpeg, std::size_t at) {
    const std::uint8_t marker = jpeg[at + 1];
    return marker == 0xda ? 0 : marker == 0xd8 ? 2 : 2 + jpeg[at + 2] * 256U + jpeg[at + 3];
}

}  // namespace

Bytes withoutSegments(const Bytes& jpeg, std::uint8_t marker) {
    Bytes rest;
    std::size_t at = 0;
    while (const std::size_t length = segmentLength(jpeg, at)) {
        if (jpeg[at + 1] != marker) {
            rest.insert(rest.end(), jpeg.begin() + static_cast<std::ptrdiff_t>(at),
                        jpeg.begin() + static_cast<std::ptrdiff_t>(at + length));
        }
        at += length;
    }
    rest.insert(rest.end(), jpeg.begin() + static_cast<std::ptrdiff_t>(at), jpeg.end());
    return rest;
}

std::size_t scanBegin(const Bytes& jpeg) {
    std::size_t at = 0;
    while (const std::size_t length = segmentLength(jpeg, at)) {
        at += length;
    }
    return at + 2 + jpeg[at + 2] * 256U + jpeg[at + 3];
}

double psnr(const Bytes& one, const Bytes& other) {
    if (one.size() != other.size() || one.empty()) {
        return 0;
    }
    double sum = 0;
    for (std::size_t i = 0; i < one.size(); ++i) {
        const double difference = static_cast<double>(one[i]) - other[i];
        sum += difference * difference;
    }
    const double mean = sum / static_cast<double>(one.size());
    return mean == 0 ? 100 : 10 * std::log10(255 * 255 / mean);
}

}  // namespace coded
