#include <linux/videodev2.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <cerrno>
#include <memory>
#include <random>
#include <vector>

#include "tests/board/core/boardclient.h"
#include "tests/board/core/servedboard.h"

namespace boardtest {
namespace {

namespace wire = board::wire;

class Hostile : public ServedBoard {
  protected:
    // Whether an ordinary client is still served.
    bool alive() {
        BoardClient client(folder_);
        return client.open(fakeNode).header.result == 0 &&
               client.ioctl(std::uint32_t(VIDIOC_QUERYCAP), bytesOf(v4l2_capability{}))
                       .header.result == 0;
    }
};

wire::Request openRequest() {
    wire::Request request{};
    request.op = wire::Op::open;
    request.argBytes = sizeof fakeNode - 1;
    return request;
}

std::vector<std::byte> fakePath() {
    const auto* first = reinterpret_cast<const std::byte*>(fakeNode);
    return {first, first + sizeof fakeNode - 1};
}

TEST_F(Hostile, RandomMessages) {
    std::mt19937 random(20);
    for (int round = 0; round < 300; ++round) {
        BoardClient client(folder_);
        if (round % 2 == 0)
            client.open(fakeNode);
        std::vector<std::byte> message(random() % 700 + 1);
        for (auto& byte : message)
            byte = std::byte(random());
        ASSERT_TRUE(client.sendRaw(message.data(), message.size()));
        EXPECT_TRUE(client.closedByBoard()) << round;
    }
    EXPECT_TRUE(alive());
}

// Plausible requests with one field at a time out of its range: dropped or refused, never served.
TEST_F(Hostile, RandomFields) {
    std::mt19937 random(7);
    const std::uint32_t numbers[] = {0,      1,      7,       8,          9,
                                     0x3fff, 0x4000, 0x20000, 0x7fffffff, 0xffffffff};
    const std::uint32_t codes[] = {std::uint32_t(VIDIOC_QUERYCAP),
                                   std::uint32_t(VIDIOC_G_EXT_CTRLS), 0, 0xffffffff};
    for (int round = 0; round < 2000; ++round) {
        BoardClient client(folder_);
        client.open(fakeNode);
        wire::Request request{};
        request.op = wire::Op(random() % 7);
        request.code = codes[random() % 4];
        request.argBytes = numbers[random() % 10];
        request.blockCount = numbers[random() % 10];
        for (auto& block : request.blocks)
            block = {numbers[random() % 10], numbers[random() % 10]};
        client.send(request, std::vector<std::byte>(random() % 300));
        client.receive();
    }
    EXPECT_TRUE(alive());
}

TEST_F(Hostile, WrongLengths) {
    const wire::Request request = openRequest();
    for (const std::size_t bytes : {std::size_t(1), sizeof request - 1, sizeof request}) {
        BoardClient client(folder_);
        ASSERT_TRUE(client.sendRaw(&request, bytes));
        EXPECT_TRUE(client.closedByBoard()) << bytes;
    }
    BoardClient longer(folder_);
    std::vector<std::byte> payload = fakePath();
    payload.push_back(std::byte(0));
    ASSERT_TRUE(longer.send(request, payload));
    EXPECT_TRUE(longer.closedByBoard());
    EXPECT_TRUE(alive());
}

TEST_F(Hostile, MessageLongerThanAllowed) {
    BoardClient client(folder_);
    const int room = 4 * int(wire::maxMessageBytes);
    ::setsockopt(client.descriptor(), SOL_SOCKET, SO_SNDBUF, &room, sizeof room);
    ASSERT_TRUE(client.send(openRequest(), std::vector<std::byte>(wire::maxMessageBytes)));
    EXPECT_TRUE(client.closedByBoard());
    EXPECT_TRUE(alive());
}

TEST_F(Hostile, SumOfBlocksWrapsAround) {
    BoardClient client(folder_);
    client.open(fakeNode);
    wire::Request request{};
    request.op = wire::Op::ioctl;
    request.code = std::uint32_t(VIDIOC_G_EXT_CTRLS);
    request.blockCount = 4;
    for (unsigned i = 0; i < 4; ++i)
        request.blocks[i].sent = 0x40000000;
    ASSERT_TRUE(client.send(request, {}));
    EXPECT_TRUE(client.closedByBoard());
    EXPECT_TRUE(alive());
}

TEST_F(Hostile, OrderOfOperations) {
    wire::Request request{};
    request.op = wire::Op::unmap;
    BoardClient early(folder_);
    ASSERT_TRUE(early.send(request, {}));
    EXPECT_TRUE(early.closedByBoard());
    BoardClient twice(folder_);
    ASSERT_EQ(twice.open(fakeNode).header.result, 0);
    ASSERT_TRUE(twice.send(openRequest(), fakePath()));
    EXPECT_TRUE(twice.closedByBoard());
    EXPECT_TRUE(becomesTrue([&] { return device_.handles == 0; }));
    EXPECT_TRUE(alive());
}

TEST_F(Hostile, ArgumentLongerThanTheIoctls) {
    BoardClient client(folder_);
    client.open(fakeNode);
    wire::Request request{};
    request.op = wire::Op::ioctl;
    request.code = std::uint32_t(VIDIOC_QUERYCAP);
    request.argBytes = sizeof(v4l2_capability) + 1;
    ASSERT_TRUE(client.send(request, std::vector<std::byte>(request.argBytes)));
    EXPECT_TRUE(client.closedByBoard());
    EXPECT_EQ(device_.calls.load(), 0);
}

TEST_F(Hostile, ClientThatNeverReadsIsDropped) {
    BoardClient client(folder_);
    client.open(fakeNode);
    wire::Request request{};
    request.op = wire::Op::ioctl;
    request.code = std::uint32_t(VIDIOC_QUERYCAP);
    request.argBytes = sizeof(v4l2_capability);
    const std::vector<std::byte> argument(request.argBytes);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (device_.handles > 0 && std::chrono::steady_clock::now() < deadline)
        client.send(request, argument);
    EXPECT_EQ(device_.handles.load(), 0);
    EXPECT_TRUE(alive());
}

TEST_F(Hostile, ThousandsOfConnects) {
    for (int i = 0; i < 5000; ++i)
        BoardClient client(folder_);
    EXPECT_TRUE(alive());
    std::vector<std::unique_ptr<BoardClient>> held;
    rlimit limit{};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    ::setrlimit(RLIMIT_NOFILE, &limit);
    // More than the board keeps: the surplus is turned away, the others stay.
    for (unsigned i = 0; i < 2 * wire::maxHandles + 200; ++i)
        held.push_back(std::make_unique<BoardClient>(folder_));
    EXPECT_TRUE(held.back()->closedByBoard());
    EXPECT_EQ(held.front()->open(fakeNode).header.result, 0);
    held.clear();
    EXPECT_TRUE(becomesTrue([&] { return server_->connections() == 0; }));
    EXPECT_TRUE(alive());
}

TEST_F(Hostile, OutOfDescriptorsTheLoopGoesOn) {
    rlimit before{};
    ::getrlimit(RLIMIT_NOFILE, &before);
    std::vector<std::unique_ptr<BoardClient>> held;
    rlimit narrow = before;
    narrow.rlim_cur = 200;
    ::setrlimit(RLIMIT_NOFILE, &narrow);
    // Client and board share this process's limit: connecting ends by an error here or there.
    try {
        for (int i = 0; i < 400; ++i)
            held.push_back(std::make_unique<BoardClient>(folder_));
    } catch (const std::exception&) {
    }
    EXPECT_GT(held.size(), 20u);
    EXPECT_LT(held.size(), 400u);
    held.clear();
    ::setrlimit(RLIMIT_NOFILE, &before);
    EXPECT_TRUE(becomesTrue([&] { return server_->connections() == 0; }));
    EXPECT_TRUE(alive());
}

}  // namespace
}  // namespace boardtest
