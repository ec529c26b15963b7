#include <drm.h>
#include <drm_mode.h>
#include <linux/videodev2.h>

#include <cerrno>
#include <memory>
#include <vector>

#include "tests/board/core/boardclient.h"
#include "tests/board/core/servedboard.h"

namespace boardtest {
namespace {

namespace wire = board::wire;

constexpr std::uint32_t queryCapabilities = std::uint32_t(VIDIOC_QUERYCAP);

wire::Request extControlsRequest(std::uint32_t sent, std::uint32_t capacity) {
    wire::Request request{};
    request.op = wire::Op::ioctl;
    request.code = std::uint32_t(VIDIOC_G_EXT_CTRLS);
    request.argBytes = sizeof(v4l2_ext_controls);
    request.blockCount = 1;
    request.blocks[0] = {sent, capacity};
    return request;
}

TEST_F(ServedBoard, OpenGivesDescriptorsKindAndSlot) {
    BoardClient client(folder_);
    const auto answer = client.open(fakeNode);
    ASSERT_TRUE(answer.came);
    EXPECT_EQ(answer.header.result, 0);
    EXPECT_EQ(answer.header.kind, wire::Kind::v4l2);
    EXPECT_LT(answer.header.slot, wire::maxHandles);
    EXPECT_EQ(answer.header.eventSlot, 1u);
    EXPECT_EQ(answer.descriptors, 2u);
    EXPECT_EQ(device_.handles.load(), 1);
}

TEST_F(ServedBoard, AbsentNodeIsRefusedAndMayBeTriedAgain) {
    BoardClient client(folder_);
    EXPECT_EQ(client.open("/dev/none").header.result, -ENOENT);
    EXPECT_EQ(client.open(std::string(5000, 'x')).header.result, -ENOENT);
    EXPECT_EQ(client.open(fakeNode).header.result, 0);
}

TEST_F(ServedBoard, DeathOfAClientDestroysItsHandle) {
    auto client = std::make_unique<BoardClient>(folder_);
    BoardClient other(folder_);
    ASSERT_EQ(client->open(fakeNode).header.result, 0);
    ASSERT_EQ(other.open(fakeNode).header.result, 0);
    ASSERT_EQ(device_.handles.load(), 2);
    client.reset();
    EXPECT_TRUE(becomesTrue([&] { return device_.handles == 1; }));
    EXPECT_EQ(other.ioctl(queryCapabilities, std::vector<std::byte>(sizeof(v4l2_capability)))
                  .header.result,
              0);
}

TEST_F(ServedBoard, ArgumentComesBack) {
    BoardClient client(folder_);
    client.open(fakeNode);
    const auto answer = client.ioctl(queryCapabilities, bytesOf(v4l2_capability{}));
    ASSERT_EQ(answer.header.result, 0);
    ASSERT_EQ(answer.header.argBytes, sizeof(v4l2_capability));
    EXPECT_EQ(answer.payload[offsetof(v4l2_capability, card)], std::byte('F'));
}

TEST_F(ServedBoard, FailedCallLeavesTheArgumentUnlessTheDeviceWants) {
    BoardClient client(folder_);
    client.open(fakeNode);
    const auto replied = client.ioctl(std::uint32_t(VIDIOC_G_INPUT), bytesOf(0));
    EXPECT_EQ(replied.header.result, -EBUSY);
    EXPECT_EQ(replied.payload, bytesOf(7));
    onLoop([&] { faults_.add("VIDIOC_QUERYCAP", 1, EIO, 1); });
    const auto failed = client.ioctl(queryCapabilities, bytesOf(v4l2_capability{}));
    EXPECT_EQ(failed.header.result, -EIO);
    EXPECT_EQ(failed.header.argBytes, 0u);
    EXPECT_TRUE(failed.payload.empty());
}

TEST_F(ServedBoard, UnknownIoctlNeverReachesTheDevice) {
    BoardClient client(folder_);
    client.open(fakeNode);
    const auto answer = client.ioctl(std::uint32_t(VIDIOC_QBUF), bytesOf(v4l2_buffer{}));
    EXPECT_EQ(answer.header.result, -ENOTTY);
    EXPECT_EQ(device_.calls.load(), 0);
    wire::Request known{};
    known.op = wire::Op::known;
    known.code = std::uint32_t(VIDIOC_QBUF);
    EXPECT_EQ(client.call(known).header.result, -ENOTTY);
    known.code = queryCapabilities;
    EXPECT_EQ(client.call(known).header.result, 0);
}

TEST_F(ServedBoard, NestedBlockThereAndBack) {
    BoardClient client(folder_);
    client.open(fakeNode);
    v4l2_ext_controls controls{};
    controls.count = 2;
    v4l2_ext_control items[2] = {};
    items[0].value = 21;
    items[1].value = -4;
    std::vector<std::byte> payload = bytesOf(controls);
    const auto block = bytesOf(items);
    payload.insert(payload.end(), block.begin(), block.end());
    const auto answer = client.call(extControlsRequest(sizeof items, sizeof items), payload);
    ASSERT_EQ(answer.header.result, 0);
    ASSERT_EQ(answer.header.blockBytes[0], sizeof items);
    std::memcpy(items, answer.payload.data() + answer.header.argBytes, sizeof items);
    EXPECT_EQ(items[0].value, 42);
    EXPECT_EQ(items[1].value, -8);
}

TEST_F(ServedBoard, BlockMustFitTheCountInTheArgument) {
    BoardClient client(folder_);
    client.open(fakeNode);
    v4l2_ext_controls controls{};
    for (const std::uint32_t count : {1u, 3u, 0xffffffffu}) {
        controls.count = count;
        std::vector<std::byte> payload = bytesOf(controls);
        payload.resize(payload.size() + 2 * sizeof(v4l2_ext_control));
        const auto answer =
            client.call(extControlsRequest(2 * sizeof(v4l2_ext_control), 0), payload);
        EXPECT_EQ(answer.header.result, -EINVAL) << count;
    }
    EXPECT_EQ(device_.calls.load(), 0);
}

TEST_F(ServedBoard, ReplyIsCutAtItsCapacity) {
    BoardClient client(folder_);
    client.open(fakeNode);
    wire::Request request{};
    request.op = wire::Op::ioctl;
    request.code = std::uint32_t(DRM_IOCTL_MODE_GETPROPBLOB);
    request.argBytes = sizeof(drm_mode_get_blob);
    request.blockCount = 1;
    request.blocks[0].capacity = 3;
    const auto answer = client.call(request, bytesOf(drm_mode_get_blob{}));
    EXPECT_EQ(answer.header.blockBytes[0], 3u);
    EXPECT_EQ(answer.payload.size(), sizeof(drm_mode_get_blob) + 3);
    request.blocks[0].capacity = 0xffffffff;
    EXPECT_EQ(client.call(request, bytesOf(drm_mode_get_blob{})).header.result, -EINVAL);
}

TEST_F(ServedBoard, LargestAnswerGetsThrough) {
    BoardClient client(folder_);
    client.open(fakeNode);
    constexpr std::uint32_t count = 3000;  // 60000 bytes each way
    v4l2_ext_controls controls{};
    controls.count = count;
    std::vector<std::byte> payload = bytesOf(controls);
    payload.resize(payload.size() + count * sizeof(v4l2_ext_control));
    for (int i = 0; i < 20; ++i) {
        const auto answer = client.call(
            extControlsRequest(count * sizeof(v4l2_ext_control), count * sizeof(v4l2_ext_control)),
            payload);
        ASSERT_EQ(answer.header.result, 0);
        ASSERT_EQ(answer.header.blockBytes[0], count * sizeof(v4l2_ext_control));
    }
}

TEST_F(ServedBoard, MapAndUnmap) {
    BoardClient client(folder_);
    client.open(fakeNode);
    wire::Request request{};
    request.op = wire::Op::map;
    EXPECT_EQ(client.call(request).descriptors, 1u);
    request.offset = 4096;
    const auto refused = client.call(request);
    EXPECT_EQ(refused.header.result, -EINVAL);
    EXPECT_EQ(refused.descriptors, 0u);
    request.op = wire::Op::unmap;
    EXPECT_EQ(client.call(request).header.result, 0);
    EXPECT_EQ(device_.unmapped.load(), 1);
}

TEST_F(ServedBoard, DefectOfADeviceIsAnErrorOfTheCall) {
    BoardClient client(folder_);
    client.open(fakeNode);
    EXPECT_EQ(client.ioctl(std::uint32_t(VIDIOC_S_INPUT), bytesOf(0)).header.result, -EIO);
    EXPECT_EQ(client.ioctl(queryCapabilities, bytesOf(v4l2_capability{})).header.result, 0);
}

TEST_F(ServedBoard, SlotsRunOutAndComeBack) {
    std::vector<std::unique_ptr<BoardClient>> clients;
    for (unsigned i = 0; i < wire::maxHandles; ++i) {
        clients.push_back(std::make_unique<BoardClient>(folder_));
        ASSERT_EQ(clients.back()->open(fakeNode).header.result, 0);
    }
    BoardClient late(folder_);
    EXPECT_EQ(late.open(fakeNode).header.result, -ENFILE);
    clients.clear();
    EXPECT_TRUE(becomesTrue([&] { return device_.handles == 0; }));
    EXPECT_EQ(late.open(fakeNode).header.result, 0);
}

}  // namespace
}  // namespace boardtest
