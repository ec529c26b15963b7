#include "engine/mpp/jpeg.h"

// jpeglib.h needs size_t and FILE before it
#include <cstdio>

#include <jerror.h>
#include <jpeglib.h>
#include <libyuv.h>

#include <algorithm>
#include <array>
#include <csetjmp>
#include <cstring>

namespace mpp {
namespace {

constexpr int block = DCTSIZE;
constexpr int maximumLines = MAX_SAMP_FACTOR * block;  // of one component in one row of MCUs

struct Errors {
    jpeg_error_mgr manager;
    std::jmp_buf escape;
    bool damaged;
    long leftOver;  // bytes skipped between markers
};

// How a picture lies in the buffer.
struct Layout {
    MppFrameFormat format = MPP_FMT_YUV400;
    int across = 0, down = 0;  // luma samples for one of chroma; 0: no chroma
    std::size_t lumaSize = 0, pairStride = 0, pairLines = 0, size = 0;
};

// All that the decoding touches: plain data, because libjpeg leaves by longjmp.
struct Session {
    jpeg_decompress_struct jpeg;
    Errors errors;
    Packet::Bytes packet;
    unsigned char* target;
    Layout layout;
    int horStride, verStride;
    unsigned char* spare;  // a line for what lies below the buffer's lines
    unsigned char* chroma[2];
    int chromaStride;
    bool complete;
};

Errors& errorsOf(j_common_ptr jpeg) {
    return *reinterpret_cast<Errors*>(jpeg->err);
}

void leave(j_common_ptr jpeg) {
    std::longjmp(errorsOf(jpeg).escape, 1);
}

void note(j_common_ptr jpeg, int level) {
    if (level >= 0) {
        return;
    }
    Errors& errors = errorsOf(jpeg);
    switch (errors.manager.msg_code) {
        case JWRN_EXTRANEOUS_DATA:
            errors.leftOver += errors.manager.msg_parm.i[0];
            break;
        case JWRN_JPEG_EOF:  // no harm as long as all blocks were there
        case JWRN_ADOBE_XFORM:
            break;
        default:
            errors.damaged = true;
    }
}

void print(j_common_ptr) {}

void useErrors(Session& session) {
    session.jpeg.err = jpeg_std_error(&session.errors.manager);
    session.errors.manager.error_exit = leave;
    session.errors.manager.emit_message = note;
    session.errors.manager.output_message = print;
}

// Cameras put bytes before the picture.
Packet::Bytes fromStart(const Packet::Bytes& packet) {
    constexpr std::array<unsigned char, 3> start{0xff, 0xd8, 0xff};
    const unsigned char* end = packet.data + packet.size;
    const unsigned char* found = std::search(packet.data, end, start.begin(), start.end());
    return {found, static_cast<std::size_t>(end - found)};
}

bool findFormat(const jpeg_decompress_struct& jpeg, Layout& layout) {
    if (jpeg.num_components == 1) {
        return true;
    }
    if (jpeg.num_components != 3 || jpeg.jpeg_color_space != JCS_YCbCr) {
        return false;
    }
    const jpeg_component_info* components = jpeg.comp_info;
    if (components[0].h_samp_factor != jpeg.max_h_samp_factor ||
        components[0].v_samp_factor != jpeg.max_v_samp_factor ||
        components[1].h_samp_factor != components[2].h_samp_factor ||
        components[1].v_samp_factor != components[2].v_samp_factor ||
        jpeg.max_h_samp_factor % components[1].h_samp_factor != 0 ||
        jpeg.max_v_samp_factor % components[1].v_samp_factor != 0) {
        return false;
    }
    struct Known {
        int across, down;
        MppFrameFormat format;
    };
    constexpr std::array<Known, 5> known{{{2, 2, MPP_FMT_YUV420SP},
                                          {2, 1, MPP_FMT_YUV422SP},
                                          {1, 2, MPP_FMT_YUV440SP},
                                          {4, 1, MPP_FMT_YUV411SP},
                                          {1, 1, MPP_FMT_YUV444SP}}};
    layout.across = jpeg.max_h_samp_factor / components[1].h_samp_factor;
    layout.down = jpeg.max_v_samp_factor / components[1].v_samp_factor;
    for (const Known& one : known) {
        if (one.across == layout.across && one.down == layout.down) {
            layout.format = one.format;
            return true;
        }
    }
    return false;
}

// The hardware takes baseline pictures in one scan; so does this, which keeps the work for one
// packet within bounds.
bool takes(jpeg_decompress_struct& jpeg, Layout& layout) {
    return jpeg.progressive_mode == FALSE && jpeg.arith_code == FALSE &&
           jpeg_has_multiple_scans(&jpeg) == FALSE && findFormat(jpeg, layout);
}

void describe(Session& session, FrameInfo& info) {
    Layout& layout = session.layout;
    info.width = session.jpeg.image_width;
    info.height = session.jpeg.image_height;
    info.horStride = align16(info.width);
    info.verStride = align16(info.height);
    info.format = layout.format;
    session.horStride = static_cast<int>(info.horStride);
    session.verStride = static_cast<int>(info.verStride);
    layout.lumaSize = static_cast<std::size_t>(info.horStride) * info.verStride;
    if (layout.across != 0) {
        layout.pairStride = 2 * static_cast<std::size_t>(info.horStride) / layout.across;
        layout.pairLines = info.verStride / layout.down;
    }
    layout.size = layout.lumaSize + layout.pairStride * layout.pairLines;
    info.bufSize = layout.size;
}

// The header only. False when it is not readable.
bool readHeader(Session& session) {
    if (setjmp(session.errors.escape) != 0) {
        return false;
    }
    jpeg_create_decompress(&session.jpeg);
    jpeg_mem_src(&session.jpeg, session.packet.data, session.packet.size);
    return jpeg_read_header(&session.jpeg, TRUE) == JPEG_HEADER_OK;
}

// Scratch memory of one row of MCUs: a luma line and both chroma planes.
void useScratch(Session& session, std::vector<unsigned char>& scratch) {
    const jpeg_component_info* components = session.jpeg.comp_info;
    std::size_t chromaSize = 0;
    if (session.layout.across != 0) {
        session.chromaStride = static_cast<int>(components[1].width_in_blocks) * block;
        chromaSize =
            static_cast<std::size_t>(session.chromaStride) * components[1].v_samp_factor * block;
    }
    const auto line = static_cast<std::size_t>(session.horStride);
    if (scratch.size() < line + 2 * chromaSize) {
        scratch.resize(line + 2 * chromaSize);
    }
    session.spare = scratch.data();
    session.chroma[0] = session.spare + line;
    session.chroma[1] = session.chroma[0] + chromaSize;
}

// The chroma lines of one row of MCUs into the buffer's pairs.
void mergeChroma(const Session& session, int mcuRow) {
    const Layout& layout = session.layout;
    const int lines = session.jpeg.comp_info[1].v_samp_factor * block;
    const int first = mcuRow * lines;
    const int count = std::min(lines, static_cast<int>(layout.pairLines) - first);
    const int pairs = std::min(session.chromaStride, static_cast<int>(layout.pairStride / 2));
    if (count > 0) {
        unsigned char* to = session.target + layout.lumaSize + first * layout.pairStride;
        libyuv::MergeUVPlane(session.chroma[0], session.chromaStride, session.chroma[1],
                             session.chromaStride, to, static_cast<int>(layout.pairStride), pairs,
                             count);
    }
}

void pointAtLines(const Session& session, int mcuRow, JSAMPROW (&rows)[3][maximumLines]) {
    const int lumaLines = session.jpeg.comp_info[0].v_samp_factor * block;
    for (int i = 0; i < lumaLines; ++i) {
        const int line = mcuRow * lumaLines + i;
        rows[0][i] = line < session.verStride
                         ? session.target + static_cast<std::size_t>(line) * session.horStride
                         : session.spare;
    }
    if (session.layout.across == 0) {
        return;
    }
    const int chromaLines = session.jpeg.comp_info[1].v_samp_factor * block;
    for (int i = 0; i < chromaLines; ++i) {
        const std::size_t at = static_cast<std::size_t>(i) * session.chromaStride;
        rows[1][i] = session.chroma[0] + at;
        rows[2][i] = session.chroma[1] + at;
    }
}

// False when the picture is damaged above its last row of MCUs.
bool readPicture(Session& session) {
    if (setjmp(session.errors.escape) != 0) {
        return session.complete;
    }
    jpeg_decompress_struct& jpeg = session.jpeg;
    jpeg.raw_data_out = TRUE;
    jpeg.out_color_space = jpeg.jpeg_color_space;
    jpeg.dct_method = JDCT_ISLOW;
    jpeg_start_decompress(&jpeg);
    JSAMPROW rows[3][maximumLines];
    JSAMPARRAY planes[3] = {rows[0], rows[1], rows[2]};
    const auto lines = static_cast<JDIMENSION>(jpeg.max_v_samp_factor * block);
    for (int mcuRow = 0; jpeg.output_scanline < jpeg.output_height; ++mcuRow) {
        if (session.errors.damaged) {
            return false;
        }
        pointAtLines(session, mcuRow, rows);
        if (jpeg_read_raw_data(&jpeg, planes, lines) == 0) {
            return false;
        }
        if (session.layout.across != 0) {
            mergeChroma(session, mcuRow);
        }
    }
    session.complete = true;
    session.errors.leftOver = 0;
    jpeg_finish_decompress(&jpeg);
    return true;
}

// Far more coded data than the header's size has use for: the size is wrong, and so is the picture.
bool leftTooMuch(const Session& session) {
    const auto leftOver = static_cast<std::size_t>(std::max(session.errors.leftOver, 0L));
    return leftOver > 64 && leftOver > session.packet.size / 8;
}

}  // namespace

RK_U32 JpegDecoder::decode(const Packet::Bytes& packet, const Buffer* into, FrameInfo& info) {
    if (packet.size == 0) {
        return MPP_FRAME_ERR_DEC_INVALID;
    }
    // Made anew for each picture: tables of an earlier one must not stand in for missing ones.
    // Missing Huffman tables are then the standard's, which libjpeg-turbo puts in by itself.
    Session session{};
    session.packet = fromStart(packet);
    useErrors(session);
    struct Destroy {
        Session& session;
        ~Destroy() { jpeg_destroy_decompress(&session.jpeg); }
    } const destroy{session};

    if (!readHeader(session)) {
        return MPP_FRAME_ERR_DEC_INVALID;
    }
    if (!takes(session.jpeg, session.layout)) {
        return MPP_FRAME_ERR_UNSUPPORT;
    }
    describe(session, info);
    if (into == nullptr || into->size() < session.layout.size) {
        return MPP_FRAME_ERR_UNKNOW;
    }
    session.target = into->data();
    useScratch(session, scratch_);
    return readPicture(session) && !leftTooMuch(session) ? 0 : MPP_FRAME_ERR_DEC_INVALID;
}

}  // namespace mpp
