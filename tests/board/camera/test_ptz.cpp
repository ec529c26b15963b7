// A pan-tilt-zoom camera: where it goes, when it sleeps, what it remembers of what it was told.

#include "board/daemon/camera/cameramotion.h"
#include "tests/board/camera/camerabench.h"

#include <linux/usb/video.h>
#include <linux/uvcvideo.h>
#include <sys/mman.h>

#include <cerrno>
#include <cstring>

namespace board::test {

namespace {

constexpr std::int64_t second = 1000000000;

CameraControl axis(std::uint32_t id, std::int64_t minimum, std::int64_t maximum, std::int64_t step,
                   std::int64_t value) {
    CameraControl control;
    control.id = id;
    control.name = "axis";
    control.minimum = minimum;
    control.maximum = maximum;
    control.step = step;
    control.value = value;
    return control;
}

CameraDescription ptzCamera() {
    CameraDescription camera = smallCamera();
    camera.controls = {
        axis(V4L2_CID_PAN_ABSOLUTE, -1000, 1000, 10, 0),
        axis(V4L2_CID_TILT_ABSOLUTE, -500, 500, 1, 777),
        axis(V4L2_CID_ZOOM_ABSOLUTE, 0, 100, 1, 0),
        axis(V4L2_CID_PAN_SPEED, -20, 20, 1, 0),
        axis(V4L2_CID_TILT_SPEED, -20, 20, 1, 0),
        axis(V4L2_CID_ZOOM_CONTINUOUS, 0, 50, 1, 0),
        axis(V4L2_CID_PAN_RELATIVE, -1000, 1000, 1, 0),
    };
    camera.ptz.moves = true;
    camera.ptz.panPerSecond = 10;
    camera.ptz.tiltPerSecond = 5;
    camera.ptz.zoomPerSecond = 1;
    UnitControl plain, power, tracking;
    plain.selector = 4;
    plain.bytes = 4;
    power.selector = 2;
    power.bytes = 6;
    power.role = UnitRole::power;
    power.sleep = {0xaa, 1};
    power.wake = {0xaa, 2};
    tracking.selector = 3;
    tracking.bytes = 2;
    tracking.role = UnitRole::tracking;
    camera.units = {{7, {plain, power, tracking}}};
    return camera;
}

TEST(CameraMotion, movesAtTheCommandedSpeedUntilItsLimits) {
    CameraMotion motion(ptzCamera());
    motion.set(V4L2_CID_PAN_SPEED, 10, second);
    EXPECT_EQ(motion.position(V4L2_CID_PAN_ABSOLUTE, second), 0);
    EXPECT_EQ(motion.position(V4L2_CID_PAN_ABSOLUTE, 2 * second), 100);
    EXPECT_EQ(motion.position(V4L2_CID_PAN_ABSOLUTE, 100 * second), 1000);
    motion.set(V4L2_CID_PAN_SPEED, -20, 100 * second);
    EXPECT_EQ(motion.position(V4L2_CID_PAN_ABSOLUTE, 101 * second), 800);
    motion.set(V4L2_CID_PAN_SPEED, 0, 101 * second);
    EXPECT_EQ(motion.position(V4L2_CID_PAN_ABSOLUTE, 200 * second), 800);
    EXPECT_EQ(motion.position(V4L2_CID_ZOOM_ABSOLUTE, 200 * second), 0);
}

TEST(CameraMotion, goesToAbsoluteAndRelativePlacesAtItsHighestSpeed) {
    CameraMotion motion(ptzCamera());
    motion.set(V4L2_CID_PAN_ABSOLUTE, 600, 0);
    EXPECT_EQ(motion.position(V4L2_CID_PAN_ABSOLUTE, second), 200);
    EXPECT_EQ(motion.position(V4L2_CID_PAN_ABSOLUTE, 10 * second), 600);
    motion.set(V4L2_CID_PAN_RELATIVE, -700, 10 * second);
    EXPECT_EQ(motion.position(V4L2_CID_PAN_ABSOLUTE, 11 * second), 400);
    EXPECT_EQ(motion.position(V4L2_CID_PAN_ABSOLUTE, 99 * second), -100);
    motion.set(V4L2_CID_PAN_RELATIVE, -5000, 99 * second);
    EXPECT_EQ(motion.position(V4L2_CID_PAN_ABSOLUTE, 999 * second), -1000);
}

TEST(CameraMotion, reportsPlacesOnItsSteps) {
    CameraMotion motion(ptzCamera());
    motion.set(V4L2_CID_PAN_SPEED, 1, 0);
    EXPECT_EQ(motion.position(V4L2_CID_PAN_ABSOLUTE, second * 4 / 10), 0);
    EXPECT_EQ(motion.position(V4L2_CID_PAN_ABSOLUTE, second * 6 / 10), 10);
}

TEST(CameraMotion, aPlaceOutsideTheRangeStandsUntilSomethingMoves) {
    CameraMotion motion(ptzCamera());
    EXPECT_EQ(motion.position(V4L2_CID_TILT_ABSOLUTE, second), 777);
    motion.set(V4L2_CID_TILT_SPEED, -20, second);
    EXPECT_EQ(motion.position(V4L2_CID_TILT_ABSOLUTE, 2 * second), 400);
}

TEST(CameraMotion, theViewFollows) {
    CameraDescription camera = ptzCamera();
    camera.controls[1].value = 0;
    CameraMotion motion(camera);
    PictureView view = motion.view(0);
    EXPECT_DOUBLE_EQ(view.size, 0.6);
    EXPECT_DOUBLE_EQ(view.left, 0.2);
    EXPECT_DOUBLE_EQ(view.top, 0.2);
    motion.set(V4L2_CID_PAN_ABSOLUTE, 1000, 0);
    motion.set(V4L2_CID_TILT_ABSOLUTE, 500, 0);
    motion.set(V4L2_CID_ZOOM_ABSOLUTE, 100, 0);
    view = motion.view(100 * second);
    EXPECT_DOUBLE_EQ(view.size, 0.15);
    EXPECT_DOUBLE_EQ(view.left, 0.85);
    EXPECT_DOUBLE_EQ(view.top, 0.0);
}

TEST(CameraMotion, aDigitalZoomIsThereAtOnceAndShowsAllWithoutIt) {
    CameraDescription camera = ptzCamera();
    camera.ptz.moves = false;
    camera.controls.erase(camera.controls.begin() + 3, camera.controls.end());
    CameraMotion motion(camera);
    EXPECT_TRUE(motion.view(0).whole());
    motion.set(V4L2_CID_ZOOM_ABSOLUTE, 100, 5);
    EXPECT_EQ(motion.position(V4L2_CID_ZOOM_ABSOLUTE, 5), 100);
    EXPECT_DOUBLE_EQ(motion.view(5).size, 0.25);
}

class PtzBench : public CameraBench {
  protected:
    PtzBench() {
        board.onLoop([&] { camera->replaceDescription(ptzCamera()); });
        plug();
    }

    int query(Client& client, unsigned unit, unsigned selector, unsigned request,
              std::vector<std::uint8_t>& data) {
        uvc_xu_control_query query{};
        query.unit = std::uint8_t(unit);
        query.selector = std::uint8_t(selector);
        query.query = std::uint8_t(request);
        query.size = std::uint16_t(data.size());
        IoctlCall call;
        call.request = UVCIOC_CTRL_QUERY;
        call.argument.resize(sizeof query);
        call.store(query);
        call.blocks.resize(1);
        call.blocks[0].capacity = std::uint32_t(data.size());
        call.blocks[0].sent.resize(data.size());
        if (!data.empty())
            std::memcpy(call.blocks[0].sent.data(), data.data(), data.size());
        const int result = client.run(call);
        if (!call.blocks[0].reply.empty())
            data = [&] {
                std::vector<std::uint8_t> reply(call.blocks[0].reply.size());
                std::memcpy(reply.data(), call.blocks[0].reply.data(), reply.size());
                return reply;
            }();
        return result;
    }
    int write(Client& client, unsigned selector, std::vector<std::uint8_t> data) {
        return query(client, 7, selector, UVC_SET_CUR, data);
    }
    int set(Client& client, std::uint32_t id, int value) {
        v4l2_control control{id, value};
        return client(VIDIOC_S_CTRL, control);
    }
    PtzState ptz() {
        PtzState state;
        board.onLoop([&] { state = camera->ptz(); });
        return state;
    }
    std::vector<Told> told() {
        std::vector<Told> list;
        std::uint64_t from = 0;
        board.onLoop([&] { list = camera->told().since(from); });
        return list;
    }
};

using Units = PtzBench;

TEST_F(Units, answerInTheDriversOrderOfChecks) {
    Client client = open();
    std::vector<std::uint8_t> four(4), three(3), two(2), one(1), none;
    EXPECT_EQ(query(client, 6, 4, UVC_GET_CUR, four), -ENOENT);
    EXPECT_EQ(query(client, 7, 5, UVC_GET_CUR, four), -ENOENT);
    EXPECT_EQ(query(client, 7, 4, 0x99, three), -EINVAL);
    EXPECT_EQ(query(client, 7, 4, UVC_GET_CUR, three), -ENOBUFS);
    EXPECT_EQ(query(client, 7, 4, UVC_GET_CUR, none), -ENOBUFS);
    EXPECT_EQ(query(client, 7, 4, UVC_GET_LEN, four), -ENOBUFS);
    EXPECT_EQ(query(client, 7, 4, UVC_GET_LEN, two), 0);
    EXPECT_EQ(two, (std::vector<std::uint8_t>{4, 0}));
    EXPECT_EQ(query(client, 7, 4, UVC_GET_INFO, one), 0);
    EXPECT_EQ(one, std::vector<std::uint8_t>{3});
    EXPECT_EQ(query(client, 7, 4, UVC_GET_MAX, four), 0);
    EXPECT_EQ(four, std::vector<std::uint8_t>(4, 0xff));
    EXPECT_EQ(query(client, 7, 4, UVC_GET_DEF, four), 0);
    EXPECT_EQ(four, std::vector<std::uint8_t>(4, 0));
}

TEST_F(Units, keepWhatIsWritten) {
    Client client = open();
    EXPECT_EQ(write(client, 4, {1, 2, 3, 4}), 0);
    std::vector<std::uint8_t> four(4);
    EXPECT_EQ(query(client, 7, 4, UVC_GET_CUR, four), 0);
    EXPECT_EQ(four, (std::vector<std::uint8_t>{1, 2, 3, 4}));
    EXPECT_FALSE(ptz().tracking);
    EXPECT_EQ(write(client, 3, {1, 0}), 0);
    EXPECT_TRUE(ptz().tracking);
}

TEST_F(Units, areAbsentOnOtherCamerasAndGoneWithTheirOwn) {
    Client client = open();
    unplug();
    EXPECT_EQ(write(client, 4, {1, 2, 3, 4}), -ENODEV);
    board.onLoop([&] { camera->replaceDescription(smallCamera()); });
    plug();
    Client other = open();
    EXPECT_EQ(write(other, 4, {1, 2, 3, 4}), -ENOENT);
}

TEST_F(Units, asleepNothingComesAndNothingMovesAwakeItGoesOn) {
    Client client = open();
    prepare(client, 3);
    ASSERT_EQ(client.stream(true), 0);
    v4l2_buffer frame = take(client);
    EXPECT_EQ(write(client, 2, {0xaa, 1, 0, 0, 0, 1}), 0);  // no command
    EXPECT_FALSE(ptz().asleep);
    EXPECT_EQ(write(client, 2, {0xaa, 1, 0, 0, 0, 0}), 0);
    EXPECT_TRUE(ptz().asleep);
    const std::uint64_t delivered = figures().delivered;
    EXPECT_EQ(set(client, V4L2_CID_PAN_ABSOLUTE, 500), 0);
    EXPECT_EQ(set(client, V4L2_CID_ZOOM_ABSOLUTE, 50), 0);
    EXPECT_FALSE(until([&] { return camera->figures().delivered > delivered; }, 200));
    EXPECT_EQ(ptz().pan, 0);
    EXPECT_EQ(ptz().zoom, 0);
    EXPECT_EQ(write(client, 2, {0xaa, 2, 0, 0, 0, 0}), 0);
    EXPECT_FALSE(ptz().asleep);
    ASSERT_EQ(client(VIDIOC_QBUF, frame), 0);
    EXPECT_TRUE(until([&] { return camera->figures().delivered > delivered; }));
}

TEST_F(Units, aStreamThatStartsAsleepBeginsWhenItWakes) {
    Client client = open();
    EXPECT_EQ(write(client, 2, {0xaa, 1, 0, 0, 0, 0}), 0);
    prepare(client, 3);
    ASSERT_EQ(client.stream(true), 0);
    EXPECT_FALSE(until([&] { return camera->figures().delivered > 0; }, 200));
    EXPECT_EQ(write(client, 2, {0xaa, 2, 0, 0, 0, 0}), 0);
    take(client);
}

TEST_F(Units, aFreshPluggingIsAwake) {
    Client client = open();
    EXPECT_EQ(write(client, 2, {0xaa, 1, 0, 0, 0, 0}), 0);
    unplug();
    plug();
    EXPECT_FALSE(ptz().asleep);
}

TEST_F(Units, everythingIsRememberedAsAskedAndAsGiven) {
    Client client = open();
    EXPECT_EQ(set(client, V4L2_CID_ZOOM_CONTINUOUS, -10), 0);
    EXPECT_EQ(set(client, V4L2_CID_PAN_ABSOLUTE, 14), 0);
    EXPECT_EQ(set(client, V4L2_CID_BRIGHTNESS, 1), -EINVAL);
    EXPECT_EQ(write(client, 3, {9, 8}), 0);
    EXPECT_EQ(write(client, 9, {1}), -ENOENT);
    v4l2_ext_controls header{};
    std::vector<v4l2_ext_control> items(2);
    items[0].id = V4L2_CID_PAN_SPEED;
    items[0].value = 99;
    items[1].id = V4L2_CID_TILT_SPEED;
    items[1].value = -3;
    EXPECT_EQ(client.extended(VIDIOC_S_EXT_CTRLS, header, items), 0);
    EXPECT_EQ(client.extended(VIDIOC_TRY_EXT_CTRLS, header, items), 0);
    const std::vector<Told> list = told();
    ASSERT_EQ(list.size(), 7u);
    EXPECT_EQ(list[0].id, V4L2_CID_ZOOM_CONTINUOUS);
    EXPECT_EQ(list[0].asked, -10);
    EXPECT_EQ(list[0].given, 0);
    EXPECT_EQ(list[1].asked, 14);
    EXPECT_EQ(list[1].given, 10);
    EXPECT_EQ(list[2].result, -EINVAL);
    EXPECT_FALSE(list[3].isControl);
    EXPECT_EQ(list[3].unit, 7);
    EXPECT_EQ(list[3].selector, 3);
    EXPECT_EQ(list[3].bytes, (std::vector<std::uint8_t>{9, 8}));
    EXPECT_EQ(list[4].result, -ENOENT);
    EXPECT_EQ(list[5].asked, 99);
    EXPECT_EQ(list[5].given, 20);
    EXPECT_EQ(list[6].given, -3);
    for (std::size_t i = 1; i < list.size(); ++i)
        EXPECT_LE(list[i - 1].time_ns, list[i].time_ns);
}

TEST(ToldList, beginsAnywhere) {
    ToldList list;
    for (int i = 0; i < 5; ++i) {
        Told told;
        told.asked = i;
        list.add(told);
    }
    std::uint64_t from = 3;
    EXPECT_EQ(list.since(from).size(), 2u);
    from = 99;
    EXPECT_TRUE(list.since(from).empty());
    EXPECT_EQ(from, 5u);
}

// Bars 8 pixels wide, in a picture of 64: the view's left edge decides which bar is in the corner.
TEST_F(PtzBench, thePictureMovesWithTheCamera) {
    Client client = open();
    prepare(client, 3);
    ASSERT_EQ(client.stream(true), 0);
    const auto bottomLeft = [&] {
        v4l2_buffer frame = take(client);
        const Mapping mapping = client.map(frame.m.offset, frame.length, PROT_READ);
        void* memory = mmap(nullptr, frame.length, PROT_READ, MAP_SHARED, mapping.memfd, 0);
        const int luma = static_cast<const std::uint8_t*>(memory)[47 * 128];
        munmap(memory, frame.length);
        client.unmapped(frame.m.offset, frame.length);
        EXPECT_EQ(client(VIDIOC_QBUF, frame), 0);
        return luma;
    };
    // In the middle, at the widest: a fifth of the recording is left out, the second bar begins.
    EXPECT_EQ(bottomLeft(), 162);
    EXPECT_EQ(set(client, V4L2_CID_PAN_SPEED, -20), 0);
    for (int frame = 0; frame < 3000 && bottomLeft() != 180; ++frame)
        continue;
    EXPECT_EQ(bottomLeft(), 180);
    EXPECT_LT(ptz().pan, 0);
}

}  // namespace

}  // namespace board::test
