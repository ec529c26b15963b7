#include "control/decode/mppshow.h"

#include "control/convert/colorspacetransform.h"
#include "control/decode/mpplog.h"
#include "control/task/fourcc.h"
#include "control/task/logline.h"
#include "control/task/msgvideo.h"

namespace {

constexpr int displayWait_ms = 10;
constexpr RK_U32 longestSide = 0xFFFF;  // keeps every product of sizes within its type

constexpr std::size_t alignUp16(std::size_t value) {
    return (value + 15U) & ~std::size_t{15};
}

// Bytes that the conversion reads.
std::size_t bytesOf(const MppPicture& picture) {
    const std::size_t luma = alignUp16(picture.width) * alignUp16(picture.height);
    return picture.fourcc == fourccOf("NV16") ? luma * 2 : luma * 3 / 2;
}

bool isHeld(const MppPicture& picture) {
    if (picture.width == 0 || picture.height == 0 || picture.width > longestSide ||
        picture.height > longestSide) {
        return false;
    }
    return mpp_buffer_get_ptr(picture.buffer) != nullptr &&
           mpp_buffer_get_size(picture.buffer) >= bytesOf(picture);
}

}  // namespace

bool readMppFrame(MppFrame frame, MppPicture& picture) {
    if (frame == nullptr) {
        return false;
    }
    picture.width = mpp_frame_get_width(frame);
    picture.height = mpp_frame_get_height(frame);
    picture.format = static_cast<RK_U32>(mpp_frame_get_fmt(frame)) & MPP_FRAME_FMT_MASK;
    picture.buffer = mpp_frame_get_buffer(frame);
    if (picture.buffer == nullptr) {
        logOut("mpp dec frame get buffer faild");
        return false;
    }
    return true;
}

bool nameMppFormat(MppPicture& picture) {
    switch (picture.format) {
        case MPP_FMT_YUV420SP:
            picture.fourcc = fourccOf("NV12");
            break;
        case MPP_FMT_YUV422SP:
            picture.fourcc = fourccOf("NV16");
            break;
        case MPP_FMT_YUV420P:
            picture.fourcc = fourccOf("YU12");
            break;
        default:
            mppLog("not supported format %d\n", static_cast<int>(picture.format));
            return false;
    }
    if (!isHeld(picture)) {
        mppErr("frame of %ux%u dropped: its memory does not hold it\n", picture.width,
               picture.height);
        return false;
    }
    return true;
}

void showMppPicture(DisplayDrm& display, const MppPicture& picture, double pts, double queuePts) {
    msgVideo shown;
    shown.width = display.getDisplayWidth();
    shown.height = display.getDisplayHeight();
    shown.virWidth = display.getDisplayPitch();
    shown.virHeight = shown.height;
    shown.format = fourccOf("NV12");
    shown.pts = pts;
    const ColorSpaceTransform transform(
        static_cast<int>(picture.fourcc), static_cast<int>(shown.format),
        static_cast<int>(shown.width), static_cast<int>(shown.height));
    shown.length[0] = transform.getDstSize();
    if (shown.length[0] == 0) {
        return;
    }
    display.enQueue(&shown.outData[0], shown.width, shown.height, queuePts, displayWait_ms);
    unsigned char* planes[3] = {static_cast<unsigned char*>(mpp_buffer_get_ptr(picture.buffer)),
                                nullptr, nullptr};
    if (transform.receiveImage(planes, nullptr, picture.width, picture.height, &shown)) {
        display.enQueueEnd();
    }
}
