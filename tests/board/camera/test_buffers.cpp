// Buffers: requesting, mapping, queueing, ownership.
#include "tests/board/camera/camerabench.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace board::test {
namespace {

class Buffers : public CameraBench {
  protected:
    Buffers() { plug(); }

    static v4l2_requestbuffers wish(std::uint32_t count, std::uint32_t memory = V4L2_MEMORY_MMAP) {
        v4l2_requestbuffers request{};
        std::memset(&request, 0xff, sizeof request);
        request.count = count;
        request.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
        request.memory = memory;
        return request;
    }
};

TEST_F(Buffers, CountIsGrantedUpTo32) {
    Client client = open();
    auto request = wish(1);
    ASSERT_EQ(client(VIDIOC_REQBUFS, request), 0);
    EXPECT_EQ(request.count, 1u);
    EXPECT_EQ(request.capabilities & V4L2_BUF_CAP_SUPPORTS_MMAP, 1u);
    EXPECT_EQ(request.flags, 0u);
    EXPECT_EQ(request.reserved[0], 0u);
    request = wish(256);
    ASSERT_EQ(client(VIDIOC_REQBUFS, request), 0);
    EXPECT_EQ(request.count, 32u);
    request = wish(0);
    ASSERT_EQ(client(VIDIOC_REQBUFS, request), 0);
    v4l2_buffer none = buffer(0);
    EXPECT_EQ(client(VIDIOC_QUERYBUF, none), -EINVAL);
    request = wish(3, V4L2_MEMORY_USERPTR);
    EXPECT_EQ(client(VIDIOC_REQBUFS, request), -EINVAL);
    request = wish(3, V4L2_MEMORY_DMABUF);
    EXPECT_EQ(client(VIDIOC_REQBUFS, request), -EINVAL);
    request = wish(3);
    request.type = V4L2_BUF_TYPE_VIDEO_OUTPUT;
    EXPECT_EQ(client(VIDIOC_REQBUFS, request), -EINVAL);
}

TEST_F(Buffers, FlagsFollowTheBuffer) {
    Client client = open();
    auto request = wish(2);
    ASSERT_EQ(client(VIDIOC_REQBUFS, request), 0);
    v4l2_buffer state = buffer(1);
    std::memset(&state.timestamp, 0xff, sizeof state.timestamp);
    ASSERT_EQ(client(VIDIOC_QUERYBUF, state), 0);
    const std::uint32_t always = V4L2_BUF_FLAG_TIMESTAMP_MONOTONIC | V4L2_BUF_FLAG_TSTAMP_SRC_SOE;
    EXPECT_EQ(state.flags, always);
    EXPECT_EQ(state.length, 640u * 480 * 2);
    EXPECT_EQ(state.timestamp.tv_sec, 0);
    const Mapping mapping = client.map(state.m.offset, state.length, PROT_READ | PROT_WRITE);
    ASSERT_GE(mapping.memfd, 0);
    ASSERT_EQ(client(VIDIOC_QUERYBUF, state), 0);
    EXPECT_EQ(state.flags, always | V4L2_BUF_FLAG_MAPPED);
    ASSERT_EQ(client(VIDIOC_QBUF, state), 0);
    EXPECT_EQ(state.flags, always | V4L2_BUF_FLAG_MAPPED | V4L2_BUF_FLAG_QUEUED);
    EXPECT_EQ(client(VIDIOC_QBUF, state), -EINVAL) << "queued twice";
    client.unmapped(state.m.offset, state.length);
    ASSERT_EQ(client(VIDIOC_QUERYBUF, state), 0);
    EXPECT_EQ(state.flags, always | V4L2_BUF_FLAG_QUEUED);
    client.unmapped(state.m.offset, state.length);
    client.unmapped(12345, 1);
}

TEST_F(Buffers, MemoryCannotBeShrunkByAClient) {
    Client client = open();
    auto request = wish(1);
    ASSERT_EQ(client(VIDIOC_REQBUFS, request), 0);
    const Mapping mapping = client.map(0, 4096, PROT_READ);
    ASSERT_GE(mapping.memfd, 0);
    EXPECT_EQ(ftruncate(mapping.memfd, 0), -1);
    EXPECT_EQ(ftruncate(mapping.memfd, 1 << 30), -1);
    EXPECT_EQ(fcntl(mapping.memfd, F_ADD_SEALS, F_SEAL_FUTURE_WRITE), -1);
}

TEST_F(Buffers, BadMappingsAreRefused) {
    Client client = open();
    EXPECT_EQ(client.map(0, 4096, PROT_READ).error, -EINVAL) << "no buffers yet";
    auto request = wish(1);
    ASSERT_EQ(client(VIDIOC_REQBUFS, request), 0);
    EXPECT_EQ(client.map(4096, 4096, PROT_READ).error, -EINVAL);
    EXPECT_EQ(client.map(0, 640 * 480 * 2 + 4096, PROT_READ).error, -EINVAL);
    EXPECT_EQ(client.map(0, 0, PROT_READ).error, -EINVAL);
    EXPECT_EQ(client.map(0, 4096, PROT_WRITE).error, -EINVAL);
    EXPECT_EQ(client.map(0, 640 * 480 * 2, PROT_READ).error, 0);
}

TEST_F(Buffers, BadQueueingIsRefused) {
    Client client = open();
    v4l2_buffer wrong = buffer(0);
    EXPECT_EQ(client(VIDIOC_QBUF, wrong), -EINVAL) << "no buffers yet";
    auto request = wish(2);
    ASSERT_EQ(client(VIDIOC_REQBUFS, request), 0);
    wrong = buffer(2);
    EXPECT_EQ(client(VIDIOC_QBUF, wrong), -EINVAL);
    wrong = buffer(0);
    wrong.memory = V4L2_MEMORY_USERPTR;
    EXPECT_EQ(client(VIDIOC_QBUF, wrong), -EINVAL);
    wrong = buffer(0);
    wrong.type = V4L2_BUF_TYPE_VIDEO_OUTPUT;
    EXPECT_EQ(client(VIDIOC_QBUF, wrong), -EINVAL);
    wrong = buffer(0);
    wrong.flags = V4L2_BUF_FLAG_REQUEST_FD;
    EXPECT_EQ(client(VIDIOC_QBUF, wrong), -EBADR);
    wrong = buffer(0);
    EXPECT_EQ(client(VIDIOC_DQBUF, wrong), -EINVAL) << "not streaming";
}

TEST_F(Buffers, BelongToWhoRequestedThem) {
    Client owner = open(), other = open();
    auto request = wish(2);
    ASSERT_EQ(owner(VIDIOC_REQBUFS, request), 0);
    auto second = wish(2);
    EXPECT_EQ(other(VIDIOC_REQBUFS, second), -EBUSY);
    second = wish(0);
    EXPECT_EQ(other(VIDIOC_REQBUFS, second), -EBUSY);
    v4l2_buffer one = buffer(0);
    EXPECT_EQ(other(VIDIOC_QBUF, one), -EBUSY);
    EXPECT_EQ(other(VIDIOC_DQBUF, one), -EBUSY);
    EXPECT_EQ(other.stream(true), -EBUSY);
    EXPECT_EQ(other.stream(false), -EBUSY);
    EXPECT_EQ(other(VIDIOC_QUERYBUF, one), 0);
    owner.close();
    second = wish(2);
    EXPECT_EQ(other(VIDIOC_REQBUFS, second), 0) << "the owner's end frees the camera";
}

TEST_F(Buffers, FreedWhileMappedAndWhileStreaming) {
    Client client = open();
    prepare(client, 2);
    const Mapping mapping = client.map(0, 64 * 48 * 2, PROT_READ);
    void* memory = mmap(nullptr, 64 * 48 * 2, PROT_READ, MAP_SHARED, mapping.memfd, 0);
    ASSERT_NE(memory, MAP_FAILED);
    ASSERT_EQ(client.stream(true), 0);
    auto request = wish(0);
    EXPECT_EQ(client(VIDIOC_REQBUFS, request), -EBUSY);
    ASSERT_EQ(client.stream(false), 0);
    request = wish(0);
    ASSERT_EQ(client(VIDIOC_REQBUFS, request), 0);
    std::uint8_t copy[64];
    std::memcpy(copy, memory, sizeof copy);
    munmap(memory, 64 * 48 * 2);
    request = wish(1);
    ASSERT_EQ(client(VIDIOC_REQBUFS, request), 0);
    client.unmapped(0, 64 * 48 * 2);
    v4l2_buffer state = buffer(0);
    ASSERT_EQ(client(VIDIOC_QUERYBUF, state), 0);
    EXPECT_FALSE(state.flags & V4L2_BUF_FLAG_MAPPED);
}

TEST_F(Buffers, StreamOnNeedsBuffersAndTheRightType) {
    Client client = open();
    EXPECT_EQ(client.stream(true), -EINVAL);
    EXPECT_EQ(client.stream(false), 0);
    prepare(client, 1);
    std::int32_t type = V4L2_BUF_TYPE_VIDEO_OUTPUT;
    EXPECT_EQ(client(VIDIOC_STREAMON, type), -EINVAL);
    EXPECT_EQ(client(VIDIOC_STREAMOFF, type), -EINVAL);
    EXPECT_EQ(client.stream(true), 0);
    EXPECT_EQ(client.stream(true), 0) << "a second time is no error";
}

}  // namespace
}  // namespace board::test
