#include "tests/system/compressedplay.h"

#include <gtest/gtest.h>
#include <linux/videodev2.h>

#include <algorithm>
#include <map>
#include <set>

#include "board/media/stamp.h"
#include "tests/support/picture.h"
#include "tests/support/reference.h"

namespace compressed {

using support::Likeness;
using support::Picture;
using support::ShownFrame;

std::uint32_t fourccOf(const support::CameraMode& mode) {
    return std::string(mode.fourcc) == "H264" ? V4L2_PIX_FMT_H264 : V4L2_PIX_FMT_MJPEG;
}

std::string startPayloads(support::Board& board, const support::CameraMode& mode) {
    const std::string path =
        board.folder() +
        (fourccOf(mode) == V4L2_PIX_FMT_H264 ? "/payloads.h264" : "/payloads.mjpeg");
    board.order(R"({"order":"payloads","action":"start","path":")" + path + R"("})");
    return path;
}

void expectLikeTheReference(support::Board& board, const support::CameraMode& mode,
                            const std::string& payloads, unsigned count, double least_dB) {
    const std::vector<ShownFrame> frames = takeShownFrames(board, count);
    board.order(R"({"order":"payloads","action":"stop"})");
    ASSERT_GE(frames.size(), count / 2) << "too few pictures with a mark were shown";
    std::set<std::uint32_t> wanted;
    for (const ShownFrame& frame : frames) {
        wanted.insert(frame.frame);
    }
    // The latest picture with a mark counts: an H.264 loop comes round again.
    std::map<std::uint32_t, Picture> expected;
    support::ReferenceDecoder decoder(fourccOf(mode), [&](const Picture& picture) {
        const auto stamp =
            board::readStamp(picture.luma.data(), 1, picture.width, picture.width, picture.height);
        if (stamp && wanted.count(stamp->frame) != 0) {
            expected[stamp->frame] = picture;
        }
    });
    decoder.decodeFile(payloads);
    // Behind a frame that the camera lost FFmpeg may conceal what the engine could still show.
    const bool gaps = fourccOf(mode) == V4L2_PIX_FMT_H264 && board.camera().lost > 0;
    unsigned compared = 0;
    Likeness worst{99, 99, 99};
    for (const ShownFrame& frame : frames) {
        if (gaps && expected.count(frame.frame) == 0) {
            continue;
        }
        ASSERT_EQ(expected.count(frame.frame), 1u) << "picture " << frame.frame << " was not sent";
        ++compared;
        const Likeness likeness = compare(frame.picture, expected[frame.frame]);
        worst.luma_dB = std::min(worst.luma_dB, likeness.luma_dB);
        worst.u_dB = std::min(worst.u_dB, likeness.u_dB);
        worst.v_dB = std::min(worst.v_dB, likeness.v_dB);
    }
    std::printf("%s: %u pictures, at worst Y %.1f dB, U %.1f dB, V %.1f dB\n", mode.name, compared,
                worst.luma_dB, worst.u_dB, worst.v_dB);
    EXPECT_GE(compared, count / 2);
    EXPECT_GE(worst.luma_dB, least_dB);
    EXPECT_GE(worst.u_dB, least_dB);
    EXPECT_GE(worst.v_dB, least_dB);
}

}  // namespace compressed
