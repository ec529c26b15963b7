#include "board/daemon/camera/payloadfile.h"

#include <linux/videodev2.h>

namespace board {

namespace {

bool hasParameterSets(const std::uint8_t* payload, std::size_t length) {
    for (std::size_t at = 0; at + 4 <= length; ++at) {
        if (payload[at] == 0 && payload[at + 1] == 0 && payload[at + 2] == 1 &&
            (payload[at + 3] & 0x1f) == 7)
            return true;
    }
    return false;
}

}  // namespace

std::string PayloadFile::start(const std::string& path) {
    if (file_.is_open())
        return "payloads are being written to " + path_ + " already; stop that first";
    file_.open(path, std::ios::binary | std::ios::trunc);
    if (!file_.is_open())
        return path + ": cannot be written";
    path_ = path;
    begun_ = false;
    return {};
}

std::string PayloadFile::stop() {
    if (!file_.is_open())
        return "no payloads are being written";
    file_.close();
    return file_.good() ? "" : path_ + ": could not be written to its end";
}

void PayloadFile::add(std::uint32_t fourcc, const std::uint8_t* payload, std::size_t length) {
    if (!file_.is_open())
        return;
    if (!begun_ && fourcc == V4L2_PIX_FMT_H264 && !hasParameterSets(payload, length))
        return;
    begun_ = true;
    file_.write(reinterpret_cast<const char*>(payload), std::streamsize(length));
}

}  // namespace board
