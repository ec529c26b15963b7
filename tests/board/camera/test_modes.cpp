// Capabilities, formats, sizes, intervals, inputs, priority.
#include "tests/board/camera/camerabench.h"

#include <cerrno>
#include <cstring>

namespace board::test {
namespace {

class Modes : public CameraBench {
  protected:
    Modes() { plug(); }
    v4l2_format adjusted(Client& client, std::uint32_t fourcc, std::uint32_t width,
                         std::uint32_t height, std::uint64_t request = VIDIOC_TRY_FMT) {
        v4l2_format format{};
        std::memset(&format, 0xff, sizeof format);
        format.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
        format.fmt.pix.pixelformat = fourcc;
        format.fmt.pix.width = width;
        format.fmt.pix.height = height;
        EXPECT_EQ(client(request, format), 0);
        return format;
    }
};

TEST_F(Modes, CapabilityComesFromTheDescription) {
    Client client = open();
    v4l2_capability capability;
    std::memset(&capability, 0xff, sizeof capability);
    ASSERT_EQ(client(VIDIOC_QUERYCAP, capability), 0);
    EXPECT_STREQ(reinterpret_cast<char*>(capability.card), "Small Camera");
    EXPECT_STREQ(reinterpret_cast<char*>(capability.driver), "uvcvideo");
    EXPECT_EQ(capability.version, 0x060101u);
    EXPECT_EQ(capability.device_caps,
              std::uint32_t(V4L2_CAP_VIDEO_CAPTURE | V4L2_CAP_STREAMING | V4L2_CAP_EXT_PIX_FORMAT));
    EXPECT_EQ(capability.capabilities, capability.device_caps | V4L2_CAP_DEVICE_CAPS);
    for (const auto word : capability.reserved)
        EXPECT_EQ(word, 0u);
}

TEST_F(Modes, ListsFormatsSizesAndIntervalsInOrderWithRepetitions) {
    Client client = open();
    std::vector<std::uint32_t> formats;
    v4l2_fmtdesc format{};
    for (format.type = V4L2_BUF_TYPE_VIDEO_CAPTURE; client(VIDIOC_ENUM_FMT, format) == 0;
         ++format.index) {
        formats.push_back(format.pixelformat);
        EXPECT_EQ(format.flags & V4L2_FMT_FLAG_COMPRESSED,
                  format.pixelformat == V4L2_PIX_FMT_MJPEG ? 1u : 0u);
    }
    EXPECT_EQ(formats, (std::vector<std::uint32_t>{V4L2_PIX_FMT_YUYV, V4L2_PIX_FMT_NV12,
                                                   V4L2_PIX_FMT_MJPEG}));
    std::vector<std::uint32_t> widths;
    v4l2_frmsizeenum size{};
    for (size.pixel_format = V4L2_PIX_FMT_YUYV; client(VIDIOC_ENUM_FRAMESIZES, size) == 0;
         ++size.index)
        widths.push_back(size.discrete.width);
    EXPECT_EQ(widths, (std::vector<std::uint32_t>{640, 64, 160, 640}));
    std::vector<std::uint32_t> rates;
    v4l2_frmivalenum interval{};
    interval.pixel_format = V4L2_PIX_FMT_YUYV;
    interval.width = 64;
    interval.height = 48;
    for (; client(VIDIOC_ENUM_FRAMEINTERVALS, interval) == 0; ++interval.index)
        rates.push_back(interval.discrete.denominator);
    EXPECT_EQ(rates, (std::vector<std::uint32_t>{30, 100, 200}));
    interval.index = 0;
    interval.height = 47;
    EXPECT_EQ(client(VIDIOC_ENUM_FRAMEINTERVALS, interval), -EINVAL);
    size.index = 0;
    size.pixel_format = V4L2_PIX_FMT_GREY;
    EXPECT_EQ(client(VIDIOC_ENUM_FRAMESIZES, size), -EINVAL);
    format.index = 0;
    format.type = V4L2_BUF_TYPE_VIDEO_OUTPUT;
    EXPECT_EQ(client(VIDIOC_ENUM_FMT, format), -EINVAL);
}

TEST_F(Modes, TryGivesTheNearestSizeByArea) {
    Client client = open();
    const auto width = [&](std::uint32_t w, std::uint32_t h) {
        return adjusted(client, V4L2_PIX_FMT_YUYV, w, h).fmt.pix.width;
    };
    EXPECT_EQ(width(640, 480), 640u);
    EXPECT_EQ(width(1, 1), 64u);
    EXPECT_EQ(width(150, 100), 160u);
    EXPECT_EQ(width(0xffffffff, 0xffffffff), 640u);
    // Areas not shared: 160x120 to 320x240 57600, 640x480 to it 230400.
    EXPECT_EQ(width(320, 240), 160u);
    EXPECT_EQ(width(640, 48), 64u);
}

TEST_F(Modes, FormatFieldsAreComplete) {
    Client client = open();
    const v4l2_format yuyv = adjusted(client, V4L2_PIX_FMT_YUYV, 64, 48);
    EXPECT_EQ(yuyv.fmt.pix.bytesperline, 128u);
    EXPECT_EQ(yuyv.fmt.pix.sizeimage, 128u * 48);
    EXPECT_EQ(yuyv.fmt.pix.field, std::uint32_t(V4L2_FIELD_NONE));
    EXPECT_EQ(yuyv.fmt.pix.colorspace, std::uint32_t(V4L2_COLORSPACE_SRGB));
    EXPECT_EQ(yuyv.fmt.pix.priv, V4L2_PIX_FMT_PRIV_MAGIC);
    EXPECT_EQ(yuyv.fmt.pix.flags, 0u);
    for (std::size_t i = sizeof(v4l2_pix_format); i < sizeof yuyv.fmt.raw_data; ++i)
        ASSERT_EQ(yuyv.fmt.raw_data[i], 0) << i;
    const v4l2_format nv12 = adjusted(client, V4L2_PIX_FMT_NV12, 64, 48);
    EXPECT_EQ(nv12.fmt.pix.bytesperline, 64u);
    EXPECT_EQ(nv12.fmt.pix.sizeimage, 64u * 48 * 3 / 2);
    const v4l2_format mjpeg = adjusted(client, V4L2_PIX_FMT_MJPEG, 64, 48);
    EXPECT_EQ(mjpeg.fmt.pix.width, 640u);
    EXPECT_EQ(mjpeg.fmt.pix.bytesperline, 0u);
    EXPECT_GT(mjpeg.fmt.pix.sizeimage, 0u);
    EXPECT_EQ(adjusted(client, V4L2_PIX_FMT_GREY, 64, 48).fmt.pix.pixelformat,
              std::uint32_t(V4L2_PIX_FMT_YUYV));
}

TEST_F(Modes, SetFormatHoldsAndTryDoesNot) {
    Client client = open();
    adjusted(client, V4L2_PIX_FMT_NV12, 64, 48, VIDIOC_TRY_FMT);
    v4l2_format now{};
    now.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    ASSERT_EQ(client(VIDIOC_G_FMT, now), 0);
    EXPECT_EQ(now.fmt.pix.pixelformat, std::uint32_t(V4L2_PIX_FMT_YUYV));
    EXPECT_EQ(now.fmt.pix.width, 640u);
    adjusted(client, V4L2_PIX_FMT_NV12, 64, 48, VIDIOC_S_FMT);
    ASSERT_EQ(client(VIDIOC_G_FMT, now), 0);
    EXPECT_EQ(now.fmt.pix.pixelformat, std::uint32_t(V4L2_PIX_FMT_NV12));
    EXPECT_EQ(now.fmt.pix.width, 64u);
    now.type = V4L2_BUF_TYPE_VIDEO_OUTPUT;
    EXPECT_EQ(client(VIDIOC_G_FMT, now), -EINVAL);
    EXPECT_EQ(client(VIDIOC_S_FMT, now), -EINVAL);
}

TEST_F(Modes, FormatIsFixedWhileThereAreBuffers) {
    Client client = open();
    prepare(client, 2);
    v4l2_format format{};
    format.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    EXPECT_EQ(client(VIDIOC_S_FMT, format), -EBUSY);
    EXPECT_EQ(client(VIDIOC_TRY_FMT, format), 0);
}

TEST_F(Modes, IntervalIsTheNearestOfTheSize) {
    Client client = open();
    adjusted(client, V4L2_PIX_FMT_YUYV, 64, 48, VIDIOC_S_FMT);
    const auto chosen = [&](v4l2_fract wanted) {
        v4l2_streamparm parameters{};
        std::memset(&parameters, 0xff, sizeof parameters);
        parameters.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
        parameters.parm.capture.timeperframe = wanted;
        EXPECT_EQ(client(VIDIOC_S_PARM, parameters), 0);
        EXPECT_EQ(parameters.parm.capture.capability, std::uint32_t(V4L2_CAP_TIMEPERFRAME));
        EXPECT_EQ(parameters.parm.capture.reserved[3], 0u);
        v4l2_streamparm again{};
        again.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
        EXPECT_EQ(client(VIDIOC_G_PARM, again), 0);
        EXPECT_EQ(std::memcmp(&again, &parameters, sizeof again), 0);
        return parameters.parm.capture.timeperframe.denominator;
    };
    EXPECT_EQ(chosen({1, 100}), 100u);
    EXPECT_EQ(chosen({1, 90}), 100u);
    EXPECT_EQ(chosen({1, 25}), 30u);
    EXPECT_EQ(chosen({0, 0}), 30u);
    EXPECT_EQ(chosen({0, 1}), 200u);
    EXPECT_EQ(chosen({1001, 30000}), 30u);
    adjusted(client, V4L2_PIX_FMT_YUYV, 64, 48, VIDIOC_S_FMT);
    v4l2_streamparm first{};
    first.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    ASSERT_EQ(client(VIDIOC_G_PARM, first), 0);
    EXPECT_EQ(first.parm.capture.timeperframe.denominator, 30u) << "a new format starts afresh";
}

TEST_F(Modes, OneInput) {
    Client client = open();
    v4l2_input input{};
    ASSERT_EQ(client(VIDIOC_ENUMINPUT, input), 0);
    EXPECT_EQ(input.type, std::uint32_t(V4L2_INPUT_TYPE_CAMERA));
    input.index = 1;
    EXPECT_EQ(client(VIDIOC_ENUMINPUT, input), -EINVAL);
    std::int32_t number = 7;
    EXPECT_EQ(client(VIDIOC_G_INPUT, number), 0);
    EXPECT_EQ(number, 0);
    EXPECT_EQ(client(VIDIOC_S_INPUT, number), 0);
    number = 1;
    EXPECT_EQ(client(VIDIOC_S_INPUT, number), -EINVAL);
}

TEST_F(Modes, AHigherPriorityElsewhereForbidsChanges) {
    Client first = open(), second = open();
    std::uint32_t priority = V4L2_PRIORITY_RECORD;
    ASSERT_EQ(first(VIDIOC_S_PRIORITY, priority), 0);
    v4l2_format format{};
    format.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    EXPECT_EQ(second(VIDIOC_S_FMT, format), -EBUSY);
    EXPECT_EQ(second(VIDIOC_S_PRIORITY, priority), -EBUSY);
    EXPECT_EQ(second(VIDIOC_TRY_FMT, format), 0);
    EXPECT_EQ(second(VIDIOC_G_PRIORITY, priority), 0);
    EXPECT_EQ(priority, std::uint32_t(V4L2_PRIORITY_RECORD));
    EXPECT_EQ(first(VIDIOC_S_FMT, format), 0);
    first.close();
    EXPECT_EQ(second(VIDIOC_S_FMT, format), 0);
    priority = 9;
    EXPECT_EQ(second(VIDIOC_S_PRIORITY, priority), -EINVAL);
}

TEST_F(Modes, UnknownCallsAreUnknown) {
    Client client = open();
    EXPECT_TRUE(client.knows(VIDIOC_QUERYCAP));
    EXPECT_FALSE(client.knows(VIDIOC_EXPBUF));
    EXPECT_FALSE(client.knows(VIDIOC_QUERYSTD));
    EXPECT_FALSE(client.knows(_IOC(_IOC_READ | _IOC_WRITE, 'V', 255, 0x3fff)));
    int argument = 0;
    EXPECT_EQ(client(VIDIOC_G_OUTPUT, argument), -ENOTTY);
}

TEST(ModesOfAnEmptyCamera, AnswerWithErrors) {
    FakeBoard board(1);
    std::unique_ptr<Camera> camera;
    std::unique_ptr<Handle> handle;
    board.onLoop([&] {
        CameraDescription none;
        none.formats.push_back({V4L2_PIX_FMT_YUYV, "without sizes", false, {}});
        camera = std::make_unique<Camera>(board, none);
        camera->plug();
        int error = 0;
        handle = board.nodes.begin()->second.device->open(0, 1, &error);
    });
    {
        Client client(board, std::move(handle));
        v4l2_format format{};
        format.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
        EXPECT_EQ(client(VIDIOC_G_FMT, format), -EINVAL);
        EXPECT_EQ(client(VIDIOC_S_FMT, format), -EINVAL);
        v4l2_streamparm parameters{};
        parameters.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
        EXPECT_EQ(client(VIDIOC_S_PARM, parameters), -EINVAL);
        v4l2_requestbuffers request{};
        request.count = 3;
        request.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
        request.memory = V4L2_MEMORY_MMAP;
        EXPECT_EQ(client(VIDIOC_REQBUFS, request), -EINVAL);
        EXPECT_EQ(client.stream(true), -EINVAL);
    }
    board.onLoop([&] { camera.reset(); });
}

}  // namespace
}  // namespace board::test
