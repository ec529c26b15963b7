#include "board/console/jpegencoder.h"

#include <csetjmp>
#include <cstdio>
#include <cstdlib>

#include <jpeglib.h>

namespace board::console {

namespace {

constexpr unsigned rowLines = 16;

struct Failure {
    jpeg_error_mgr manager;
    std::jmp_buf back;
};

// All that the encoding touches: plain data.
struct Session {
    jpeg_compress_struct jpeg;
    Failure failure;
    unsigned char* bytes;
    unsigned long size;
    bool finished;
};

[[noreturn]] void leave(j_common_ptr jpeg) {
    std::longjmp(reinterpret_cast<Failure*>(jpeg->err)->back, 1);
}

void setUp(jpeg_compress_struct& jpeg, const I420Picture& picture, int quality) {
    jpeg.image_width = picture.width;
    jpeg.image_height = picture.height;
    jpeg.input_components = 3;
    jpeg.in_color_space = JCS_YCbCr;
    jpeg_set_defaults(&jpeg);
    jpeg_set_quality(&jpeg, quality, TRUE);
    jpeg.raw_data_in = TRUE;
    jpeg.comp_info[0].h_samp_factor = jpeg.comp_info[0].v_samp_factor = 2;
    for (int i = 1; i < 3; ++i)
        jpeg.comp_info[i].h_samp_factor = jpeg.comp_info[i].v_samp_factor = 1;
}

void writeRows(jpeg_compress_struct& jpeg, const I420Picture& picture) {
    // The library does not write to what it is given.
    auto* y = const_cast<JSAMPLE*>(picture.y.data());
    auto* u = const_cast<JSAMPLE*>(picture.u.data());
    auto* v = const_cast<JSAMPLE*>(picture.v.data());
    JSAMPROW luma[rowLines], first[rowLines / 2], second[rowLines / 2];
    JSAMPARRAY planes[3] = {luma, first, second};
    while (jpeg.next_scanline < jpeg.image_height) {
        const std::size_t line = jpeg.next_scanline;
        for (std::size_t i = 0; i < rowLines; ++i)
            luma[i] = y + (line + i) * picture.stride;
        for (std::size_t i = 0; i < rowLines / 2; ++i) {
            first[i] = u + (line / 2 + i) * (picture.stride / 2);
            second[i] = v + (line / 2 + i) * (picture.stride / 2);
        }
        jpeg_write_raw_data(&jpeg, planes, rowLines);
    }
}

}  // namespace

std::string encodeJpeg(const I420Picture& picture, int quality) {
    Session session{};
    session.jpeg.err = jpeg_std_error(&session.failure.manager);
    session.failure.manager.error_exit = leave;
    std::string result;
    if (setjmp(session.failure.back) == 0) {
        // Nothing with a destructor in here: the library leaves by longjmp.
        jpeg_create_compress(&session.jpeg);
        jpeg_mem_dest(&session.jpeg, &session.bytes, &session.size);
        setUp(session.jpeg, picture, quality);
        jpeg_start_compress(&session.jpeg, TRUE);
        writeRows(session.jpeg, picture);
        jpeg_finish_compress(&session.jpeg);
        session.finished = true;
    }
    jpeg_destroy_compress(&session.jpeg);
    if (session.finished)
        result.assign(reinterpret_cast<char*>(session.bytes), session.size);
    std::free(session.bytes);
    return result;
}

}  // namespace board::console
