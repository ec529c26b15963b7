// Cases: waiting for buffers, events and the end of a device.
#include "tests/board/preload/client.h"

#include <linux/videodev2.h>
#include <poll.h>
#include <signal.h>
#include <sys/select.h>
#include <unistd.h>

namespace {

constexpr int soon_ms = 50;  // later than the call that waits for it begins

int dequeue(int fd) {
    v4l2_buffer buffer{};
    buffer.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    buffer.memory = V4L2_MEMORY_MMAP;
    return ::ioctl(fd, VIDIOC_DQBUF, &buffer);
}

int streamingCamera(int flags = O_RDWR) {
    const int fd = openCamera(flags);
    CHECK(::ioctl(fd, fake::stream, 1) == 0);
    return fd;
}

short polled(int fd, short events, int timeout_ms) {
    pollfd one = {fd, events, 0};
    return ::poll(&one, 1, timeout_ms) < 0 ? short(-1) : one.revents;
}

void dequeueWaits() {
    const int fd = streamingCamera();
    CHECK(::ioctl(fd, fake::done, soon_ms) == 0);
    const std::int64_t start = machineNow_ms();
    CHECK(dequeue(fd) == 0);
    CHECK(machineNow_ms() - start >= soon_ms / 2);
    CHECK(::ioctl(fd, fake::unplug, soon_ms) == 0);
    CHECK_FAILS(dequeue(fd), ENODEV);
}

// "Nothing yet" on a non-blocking descriptor costs no round trip.
void dequeueNonBlocking() {
    const int fd = streamingCamera(O_RDWR | O_NONBLOCK);
    const std::uint32_t before = asked(fd, fake::requests);
    for (int i = 0; i < 100; ++i)
        CHECK_FAILS(dequeue(fd), EAGAIN);
    CHECK(asked(fd, fake::requests) == before + 1);
    CHECK(::ioctl(fd, fake::done, 0) == 0);
    CHECK(polled(fd, POLLIN, 5000) == POLLIN);
    CHECK(dequeue(fd) == 0);
    CHECK_FAILS(dequeue(fd), EAGAIN);
    CHECK(::ioctl(fd, fake::stream, 0) == 0);
    CHECK_FAILS(dequeue(fd), EINVAL);  // not streaming: the board's answer, not EAGAIN
}

void onAlarm(int) {}

void dequeueInterrupted() {
    const int fd = streamingCamera();
    struct sigaction action {};
    action.sa_handler = onAlarm;
    ::sigaction(SIGALRM, &action, nullptr);
    ::ualarm(soon_ms * 1000, soon_ms * 1000);
    CHECK_FAILS(dequeue(fd), EINTR);
    ::ualarm(0, 0);
}

// The stream ends without a word on the descriptor.
void stopEndsDequeue() {
    const int fd = streamingCamera();
    CHECK(::ioctl(fd, fake::stopLater, soon_ms) == 0);
    CHECK_FAILS(dequeue(fd), EINVAL);
}

void pollBuffers() {
    const int fd = streamingCamera();
    CHECK(polled(fd, POLLIN | POLLOUT, 0) == 0);  // a capture node is never writable
    CHECK(::ioctl(fd, fake::done, 0) == 0);
    CHECK(polled(fd, POLLIN | POLLOUT, 5000) == POLLIN);
    CHECK(dequeue(fd) == 0);
    CHECK(polled(fd, POLLIN, 0) == 0);
    CHECK(::ioctl(fd, fake::stream, 0) == 0);
    CHECK(polled(fd, POLLIN, 5000) == POLLERR);  // nothing will ever come
    CHECK(::ioctl(fd, fake::stream, 1) == 0);
    CHECK(::ioctl(fd, fake::done, 0) == 0);
    CHECK(polled(fd, POLLIN, 5000) == POLLIN);
    CHECK(::ioctl(fd, fake::unplug, soon_ms) == 0);
    for (int tries = 0; tries < 5000 && polled(fd, POLLIN, 5000) == POLLIN; ++tries)
        ::usleep(1000);
    CHECK(polled(fd, POLLIN, 5000) == (POLLERR | POLLHUP));
    CHECK(polled(fd, 0, 5000) == (POLLERR | POLLHUP));
}

void selectBuffers() {
    const int fd = streamingCamera();
    int pipes[2];
    CHECK(::pipe(pipes) == 0);
    fd_set read, write;
    FD_ZERO(&read);
    FD_ZERO(&write);
    FD_SET(fd, &read);
    FD_SET(pipes[0], &read);
    FD_SET(fd, &write);
    timeval limit = {0, 1000 * soon_ms};
    CHECK(::select(pipes[0] + 1, &read, &write, nullptr, &limit) == 0);
    CHECK(!FD_ISSET(fd, &read) && !FD_ISSET(fd, &write) && limit.tv_sec == 0 && limit.tv_usec == 0);
    FD_SET(fd, &read);
    FD_SET(pipes[0], &read);
    CHECK(::ioctl(fd, fake::done, soon_ms) == 0);
    limit = {5, 0};
    CHECK(::select(pipes[0] + 1, &read, nullptr, nullptr, &limit) == 1);
    CHECK(FD_ISSET(fd, &read) && !FD_ISSET(pipes[0], &read) && limit.tv_sec < 5);
    CHECK(dequeue(fd) == 0);
    // The other descriptor is served as well.
    CHECK(::write(pipes[1], "x", 1) == 1);
    FD_SET(fd, &read);
    FD_SET(pipes[0], &read);
    CHECK(::select(pipes[0] + 1, &read, nullptr, nullptr, nullptr) == 1);
    CHECK(!FD_ISSET(fd, &read) && FD_ISSET(pipes[0], &read));
    ::close(pipes[0]);
    FD_SET(fd, &read);
    FD_SET(pipes[0], &read);
    CHECK_FAILS(::select(pipes[0] + 1, &read, nullptr, nullptr, nullptr), EBADF);
    FD_ZERO(&read);
    FD_SET(fd, &read);
    CHECK(::ioctl(fd, fake::unplug, soon_ms) == 0);
    CHECK(::select(fd + 1, &read, nullptr, nullptr, nullptr) == 1 && FD_ISSET(fd, &read));
    CHECK_FAILS(dequeue(fd), ENODEV);
}

// Events are the exception set's, buffers are not.
void events() {
    const int fd = streamingCamera();
    CHECK(::ioctl(fd, fake::done, 0) == 0);
    CHECK(polled(fd, POLLIN, 5000) == POLLIN);
    fd_set except;
    FD_ZERO(&except);
    FD_SET(fd, &except);
    timeval limit = {0, 1000 * soon_ms};
    CHECK(::select(fd + 1, nullptr, nullptr, &except, &limit) == 0);
    CHECK(::ioctl(fd, fake::event, soon_ms) == 0);
    FD_SET(fd, &except);
    CHECK(::select(fd + 1, nullptr, nullptr, &except, nullptr) == 1 && FD_ISSET(fd, &except));
    CHECK(polled(fd, POLLIN | POLLPRI, 5000) == (POLLIN | POLLPRI));
    v4l2_event event{};
    CHECK(::ioctl(fd, VIDIOC_DQEVENT, &event) == 0);
    CHECK(polled(fd, POLLPRI, 0) == 0);
    CHECK(::ioctl(fd, fake::event, soon_ms) == 0);
    CHECK(::ioctl(fd, VIDIOC_DQEVENT, &event) == 0);  // waits
}

void reads() {
    const int camera_ = streamingCamera();
    char bytes[32];
    CHECK_FAILS(::read(camera_, bytes, sizeof bytes), EINVAL);
    const int fd = ::open(input, O_RDWR);
    CHECK(::ioctl(fd, fake::done, soon_ms) == 0);
    CHECK(::read(fd, bytes, sizeof bytes) == 1 && bytes[0] == 'b');
    CHECK(::ioctl(fd, fake::unplug, 0) == 0);
    const std::int64_t start = machineNow_ms();
    CHECK_FAILS(::read(fd, bytes, sizeof bytes), ENODEV);
    CHECK(machineNow_ms() - start >= 8);  // a loop that does not stop does not spin
}

}  // namespace

const Case waitCases[] = {{"dequeueWaits", dequeueWaits},
                          {"dequeueNonBlocking", dequeueNonBlocking},
                          {"dequeueInterrupted", dequeueInterrupted},
                          {"stopEndsDequeue", stopEndsDequeue},
                          {"pollBuffers", pollBuffers},
                          {"selectBuffers", selectBuffers},
                          {"events", events},
                          {"reads", reads},
                          {nullptr, nullptr}};
