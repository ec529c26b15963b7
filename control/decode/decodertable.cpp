// Which decoder takes which pixel format. Stands above the decoders: they know nothing of it.
#include "control/decode/deccommon.h"
#include "control/decode/decoder_h264_mpp.h"
#include "control/decode/decoder_mjpeg_mpp.h"
#include "control/decode/decoder_rawvideo.h"
#include "control/task/fourcc.h"
#include "control/task/logline.h"

#include <functional>

namespace {

struct DecoderRow {
    std::uint32_t fourcc;
    std::string name;
    int decoderKind;
    std::function<DecCommon*(void*)> decoderFactory;
};

}  // namespace

// The name comes by value: that is the required signature.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
DecCommon* DecCommon::find_decoder_dev(int fourcc, void* captureMode, int kind, std::string name) {
    static const DecoderRow decoderTable[] = {
        {fourccOf("MJPG"), "Mjpeg", 0, Decoder_MJPEG_MPP::getMjpegMppDecoderDev},
        {fourccOf("H264"), "H264Mpp", 0, Decoder_H264_MPP::getH264MppDecoderDev},
        {fourccOf("YUYV"), "RawVideoYUYV", 0, Decoder_Rawvideo::getRawvideoDecoderDev},
    };
    for (const DecoderRow& row : decoderTable) {
        if (row.fourcc == static_cast<std::uint32_t>(fourcc) && row.decoderKind == kind &&
            (name.empty() || name == row.name)) {
            logOut("find decoder dev is ", row.name);
            return row.decoderFactory(captureMode);
        }
    }
    logOut("can't find decoder dev");
    return nullptr;
}
