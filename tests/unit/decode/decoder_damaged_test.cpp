// Damaged payloads through decoders and decoder library: nothing breaks, and good pictures are
// shown before and after.
#include "control/decode/decoder_h264_mpp.h"
#include "control/decode/decoder_mjpeg_mpp.h"
#include "control/task/fourcc.h"

#include "tests/unit/decode/payloadfaults.h"
#include "tests/unit/decode/streamscreen.h"

#include <cstdlib>
#include <iostream>

using streams::Bytes;
using streams::Picture;

namespace {

constexpr int width = 320, height = 240;
constexpr double unscaledLikeness_dB = 38.0;

// Payloads a test: many with TEST_LONG=1.
int payloads() {
    const char* text = std::getenv("TEST_LONG");
    return text != nullptr && std::string(text) == "1" ? 20000 : 1500;
}

std::string lastOf(const std::string& text) {
    constexpr std::size_t enough = 3000;
    return text.substr(text.size() - std::min(text.size(), enough));
}

class DamagedStream : public testing::Test {
  protected:
    DamagedStream() {
        testing::internal::CaptureStdout();  // thousands of lines of both
        testing::internal::CaptureStderr();
    }
    ~DamagedStream() override {
        screen.stop();
        const std::string out = testing::internal::GetCapturedStdout();
        const std::string err = testing::internal::GetCapturedStderr();
        if (HasFailure()) {
            std::cout << lastOf(out) << lastOf(err);
        }
    }
    void takeAll() {
        while (screen.take(shown)) {
            ++shownCount;
        }
    }
    // Takes what is shown until no more than so many payloads wait: the ring must not overflow.
    bool takeUntilQueued(int limit) {
        return comesTrue(
            [&] {
                takeAll();
                return screen.queued() <= limit;
            },
            std::chrono::seconds(60));
    }

    decInfo mode{0, width, height, 30};
    StreamScreen screen{width, height};
    StreamScreen::Shown shown;
    int shownCount = 0;
    PayloadFaults faults{4};
};

}  // namespace

TEST_F(DamagedStream, JpegsBetweenGoodOnes) {
    constexpr int burst = 10;  // the last one is good
    std::vector<Bytes> jpegs;
    std::vector<Bytes> expected;
    for (int n = 0; n < 8; ++n) {
        jpegs.push_back(streams::jpegOf(streams::drawn(width, height, n, n % 2 == 0)));
        expected.push_back(streams::nv12Of(streams::decodedJpeg(jpegs.back())));
    }
    screen.play(std::make_unique<Decoder_MJPEG_MPP>(&mode));
    double pts = 0;
    for (int sent = 0; sent < payloads(); sent += burst) {
        for (int n = 1; n < burst; ++n) {
            screen.send(faults.damaged(jpegs[faults.below(jpegs.size())]), ++pts);
        }
        const std::size_t good = faults.below(jpegs.size());
        screen.send(jpegs[good], ++pts);
        ASSERT_TRUE(comesTrue(
            [&] {
                takeAll();
                return shown.pts >= pts;
            },
            std::chrono::seconds(60)))
            << sent;
        ASSERT_GE(streams::psnr(shown.picture, expected[good]), unscaledLikeness_dB) << sent;
    }
    EXPECT_GE(shownCount, payloads() / burst);
}

TEST_F(DamagedStream, H264PacketsBetweenGoodOnes) {
    constexpr int keyDistance = 10, goodStretch = 3 * keyDistance, badStretch = 70;
    std::vector<Picture> pictures;
    for (int n = 0; n < goodStretch; ++n) {
        pictures.push_back(streams::drawn(width, height, n));
    }
    const std::vector<Bytes> packets =
        streams::h264Of(pictures, streams::H264Settings{keyDistance, 0, false});
    std::vector<Bytes> expected;
    for (const Picture& picture : streams::decodedH264(packets)) {
        expected.push_back(streams::nv12Of(picture));
    }
    screen.play(std::make_unique<Decoder_H264_MPP>(&mode));
    double pts = 0;
    for (int sent = 0; sent < payloads(); sent += goodStretch + badStretch) {
        for (const Bytes& packet : packets) {
            screen.send(packet, pts += 33.0);
            ASSERT_TRUE(takeUntilQueued(5));
        }
        ASSERT_TRUE(takeUntilQueued(0));
        // The first key frame ends what was damaged before it; what is shown last is whole.
        double best = 0;
        for (const Bytes& picture : expected) {
            best = std::max(best, streams::psnr(shown.picture, picture));
        }
        ASSERT_GE(best, unscaledLikeness_dB) << sent;
        ASSERT_GE(shownCount, keyDistance) << sent;
        for (int n = 0; n < badStretch; ++n) {
            const Bytes& packet = packets[static_cast<std::size_t>(n % goodStretch)];
            screen.send(faults.below(2) == 0 ? packet : faults.damaged(packet), pts += 33.0);
            ASSERT_TRUE(takeUntilQueued(5));
        }
        shownCount = 0;
    }
}
