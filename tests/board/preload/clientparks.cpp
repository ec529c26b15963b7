// Cases: calls that the board holds on order.
#include "tests/board/preload/client.h"

#include <linux/videodev2.h>
#include <poll.h>
#include <pthread.h>
#include <sys/prctl.h>
#include <sys/select.h>
#include <unistd.h>

#include <string>

namespace {

constexpr std::uint32_t lift_ms = 400;

void parkOn(int fd, const std::string& call, const char* thread, std::uint32_t liftAfter_ms) {
    fake::Park park{};
    std::strcpy(park.call, call.c_str());
    std::strcpy(park.thread, thread);
    park.liftAfter_ms = liftAfter_ms;
    CHECK(::ioctl(fd, fake::park, &park) == 0);
}

std::uint32_t heldBy(int fd) {
    return asked(fd, fake::held);
}

// A wait with a time-out runs to its end though the descriptor is ready.
void timeOutRunsOut() {
    const int fd = ::open(input, O_RDWR);
    ::prctl(PR_SET_NAME, "svc_one");
    CHECK(::ioctl(fd, fake::done, 0) == 0);
    pollfd one = {fd, POLLIN, 0};
    CHECK(::poll(&one, 1, 5000) == 1);
    parkOn(fd, "select", "svc_one", 0);
    fd_set read;
    FD_ZERO(&read);
    FD_SET(fd, &read);
    timeval limit = {0, 100000};
    const std::int64_t start = machineNow_ms();
    CHECK(::select(fd + 1, &read, nullptr, nullptr, &limit) == 0 && !FD_ISSET(fd, &read));
    CHECK(machineNow_ms() - start >= 95 && heldBy(fd) == 1);
    CHECK(::poll(&one, 1, 5000) == 1);  // another call is not held
    parkOn(fd, "poll", "svc_one", 0);
    CHECK(::poll(&one, 1, 50) == 0 && one.revents == 0 && heldBy(fd) == 1);
    parkOn(fd, "poll", "svc_two", 0);
    CHECK(::poll(&one, 1, 5000) == 1 && heldBy(fd) == 0);  // another thread is not held
}

// A wait without one stays until the park is lifted, and then goes on.
void liftGoesOn() {
    const int fd = ::open(input, O_RDWR);
    CHECK(::ioctl(fd, fake::done, 0) == 0);
    for (const char* call : {"select", "poll", "read"}) {
        const std::int64_t start = machineNow_ms();
        parkOn(fd, call, "", lift_ms);
        pollfd one = {fd, POLLIN, 0};
        fd_set read;
        FD_ZERO(&read);
        FD_SET(fd, &read);
        char bytes[24] = {};  // room for an event: less is refused
        if (std::strcmp(call, "select") == 0)
            CHECK(::select(fd + 1, &read, nullptr, nullptr, nullptr) == 1 && FD_ISSET(fd, &read));
        else if (std::strcmp(call, "poll") == 0)
            CHECK(::poll(&one, 1, -1) == 1 && one.revents == POLLIN);
        else
            CHECK(::read(fd, bytes, sizeof bytes) == 1 && bytes[0] == 'b');
        CHECK(machineNow_ms() - start >= lift_ms - 20 && heldBy(fd) == 1);
    }
}

void ioctlHeld() {
    const int fd = openCamera();
    char call[40];
    std::snprintf(call, sizeof call, "ioctl:0x%08x", unsigned(fake::add));
    const std::int64_t start = machineNow_ms();
    parkOn(fd, call, "", lift_ms);
    fake::Sum sum = {1, 2, 0};
    CHECK(::ioctl(fd, fake::nothing, 0) == 0 && heldBy(fd) == 0);
    CHECK(::ioctl(fd, fake::add, &sum) == 0 && sum.sum == 3);
    CHECK(machineNow_ms() - start >= lift_ms - 20 && heldBy(fd) == 1);
}

pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
pthread_cond_t condition = PTHREAD_COND_INITIALIZER;
int entered = 0;

void* enter(void*) {
    ::pthread_mutex_lock(&mutex);
    entered = 1;
    ::pthread_cond_signal(&condition);
    ::pthread_mutex_unlock(&mutex);
    return nullptr;
}

// The mutex is free while a wait is held, and taken again after.
void conditionHeld() {
    const int fd = openCamera();
    pthread_t other{};
    ::pthread_mutex_lock(&mutex);
    parkOn(fd, "pthread_cond_wait", "", 0);
    ::pthread_create(&other, nullptr, enter, nullptr);
    timespec until{};
    ::clock_gettime(CLOCK_REALTIME, &until);
    until.tv_sec += 1;
    const std::int64_t start = machineNow_ms();
    CHECK(::pthread_cond_timedwait(&condition, &mutex, &until) == ETIMEDOUT);
    CHECK(machineNow_ms() - start >= 900 && entered == 1 && heldBy(fd) == 1);
    ::pthread_mutex_unlock(&mutex);
    CHECK(::pthread_join(other, nullptr) == 0);
    ::pthread_mutex_lock(&mutex);
    ::clock_gettime(CLOCK_MONOTONIC, &until);
    until.tv_sec += 3600;
    parkOn(fd, "pthread_cond_wait", "", lift_ms);
    // Let go: a wake-up without a reason, as the standard allows.
    CHECK(::pthread_cond_clockwait(&condition, &mutex, CLOCK_MONOTONIC, &until) == 0);
    parkOn(fd, "pthread_cond_wait", "", lift_ms);
    CHECK(::pthread_cond_wait(&condition, &mutex) == 0 && heldBy(fd) == 1);
    CHECK(::pthread_mutex_trylock(&mutex) == EBUSY);
}

}  // namespace

const Case parkCases[] = {{"timeOutRunsOut", timeOutRunsOut},
                          {"liftGoesOn", liftGoesOn},
                          {"ioctlHeld", ioctlHeld},
                          {"conditionHeld", conditionHeld},
                          {nullptr, nullptr}};
