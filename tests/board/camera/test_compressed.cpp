// Motion JPEG and H.264 as the node delivers them, and the damage that is done to them on order.
#include "tests/board/camera/camerabench.h"

#include "board/media/stamp.h"
#include "tests/support/reference.h"

#include <algorithm>
#include <fstream>
#include <sstream>

namespace board::test {
namespace {

using support::Picture;
using support::ReferenceDecoder;
using Bytes = std::vector<std::uint8_t>;

constexpr std::uint32_t imageBytes = 200000;

CameraDescription compressedCamera() {
    CameraDescription camera = smallCamera();
    const std::vector<CameraSize> sizes = {{320, 240, {{1, 100}}}};
    camera.formats = {{V4L2_PIX_FMT_MJPEG, "Motion-JPEG", true, sizes, {}, imageBytes},
                      {V4L2_PIX_FMT_H264, "H.264", true, sizes, {}, imageBytes},
                      {V4L2_PIX_FMT_YUYV, "YUYV 4:2:2", false, sizes}};
    return camera;
}

class Compressed : public CameraBench {
  protected:
    Compressed() {
        board.onLoop([this] { camera->replaceDescription(compressedCamera()); });
        plug();
    }

    void prepareFormat(Client& client, std::uint32_t fourcc) {
        v4l2_format format{};
        format.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
        format.fmt.pix.width = 320;
        format.fmt.pix.height = 240;
        format.fmt.pix.pixelformat = fourcc;
        ASSERT_EQ(client(VIDIOC_S_FMT, format), 0);
        if (fourcc != V4L2_PIX_FMT_YUYV) {
            ASSERT_EQ(format.fmt.pix.sizeimage, imageBytes);
        }
        v4l2_requestbuffers request{};
        request.count = 4;
        request.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
        request.memory = V4L2_MEMORY_MMAP;
        ASSERT_EQ(client(VIDIOC_REQBUFS, request), 0);
        for (std::uint32_t i = 0; i < request.count; ++i) {
            v4l2_buffer queued = buffer(i);
            ASSERT_EQ(client(VIDIOC_QBUF, queued), 0);
        }
    }
    void planFault(const char* name, unsigned count) {
        board.onLoop(
            [&] { EXPECT_EQ(camera->planFault(payloadFaultNamed(name).value(), count, 5), ""); });
    }
    // The next payload; the buffer goes back to the camera.
    Bytes next(Client& client, v4l2_buffer* taken = nullptr) {
        v4l2_buffer filled = take(client);
        Bytes bytes = content(client, filled);
        if (taken != nullptr)
            *taken = filled;
        EXPECT_EQ(client(VIDIOC_QBUF, filled), 0);
        return bytes;
    }
    static std::optional<Stamp> stampOf(const Picture& picture) {
        return readStamp(picture.luma.data(), 1, picture.width, picture.width, picture.height);
    }
    // On a busy machine a frame may find no buffer, and the H.264 pictures after it are damaged.
    bool allDelivered() { return figures().lost == 0; }
};

TEST_F(Compressed, JpegPicturesTellNumberAndTime) {
    Client client = open();
    prepareFormat(client, V4L2_PIX_FMT_MJPEG);
    ASSERT_EQ(client.stream(true), 0);
    Stamp seen;
    ReferenceDecoder decoder(V4L2_PIX_FMT_MJPEG,
                             [&](const Picture& p) { seen = stampOf(p).value_or(Stamp{}); });
    for (int i = 0; i < 10; ++i) {
        v4l2_buffer taken{};
        ASSERT_TRUE(decoder.decode(next(client, &taken)));
        EXPECT_EQ(seen.frame, taken.sequence);
        EXPECT_EQ(seen.time_100us,
                  std::uint32_t(taken.timestamp.tv_sec * 10000 + taken.timestamp.tv_usec / 100));
        EXPECT_EQ(taken.flags & (V4L2_BUF_FLAG_KEYFRAME | V4L2_BUF_FLAG_ERROR), 0u);
    }
    EXPECT_TRUE(figures().marked);
}

TEST_F(Compressed, H264PicturesAreFoundAgainByTheirPlace) {
    Client client = open();
    prepareFormat(client, V4L2_PIX_FMT_H264);
    board.onLoop([this] {
        EXPECT_EQ(camera->delivered({5000, 17})->frame, 5000u) << "a mark that says it itself";
    });
    ASSERT_EQ(client.stream(true), 0);
    v4l2_buffer taken{};
    unsigned pictures = 0;
    ReferenceDecoder decoder(V4L2_PIX_FMT_H264, [&](const Picture& picture) {
        const auto mark = stampOf(picture);
        if (!mark) {
            EXPECT_FALSE(allDelivered());
            return;
        }
        EXPECT_EQ(mark->time_100us, stampInLoop);
        board.onLoop([&] {
            const auto delivered = camera->delivered(*mark);
            ASSERT_TRUE(delivered.has_value());
            EXPECT_EQ(delivered->frame, taken.sequence);
            EXPECT_EQ(delivered->time_100us, std::uint32_t(taken.timestamp.tv_sec * 10000 +
                                                           taken.timestamp.tv_usec / 100));
            EXPECT_FALSE(camera->delivered({5000, stampInLoop}).has_value());
            EXPECT_FALSE(camera->delivered({5000, 17}).has_value()) << "none of this stream";
        });
        ++pictures;
    });
    // A frame that is lost takes those with it that build on it.
    for (int i = 0; i < 300 || (pictures < 200 && !allDelivered() && i < 1500); ++i)
        EXPECT_TRUE(decoder.decode(next(client, &taken)) || !allDelivered());
    EXPECT_GE(pictures, 200u);
}

TEST_F(Compressed, SizeOfTheEncodedPictureChangesOnOrder) {
    Client client = open();
    prepareFormat(client, V4L2_PIX_FMT_H264);
    board.onLoop([this] { EXPECT_NE(camera->changeEncodedSize(160, 120), ""); });
    ASSERT_EQ(client.stream(true), 0);
    std::vector<std::uint32_t> widths;
    std::vector<std::uint32_t> numbers;
    ReferenceDecoder decoder(V4L2_PIX_FMT_H264, [&](const Picture& picture) {
        if (widths.empty() || widths.back() != picture.width)
            widths.push_back(picture.width);
        if (const auto mark = stampOf(picture))
            board.onLoop([&] { numbers.push_back(camera->delivered(*mark).value().frame); });
    });
    ASSERT_TRUE(decoder.decode(next(client)));
    board.onLoop([this] {
        EXPECT_EQ(camera->changeEncodedSize(160, 120), "");
        EXPECT_NE(camera->changeEncodedSize(161, 120), "");
    });
    const std::int64_t deadline = EventLoop::now_ns() + 20000000000;
    while (widths.size() < 2 && EventLoop::now_ns() < deadline)
        decoder.decode(next(client));
    EXPECT_EQ(widths, (std::vector<std::uint32_t>{320, 160}));
    EXPECT_TRUE(std::is_sorted(numbers.begin(), numbers.end()));
    EXPECT_EQ(figures().width, 320u) << "the format stays";
}

TEST_F(Compressed, FaultsAreForTheOrderedFramesOnly) {
    Client client = open();
    prepareFormat(client, V4L2_PIX_FMT_MJPEG);
    planFault("empty", 2);
    ASSERT_EQ(client.stream(true), 0);
    EXPECT_TRUE(next(client).empty());
    EXPECT_TRUE(next(client).empty());
    const Bytes good = next(client);
    EXPECT_GT(good.size(), 1000u);
    planFault("oversized", 1);
    v4l2_buffer taken{};
    bool found = false;
    // Buffers that were filled before the order come first.
    for (int i = 0; i < 6; ++i)
        found = next(client, &taken).size() == imageBytes || found;
    EXPECT_TRUE(found);
    planFault("error-flag", 1);
    unsigned flagged = 0;
    for (int i = 0; i < 6; ++i) {
        EXPECT_GT(next(client, &taken).size(), 1000u);
        flagged += (taken.flags & V4L2_BUF_FLAG_ERROR) != 0 ? 1 : 0;
    }
    EXPECT_EQ(flagged, 1u);
}

TEST_F(Compressed, FaultsThatTheFormatCannotHaveAreRefused) {
    Client client = open();
    prepareFormat(client, V4L2_PIX_FMT_YUYV);
    board.onLoop([this] {
        EXPECT_NE(camera->planFault(PayloadFault::noHuffman, 1, 1), "");
        EXPECT_NE(camera->planFault(PayloadFault::oversized, 1, 1), "");
        EXPECT_EQ(camera->planFault(PayloadFault::truncate, 1, 1), "");
    });
    ASSERT_EQ(client.stream(true), 0);
    EXPECT_LT(next(client).size(), 320u * 240 * 2);
    EXPECT_EQ(next(client).size(), 320u * 240 * 2);
}

TEST_F(Compressed, AMixDamagesSoManyOfAThousand) {
    Client client = open();
    prepareFormat(client, V4L2_PIX_FMT_MJPEG);
    board.onLoop([this] { camera->mixFaults(500, 11); });
    ASSERT_EQ(client.stream(true), 0);
    unsigned bad = 0;
    v4l2_buffer taken{};
    ReferenceDecoder decoder(V4L2_PIX_FMT_MJPEG, [](const Picture&) {});
    for (int i = 0; i < 100; ++i) {
        const Bytes bytes = next(client, &taken);
        const bool whole = bytes.size() > 2 && bytes[0] == 0xff && bytes[1] == 0xd8 &&
                           bytes[bytes.size() - 2] == 0xff && bytes.back() == 0xd9;
        bad += whole ? 0 : 1;
    }
    EXPECT_GT(bad, 5u);
    EXPECT_LT(bad, 60u);
    board.onLoop([this] { camera->mixFaults(0, 0); });
    for (int i = 0; i < 5; ++i)
        next(client);
    for (int i = 0; i < 20; ++i)
        EXPECT_TRUE(decoder.decode(next(client)));
}

TEST_F(Compressed, PayloadsAreCopiedToAFile) {
    const std::string path = testing::TempDir() + "payloads.mjpeg";
    Client client = open();
    prepareFormat(client, V4L2_PIX_FMT_MJPEG);
    board.onLoop([&] {
        EXPECT_NE(camera->stopPayloads(), "");
        EXPECT_NE(camera->startPayloads("/nonexistent/payloads.mjpeg"), "");
        EXPECT_EQ(camera->startPayloads(path), "");
        EXPECT_NE(camera->startPayloads(path), "");
    });
    ASSERT_EQ(client.stream(true), 0);
    Bytes taken;
    for (int i = 0; i < 5; ++i) {
        const Bytes payload = next(client);
        taken.insert(taken.end(), payload.begin(), payload.end());
    }
    board.onLoop([&] { EXPECT_EQ(camera->stopPayloads(), ""); });
    std::ostringstream content;
    content << std::ifstream(path, std::ios::binary).rdbuf();
    const std::string written = content.str();
    ASSERT_GE(written.size(), taken.size());
    EXPECT_TRUE(std::equal(taken.begin(), taken.end(), written.begin(),
                           [](std::uint8_t a, char b) { return a == std::uint8_t(b); }));
}

}  // namespace
}  // namespace board::test
