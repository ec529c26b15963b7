// Plugging, unplugging, node numbers, lifetime of what clients hold.
#include "tests/board/camera/camerabench.h"

#include <poll.h>
#include <sys/mman.h>

#include <cerrno>

namespace board::test {
namespace {

class Plugging : public CameraBench {
  protected:
    unsigned openHandles() {
        unsigned count = 0;
        board.onLoop([&] { count = camera->openHandles(); });
        return count;
    }
};

TEST_F(Plugging, PutsTheNodeInPlaceAndTakesItAway) {
    EXPECT_EQ(plug(), "/dev/video0");
    EXPECT_EQ(plug(), "/dev/video0") << "plugged already";
    board.onLoop([this] {
        EXPECT_TRUE(camera->plugged());
        ASSERT_EQ(board.nodes.count("/dev/video0"), 1u);
        EXPECT_EQ(board.nodes["/dev/video0"].major, 81u);
        EXPECT_EQ(board.nodes["/dev/video0"].minor, 0u);
    });
    unplug();
    unplug();
    board.onLoop([this] {
        EXPECT_FALSE(camera->plugged());
        EXPECT_EQ(camera->nodePath(), "");
        EXPECT_TRUE(board.nodes.empty());
    });
    EXPECT_EQ(plug(5), "/dev/video5");
}

TEST_F(Plugging, ANumberStaysTakenWhileADescriptorIsOpen) {
    plug();
    Client first = open();
    unplug();
    EXPECT_EQ(plug(), "/dev/video1");
    Client second = open();
    unplug();
    EXPECT_EQ(openHandles(), 2u);
    EXPECT_EQ(plug(), "/dev/video2");
    unplug();
    first.close();
    EXPECT_EQ(plug(), "/dev/video0");
    unplug();
    second.close();
    EXPECT_EQ(openHandles(), 0u);
}

TEST_F(Plugging, EveryCallOnAnUnpluggedCameraSaysSo) {
    plug();
    Client client = open();
    prepare(client, 2, {1, 200});
    const Mapping mapping = client.map(0, 4096, PROT_READ);
    void* memory = mmap(nullptr, 4096, PROT_READ, MAP_SHARED, mapping.memfd, 0);
    ASSERT_NE(memory, MAP_FAILED);
    ASSERT_EQ(client.stream(true), 0);
    ASSERT_TRUE(client.wait());
    unplug();
    EXPECT_EQ(client.state(), wire::handleGone);
    EXPECT_EQ(client.polled() & (POLLIN | POLLHUP), POLLIN | POLLHUP);
    EXPECT_TRUE(client.polledEvents() & POLLIN);
    v4l2_buffer any = buffer(0);
    EXPECT_EQ(client(VIDIOC_DQBUF, any), -ENODEV);
    EXPECT_EQ(client(VIDIOC_QBUF, any), -ENODEV);
    v4l2_capability capability{};
    EXPECT_EQ(client(VIDIOC_QUERYCAP, capability), -ENODEV);
    EXPECT_EQ(client.stream(false), -ENODEV);
    EXPECT_EQ(client.map(0, 4096, PROT_READ).error, -ENODEV);
    EXPECT_NE(*static_cast<std::uint8_t*>(memory), 0) << "the mapping outlives the camera";
    munmap(memory, 4096);
    client.unmapped(0, 4096);
}

TEST_F(Plugging, PluggedAgainAtOnceWithTheOldDescriptorStreaming) {
    plug();
    Client old = open();
    prepare(old, 3);
    ASSERT_EQ(old.stream(true), 0);
    const std::uint32_t before = take(old).sequence;
    unplug();
    ASSERT_EQ(plug(), "/dev/video1");
    Client fresh = open();
    prepare(fresh, 3);
    ASSERT_EQ(fresh.stream(true), 0);
    EXPECT_EQ(take(fresh).sequence, 0u);
    EXPECT_EQ(before, 0u);
    old.close();
    take(fresh);
}

TEST_F(Plugging, ANewDescriptionAppliesToTheNextPlugging) {
    plug();
    Client client = open();
    board.onLoop([this] {
        CameraDescription other = smallCamera();
        other.card = "Another Camera";
        camera->replaceDescription(other);
    });
    v4l2_capability capability{};
    ASSERT_EQ(client(VIDIOC_QUERYCAP, capability), 0);
    EXPECT_STREQ(reinterpret_cast<char*>(capability.card), "Small Camera");
    unplug();
    plug();
    Client next = open();
    ASSERT_EQ(next(VIDIOC_QUERYCAP, capability), 0);
    EXPECT_STREQ(reinterpret_cast<char*>(capability.card), "Another Camera");
}

TEST_F(Plugging, AHundredDescriptorsAtOnce) {
    plug();
    std::vector<Client> clients;
    for (int i = 0; i < 100; ++i)
        clients.push_back(open());
    EXPECT_EQ(openHandles(), 100u);
    clients.clear();
    EXPECT_EQ(openHandles(), 0u);
}

TEST_F(Plugging, TheCameraMayEndBeforeItsDescriptors) {
    plug();
    Client client = open();
    prepare(client, 2);
    ASSERT_EQ(client.stream(true), 0);
    take(client);
    board.onLoop([this] { camera.reset(); });
    v4l2_buffer any = buffer(0);
    EXPECT_EQ(client(VIDIOC_DQBUF, any), -ENODEV);
    client.close();
}

}  // namespace
}  // namespace board::test
