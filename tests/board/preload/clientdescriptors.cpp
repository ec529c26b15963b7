// Cases: copies of descriptors, memory, children, the end of the connection.
#include "tests/board/preload/client.h"

#include <signal.h>
#include <sys/mman.h>
#include <sys/select.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

namespace {

std::uint32_t connectionsSeenBy(int fd) {
    return asked(fd, fake::connections);
}

void copies() {
    const int witness = ::open(display, O_RDWR);
    const int fd = openCamera();
    const int copy = ::dup(fd);
    const int second = ::dup2(fd, 50);
    const int third = ::fcntl(fd, F_DUPFD_CLOEXEC, 60);
    CHECK(second == 50 && third == 60);
    CHECK(connectionsSeenBy(witness) == 2);
    CHECK(::close(fd) == 0);
    fake::Sum sum = {1, 1, 0};
    CHECK(::ioctl(copy, fake::add, &sum) == 0 && sum.sum == 2);
    CHECK(::close(copy) == 0 && ::close(second) == 0);
    CHECK(connectionsSeenBy(witness) == 2);
    CHECK(::dup2(0, third) == third);  // replaces the last copy
    CHECK(connectionsSeenBy(witness) == 1);
    CHECK_FAILS(::ioctl(third, fake::nothing, 0), ENOTTY);
    CHECK(::dup2(witness, witness) == witness && connectionsSeenBy(witness) == 1);
    CHECK_FAILS(::dup2(600, witness), EBADF);
    CHECK(connectionsSeenBy(witness) == 1);  // unharmed
}

// A program that closes everything above 2 does not pull the connection away from itself.
void closeAll() {
    const int fd = openCamera();
    for (int other = 3; other < 1024; ++other)
        if (other != fd)
            ::close(other);
    fake::Sum sum = {1, 1, 0};
    CHECK(::ioctl(fd, fake::add, &sum) == 0 && sum.sum == 2);
}

void manyOpens() {
    int fds[110];
    for (int& fd : fds) {
        fd = openCamera();
        CHECK(fd < FD_SETSIZE);
    }
    CHECK(connectionsSeenBy(fds[0]) == 110);
    for (std::size_t i = 1; i < 110; ++i)
        CHECK(::close(fds[i]) == 0);
    CHECK(connectionsSeenBy(fds[0]) == 1);
}

void memory() {
    const int fd = openCamera();
    void* one = ::mmap(nullptr, 8192, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 4096);
    CHECK(one != MAP_FAILED && std::strcmp(static_cast<char*>(one), "memory at 4096") == 0);
    void* other = ::mmap64(nullptr, 4096, PROT_READ, MAP_SHARED, fd, std::int64_t(3) << 32);
    CHECK(other != MAP_FAILED &&
          std::strcmp(static_cast<char*>(other), "memory at 12884901888") == 0);
    CHECK(::munmap(one, 8192) == 0);
    fake::Unmaps unmaps{};
    CHECK(::ioctl(fd, fake::unmaps, &unmaps) == 0);
    CHECK(unmaps.count == 1 && unmaps.offset == 4096 && unmaps.length == 8192);
    void* plain = ::mmap(nullptr, 4096, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    CHECK(plain != MAP_FAILED && ::munmap(plain, 4096) == 0);
    CHECK(::ioctl(fd, fake::unmaps, &unmaps) == 0 && unmaps.count == 1);
    // A mapping keeps the device open, as it does in a kernel.
    const int witness = ::open(display, O_RDWR);
    CHECK(::close(fd) == 0 && connectionsSeenBy(witness) == 2);
    CHECK(std::strcmp(static_cast<char*>(other), "memory at 12884901888") == 0);
    CHECK(::munmap(other, 4096) == 0 && connectionsSeenBy(witness) == 1);
}

void forks() {
    const int fd = openCamera();
    const pid_t child = ::fork();
    if (child == 0) {
        fake::Sum sum = {1, 1, 0};
        CHECK_FAILS(::ioctl(fd, fake::add, &sum), ENODEV);  // the parent's, not ours
        const int own = openCamera();
        CHECK(::ioctl(own, fake::add, &sum) == 0 && sum.sum == 2);
        CHECK(::close(fd) == 0);
        ::_exit(failures());
    }
    int status = -1;
    CHECK(::waitpid(child, &status, 0) == child && status == 0);
    fake::Sum sum = {2, 2, 0};
    CHECK(::ioctl(fd, fake::add, &sum) == 0 && sum.sum == 4);
    CHECK(connectionsSeenBy(fd) == 1);
}

// Ends abruptly while a shell that it started lives on.
void dieWithShell() {
    openCamera(O_RDWR | O_CLOEXEC);
    const pid_t child = ::fork();
    if (child == 0) {
        ::execl("/bin/sh", "sh", "-c", "read line", nullptr);
        ::_exit(1);
    }
    std::printf("%d\n", int(child));
    std::fflush(stdout);
    ::kill(::getpid(), SIGKILL);
}

void boardVanishes() {
    const int fd = openCamera();
    CHECK(::ioctl(fd, fake::vanish, 0) == 0);
    fake::Sum sum = {1, 1, 0};
    int tries = 0;
    while (::ioctl(fd, fake::add, &sum) == 0 && ++tries < 1000)
        ::usleep(1000);
    CHECK(errno == ENODEV);
    CHECK(::mmap(nullptr, 4096, PROT_READ, MAP_SHARED, fd, 0) == MAP_FAILED && errno == ENODEV);
    CHECK(::close(fd) == 0);
}

volatile int handled = 0;
int signalFd = -1;

void onSignal(int) {
    fake::Sum sum = {5, 5, 0};
    if (::ioctl(signalFd, fake::add, &sum) == 0 && sum.sum == 10)
        handled = handled + 1;
}

// A handler that calls the same descriptor in the middle of calls on it.
void signalsDuringCalls() {
    signalFd = openCamera();
    struct sigaction action {};
    action.sa_handler = onSignal;
    ::sigaction(SIGALRM, &action, nullptr);
    const timer_t none{};
    timer_t timer = none;
    CHECK(::timer_create(CLOCK_MONOTONIC, nullptr, &timer) == 0);
    const itimerspec often = {{0, 300000}, {0, 300000}};
    CHECK(::timer_settime(timer, 0, &often, nullptr) == 0);
    fake::Sum sum{};
    for (int i = 0; i < 5000 && handled < 100; ++i) {
        sum = {i, 1, 0};
        CHECK(::ioctl(signalFd, fake::add, &sum) == 0 && sum.sum == i + 1);
    }
    CHECK(handled >= 10);
    CHECK(::timer_delete(timer) == 0);
}

}  // namespace

const Case descriptorCases[] = {{"copies", copies},
                                {"closeAll", closeAll},
                                {"manyOpens", manyOpens},
                                {"memory", memory},
                                {"forks", forks},
                                {"dieWithShell", dieWithShell},
                                {"boardVanishes", boardVanishes},
                                {"signalsDuringCalls", signalsDuringCalls},
                                {nullptr, nullptr}};
