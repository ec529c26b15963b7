#include "board/console/jpegdecoder.h"

#include <algorithm>
#include <array>
#include <csetjmp>
#include <cstdio>

#include <jpeglib.h>

namespace board::console {

namespace {

constexpr unsigned largestSide = 8192;

struct Failure {
    jpeg_error_mgr manager;
    std::jmp_buf back;
};

// All that the decoding touches: plain data, because libjpeg leaves by longjmp.
struct Session {
    jpeg_decompress_struct jpeg;
    Failure failure;
    const std::uint8_t* bytes;
    std::size_t size;
    std::uint32_t width;  // wanted
    std::uint8_t* target;
};

[[noreturn]] void leave(j_common_ptr jpeg) {
    std::longjmp(reinterpret_cast<Failure*>(jpeg->err)->back, 1);
}

void keepQuiet(j_common_ptr) {}

void keepQuietAbout(j_common_ptr, int) {}

void chooseScale(jpeg_decompress_struct& jpeg, std::uint32_t width) {
    jpeg.scale_denom = 1;
    while (jpeg.scale_denom < 8 && jpeg.image_width / (jpeg.scale_denom * 2) >= width)
        jpeg.scale_denom *= 2;
    jpeg.scale_num = 1;
}

bool readHead(Session& session) {
    jpeg_decompress_struct& jpeg = session.jpeg;
    if (setjmp(session.failure.back) != 0)
        return false;
    jpeg_create_decompress(&jpeg);
    jpeg_mem_src(&jpeg, session.bytes, session.size);
    jpeg_read_header(&jpeg, TRUE);
    // Cameras send one scan; many of them are work without end for whoever decodes.
    if (jpeg.image_width > largestSide || jpeg.image_height > largestSide ||
        jpeg.progressive_mode == TRUE || jpeg_has_multiple_scans(&jpeg) == TRUE)
        return false;
    chooseScale(jpeg, session.width);
    jpeg.out_color_space = JCS_EXT_BGRX;
    jpeg.do_fancy_upsampling = FALSE;
    jpeg_calc_output_dimensions(&jpeg);
    return true;
}

bool readLines(Session& session) {
    jpeg_decompress_struct& jpeg = session.jpeg;
    if (setjmp(session.failure.back) != 0)
        return false;
    jpeg_start_decompress(&jpeg);
    while (jpeg.output_scanline < jpeg.output_height) {
        JSAMPROW line = session.target + std::size_t(jpeg.output_scanline) * jpeg.output_width * 4;
        jpeg_read_scanlines(&jpeg, &line, 1);
    }
    return true;
}

}  // namespace

bool decodeJpeg(const std::uint8_t* bytes, std::size_t size, std::uint32_t width,
                BgrxPicture& picture) {
    constexpr std::array<std::uint8_t, 3> start{0xff, 0xd8, 0xff};
    const std::uint8_t* first = std::search(bytes, bytes + size, start.begin(), start.end());
    Session session{};
    session.bytes = first;
    session.size = std::size_t(bytes + size - first);
    session.width = width;
    if (session.size == 0)
        return false;
    session.jpeg.err = jpeg_std_error(&session.failure.manager);
    session.failure.manager.error_exit = leave;
    session.failure.manager.emit_message = keepQuietAbout;
    session.failure.manager.output_message = keepQuiet;
    bool decoded = readHead(session);
    if (decoded) {
        picture.width = session.jpeg.output_width;
        picture.height = session.jpeg.output_height;
        picture.bytes.assign(std::size_t(picture.width) * picture.height * 4, 0);
        session.target = picture.bytes.data();
        decoded = readLines(session);
    }
    jpeg_destroy_decompress(&session.jpeg);
    return decoded;
}

}  // namespace board::console
