#include "board/media/jpegpicture.h"

#include <cstdio>  // what jpeglib.h needs first

#include <jpeglib.h>

#include <algorithm>
#include <cstdlib>
#include <stdexcept>
#include <string>

namespace board {

namespace {

constexpr std::uint32_t roundedUp(std::uint32_t value, std::uint32_t unit) {
    return (value + unit - 1) / unit * unit;
}

JpegPlanes emptyPlanes(std::uint32_t width, std::uint32_t lines, bool fullChromaHeight) {
    JpegPlanes planes;
    planes.width = width;
    planes.height = lines;
    planes.fullChromaHeight = fullChromaHeight;
    planes.stride = roundedUp(width, 16);
    const std::uint32_t rows = roundedUp(lines, planes.rowLines());
    planes.y.resize(std::size_t(planes.stride) * rows);
    const std::size_t chromaRows = fullChromaHeight ? rows : rows / 2;
    planes.u.resize(planes.stride / 2 * chromaRows);
    planes.v.resize(planes.stride / 2 * chromaRows);
    return planes;
}

// Repeats the last sample of each line and the last line.
void pad(std::vector<std::uint8_t>& plane, std::uint32_t stride, std::uint32_t width,
         std::uint32_t lines) {
    for (std::uint32_t line = 0; line < lines; ++line) {
        std::uint8_t* first = plane.data() + std::size_t(line) * stride;
        std::fill(first + width, first + stride, first[width - 1]);
    }
    const auto last = plane.begin() + std::ptrdiff_t(std::size_t(lines - 1) * stride);
    for (std::size_t line = lines; line < plane.size() / stride; ++line)
        std::copy_n(last, stride, plane.begin() + std::ptrdiff_t(line * stride));
}

void padAll(JpegPlanes& planes) {
    const std::uint32_t chromaLines =
        planes.fullChromaHeight ? planes.height : (planes.height + 1) / 2;
    pad(planes.y, planes.stride, planes.width, planes.height);
    pad(planes.u, planes.stride / 2, planes.width / 2, chromaLines);
    pad(planes.v, planes.stride / 2, planes.width / 2, chromaLines);
}

void copyLines(const std::uint8_t* from, std::uint32_t width, std::vector<std::uint8_t>& to,
               std::uint32_t stride, std::uint32_t lines) {
    for (std::uint32_t line = 0; line < lines; ++line)
        std::copy_n(from + std::size_t(line) * width, width,
                    to.begin() + std::ptrdiff_t(std::size_t(line) * stride));
}

// The library's own ends the process.
[[noreturn]] void failEncoding(j_common_ptr library) {
    char text[JMSG_LENGTH_MAX];
    library->err->format_message(library, text);
    throw std::runtime_error(std::string("a picture cannot be encoded as JPEG: ") + text);
}

class Compressor {
  public:
    Compressor() {
        info_.err = jpeg_std_error(&errors_);
        errors_.error_exit = failEncoding;
        jpeg_create_compress(&info_);
        jpeg_mem_dest(&info_, &bytes_, &size_);
    }
    ~Compressor() {
        jpeg_destroy_compress(&info_);
        std::free(bytes_);
    }
    Compressor(const Compressor&) = delete;
    Compressor& operator=(const Compressor&) = delete;

    jpeg_compress_struct& info() { return info_; }
    std::vector<std::uint8_t> bytes() const { return {bytes_, bytes_ + size_}; }

  private:
    jpeg_compress_struct info_{};
    jpeg_error_mgr errors_{};
    unsigned char* bytes_ = nullptr;
    unsigned long size_ = 0;
};

void writeRows(jpeg_compress_struct& info, const JpegPlanes& planes) {
    const std::uint32_t rowLines = planes.rowLines();
    const std::uint32_t chromaLines = planes.fullChromaHeight ? rowLines : rowLines / 2;
    const auto lineOf = [](const std::vector<std::uint8_t>& plane, std::size_t offset) {
        return const_cast<JSAMPROW>(plane.data() + offset);  // the library only reads it
    };
    JSAMPROW y[16], u[16], v[16];
    JSAMPARRAY all[] = {y, u, v};
    for (std::uint32_t top = 0; top < planes.height; top += rowLines) {
        for (std::uint32_t line = 0; line < rowLines; ++line)
            y[line] = lineOf(planes.y, std::size_t(top + line) * planes.stride);
        for (std::uint32_t line = 0; line < chromaLines; ++line) {
            const std::size_t place = std::size_t(top) / rowLines * chromaLines + line;
            u[line] = lineOf(planes.u, place * (planes.stride / 2));
            v[line] = lineOf(planes.v, place * (planes.stride / 2));
        }
        jpeg_write_raw_data(&info, all, rowLines);
    }
}

}  // namespace

JpegPlanes planesOfYuyv(const std::uint8_t* picture, std::uint32_t width, std::uint32_t height,
                        std::uint32_t lines) {
    JpegPlanes planes = emptyPlanes(width, std::min(height, lines), true);
    for (std::uint32_t line = 0; line < planes.height; ++line) {
        const std::uint8_t* from = picture + std::size_t(line) * width * 2;
        std::uint8_t* y = planes.y.data() + std::size_t(line) * planes.stride;
        std::uint8_t* u = planes.u.data() + std::size_t(line) * (planes.stride / 2);
        std::uint8_t* v = planes.v.data() + std::size_t(line) * (planes.stride / 2);
        for (std::uint32_t pair = 0; pair < width / 2; ++pair, from += 4) {
            *y++ = from[0];
            *y++ = from[2];
            u[pair] = from[1];
            v[pair] = from[3];
        }
    }
    padAll(planes);
    return planes;
}

JpegPlanes planesOfYu12(const std::uint8_t* picture, std::uint32_t width, std::uint32_t height,
                        std::uint32_t lines) {
    JpegPlanes planes = emptyPlanes(width, std::min(height, lines), false);
    const std::size_t luma = std::size_t(width) * height;
    copyLines(picture, width, planes.y, planes.stride, planes.height);
    const std::uint32_t chromaLines = planes.height / 2;
    copyLines(picture + luma, width / 2, planes.u, planes.stride / 2, chromaLines);
    copyLines(picture + luma + luma / 4, width / 2, planes.v, planes.stride / 2, chromaLines);
    padAll(planes);
    return planes;
}

std::vector<std::uint8_t> encodeJpeg(const JpegPlanes& planes, unsigned quality) {
    Compressor compressor;
    jpeg_compress_struct& info = compressor.info();
    info.image_width = planes.width;
    info.image_height = planes.height;
    info.input_components = 3;
    info.in_color_space = JCS_YCbCr;
    jpeg_set_defaults(&info);
    jpeg_set_quality(&info, int(quality), TRUE);
    info.raw_data_in = TRUE;
    info.restart_in_rows = 1;
    info.comp_info[0].h_samp_factor = 2;
    info.comp_info[0].v_samp_factor = planes.fullChromaHeight ? 1 : 2;
    jpeg_start_compress(&info, TRUE);
    writeRows(info, planes);
    jpeg_finish_compress(&info);
    return compressor.bytes();
}

JpegRows findRows(const std::vector<std::uint8_t>& jpeg) {
    JpegRows rows;
    std::size_t at = 2;
    std::uint8_t marker = 0;
    // Segments up to and with the start of scan.
    while (marker != 0xda && at + 4 <= jpeg.size()) {
        marker = jpeg[at + 1];
        at += 2 + (std::size_t(jpeg[at + 2]) << 8 | jpeg[at + 3]);
    }
    rows.first = at;
    for (; at + 1 < jpeg.size(); ++at) {
        const std::uint8_t code = jpeg[at + 1];
        if (jpeg[at] == 0xff && ((code >= 0xd0 && code <= 0xd7) || code == 0xd9))
            rows.next.push_back(at + 2);
    }
    return rows;
}

}  // namespace board
