#include "control/convert/rkrga.h"

#include "control/task/logline.h"

#include <cerrno>
#include <cstring>

std::atomic<RkRga*> RkRga::rgadev{nullptr};

namespace {

rga_info_t describe(unsigned char* picture, int width, int height, int widthStride,
                    int heightStride, int format) {
    rga_info_t info;
    // Newer engines have fields that are unknown here: zero is what they take for unset.
    std::memset(&info, 0, sizeof(info));
    info.fd = -1;
    info.mmuFlag = 1;
    info.virAddr = picture;
    rga_set_rect(&info.rect, 0, 0, width, height, widthStride, heightStride, format);
    return info;
}

}  // namespace

RkRga::RkRga() {
    RkRgaInit();
    rgadev = this;
}

RkRga::~RkRga() {
    RkRga* self = this;
    rgadev.compare_exchange_strong(self, nullptr);
    RkRgaDeInit();
}

RkRga* RkRga::getRgaDev() {
    return rgadev;
}

bool RkRga::rgaColorSpaceSwitch(unsigned char* src, int srcWidth, int srcHeight, int srcWidthStride,
                                int srcHeightStride, int srcFormat, unsigned char* dst,
                                int dstWidth, int dstHeight, int dstWidthStride,
                                int dstHeightStride, int dstFormat) {
    rga_info_t source =
        describe(src, srcWidth, srcHeight, srcWidthStride, srcHeightStride, srcFormat);
    rga_info_t target =
        describe(dst, dstWidth, dstHeight, dstWidthStride, dstHeightStride, dstFormat);
    return blit(source, target);
}

bool RkRga::rgaRotaSpaceSwitch(unsigned char* src, int srcWidth, int srcHeight, int srcWidthStride,
                               int srcHeightStride, int srcFormat, unsigned char* dst, int dstWidth,
                               int dstHeight, int dstWidthStride, int dstHeightStride,
                               int dstFormat, int rotation) {
    rga_info_t source =
        describe(src, srcWidth, srcHeight, srcWidthStride, srcHeightStride, srcFormat);
    source.rotation = rotation;
    rga_info_t target =
        describe(dst, dstWidth, dstHeight, dstWidthStride, dstHeightStride, dstFormat);
    return blit(source, target);
}

bool RkRga::blit(rga_info_t& src, rga_info_t& dst) {
    if (RkRgaBlit(&src, &dst, nullptr) != 0) {
        logOut("rgaFillColor error : ", std::strerror(errno));
        return false;
    }
    return true;
}
