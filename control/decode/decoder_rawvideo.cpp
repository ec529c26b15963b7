#include "control/decode/decoder_rawvideo.h"

#include "control/convert/colorspacetransform.h"
#include "control/display/displaydrm.h"
#include "control/task/fourcc.h"
#include "control/task/logline.h"
#include "control/task/msgvideo.h"

namespace {

constexpr int queueLimit = 10;
constexpr int displayWait_ms = 10;
constexpr std::uint32_t longestSide = 0xFFFF;  // keeps every product of sizes within its type

// Bytes of a packed YUYV picture; an odd width has a half-used last pair.
std::uint64_t pictureSize(const msgVideo& frame) {
    const std::uint64_t lastLine = (static_cast<std::uint64_t>(frame.width) + 1) / 2 * 4;
    const std::uint64_t line = static_cast<std::uint64_t>(frame.width) * 2;
    return frame.height == 0 ? 0 : line * (frame.height - 1) + lastLine;
}

bool isComplete(const msgVideo& frame) {
    const std::uint64_t needed = pictureSize(frame);
    if (needed != 0 && frame.width <= longestSide && frame.height <= longestSide &&
        frame.data[0] != nullptr && frame.length[0] >= needed) {
        return true;
    }
    logErr("rawvideo frame dropped: ", frame.length[0], " bytes, its picture of ", frame.width, "x",
           frame.height, " takes ", needed);
    return false;
}

}  // namespace

Decoder_Rawvideo::Decoder_Rawvideo(void* captureMode)
    : captureFormat(static_cast<const decInfo*>(captureMode)) {}

Decoder_Rawvideo::~Decoder_Rawvideo() {
    Decoder_Rawvideo::close();
    if (opened != 0) {
        Decoder_Rawvideo::decoder_close();
    }
    opened = 0;
}

DecCommon* Decoder_Rawvideo::getRawvideoDecoderDev(void* captureMode) {
    return new Decoder_Rawvideo(captureMode);
}

int Decoder_Rawvideo::close() {
    return stopDecoder("rawvideo close remain avpacket queue :");
}

int Decoder_Rawvideo::svc() {
    return runDecoder("Decoder_Rawvideo");
}

int Decoder_Rawvideo::decoder_open() {
    logOut("rawvideo decoder open");
    logOut("rawvideo decoder open succeed");
    activate(1);
    opened = 1;
    return 1;
}

int Decoder_Rawvideo::decoder_close() {
    if (opened != 1) {
        return 0;
    }
    logOut("rawvideo decoder close");
    logOut("rawvideo decoder close succeed");
    opened = 0;
    return 1;
}

int Decoder_Rawvideo::decoder_process(void* msg, void* /*unused*/) {
    msgVideo& frame = *static_cast<msgVideo*>(msg);
    if (captureFormat->format != fourccOf("YUYV")) {
        logOut("rawvideo not supported format");
        return 0;
    }
    DisplayDrm* display = DisplayDrm::getDrmDev();
    if (display == nullptr || !isComplete(frame)) {
        return 0;
    }
    msgVideo shown;
    shown.width = display->getDisplayWidth();
    shown.height = display->getDisplayHeight();
    shown.virWidth = display->getDisplayPitch();
    shown.virHeight = shown.height;
    shown.format = fourccOf("NV12");
    const ColorSpaceTransform transform(
        static_cast<int>(captureFormat->format), static_cast<int>(shown.format),
        static_cast<int>(shown.width), static_cast<int>(shown.height));
    shown.length[0] = transform.getDstSize();
    if (shown.length[0] == 0) {
        return 0;
    }
    display->enQueue(&shown.outData[0], shown.width, shown.height, DisplayDrm::unpacedPts,
                     displayWait_ms);
    if (transform.receiveImage(frame.data, nullptr, frame.width, frame.height, &shown)) {
        display->enQueueEnd();
    }
    return 0;
}

int Decoder_Rawvideo::receive_handler(void* msg, unsigned int /*arg*/) {
    return putq(msg);
}

bool Decoder_Rawvideo::queueAllow_angler() {
    return getqSize() < queueLimit;
}
