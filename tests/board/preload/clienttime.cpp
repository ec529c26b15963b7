// Cases for a board whose time runs four times as fast, and for a stepped wall clock.
#include "tests/board/preload/client.h"

#include <poll.h>
#include <pthread.h>
#include <semaphore.h>
#include <signal.h>
#include <sys/select.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace {

constexpr int speed = 4;

// Runs `wait`, which shall take `board_ms` of board time, and measures it by both clocks. The upper
// limits leave room for a busy machine; without scaling the machine's figure is four times as high.
template <typename Wait>
void takes(int board_ms, Wait wait) {
    timespec before{}, after{};
    const std::int64_t start = machineNow_ms();
    ::clock_gettime(CLOCK_MONOTONIC, &before);
    wait();
    ::clock_gettime(CLOCK_MONOTONIC, &after);
    const std::int64_t machine_ms = machineNow_ms() - start;
    const std::int64_t passed_ms =
        (after.tv_sec - before.tv_sec) * 1000 + (after.tv_nsec - before.tv_nsec) / 1000000;
    CHECK(passed_ms >= board_ms - 1);
    CHECK(machine_ms >= board_ms / speed - 1);
    CHECK(machine_ms < board_ms / 2 + 300);
}

timespec in(clockid_t clock, int ms) {
    timespec when{};
    ::clock_gettime(clock, &when);
    when.tv_sec += ms / 1000;
    when.tv_nsec += (ms % 1000) * 1000000L;
    when.tv_sec += when.tv_nsec / 1000000000;
    when.tv_nsec %= 1000000000;
    return when;
}

void sleeps() {
    takes(2000, [] { CHECK(::usleep(2000000) == 0); });
    takes(2000, [] { CHECK(::sleep(2) == 0); });
    takes(2000, [] {
        const timespec length = {2, 0};
        CHECK(::nanosleep(&length, nullptr) == 0);
    });
    takes(2000, [] {
        const timespec length = {2, 0};
        CHECK(::clock_nanosleep(CLOCK_MONOTONIC, 0, &length, nullptr) == 0);
    });
    for (const clockid_t clock : {CLOCK_MONOTONIC, CLOCK_REALTIME})
        takes(2000, [clock] {
            const timespec when = in(clock, 2000);
            CHECK(::clock_nanosleep(clock, TIMER_ABSTIME, &when, nullptr) == 0);
        });
}

void waits() {
    const int fd = ::open(input, O_RDWR);
    int pipes[2];
    CHECK(::pipe(pipes) == 0);
    for (const int source : {fd, pipes[0]}) {
        takes(2000, [source] {
            pollfd one = {source, POLLIN, 0};
            CHECK(::poll(&one, 1, 2000) == 0);
        });
        takes(2000, [source] {
            pollfd one = {source, POLLIN, 0};
            const timespec limit = {2, 0};
            CHECK(::ppoll(&one, 1, &limit, nullptr) == 0);
        });
        takes(2000, [source] {
            fd_set read;
            FD_ZERO(&read);
            FD_SET(source, &read);
            timeval limit = {2, 0};
            CHECK(::select(source + 1, &read, nullptr, nullptr, &limit) == 0);
        });
        takes(2000, [source] {
            fd_set read;
            FD_ZERO(&read);
            FD_SET(source, &read);
            const timespec limit = {2, 0};
            CHECK(::pselect(source + 1, &read, nullptr, nullptr, &limit, nullptr) == 0);
        });
    }
}

void conditions() {
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    ::pthread_mutex_lock(&mutex);
    for (const clockid_t clock : {CLOCK_MONOTONIC, CLOCK_REALTIME}) {
        pthread_condattr_t attributes;
        pthread_cond_t condition;
        ::pthread_condattr_init(&attributes);
        ::pthread_condattr_setclock(&attributes, clock);
        ::pthread_cond_init(&condition, &attributes);
        takes(2000, [&] {
            const timespec until = in(clock, 2000);
            CHECK(::pthread_cond_timedwait(&condition, &mutex, &until) == ETIMEDOUT);
        });
        takes(2000, [&] {
            const timespec until = in(clock, 2000);
            CHECK(::pthread_cond_clockwait(&condition, &mutex, clock, &until) == ETIMEDOUT);
        });
        ::pthread_cond_destroy(&condition);
    }
    takes(2000, [] {
        std::mutex lock;
        std::condition_variable condition;
        std::unique_lock<std::mutex> locked(lock);
        CHECK(!condition.wait_for(locked, std::chrono::seconds(2), [] { return false; }));
    });
    takes(2000, [] {
        sem_t semaphore;
        ::sem_init(&semaphore, 0, 0);
        const timespec until = in(CLOCK_REALTIME, 2000);
        CHECK_FAILS(::sem_timedwait(&semaphore, &until), ETIMEDOUT);
    });
    takes(2000, [] {
        sigset_t set;
        ::sigemptyset(&set);
        ::sigaddset(&set, SIGUSR1);
        ::sigprocmask(SIG_BLOCK, &set, nullptr);
        const timespec limit = {2, 0};
        CHECK_FAILS(::sigtimedwait(&set, nullptr, &limit), EAGAIN);
    });
}

std::int64_t machineRealtime_s() {
    timespec now{};
    ::syscall(SYS_clock_gettime, CLOCK_REALTIME, &now);
    return now.tv_sec;
}

bool near(std::int64_t one, std::int64_t other) {
    return one - other < 60 && other - one < 60;
}

// Runs with a board at the machine's speed: the step concerns the wall clock only.
void step() {
    constexpr int hour_s = 3600;
    const int fd = openCamera();
    timespec monotonicBefore{}, monotonic{}, realtime{};
    ::clock_gettime(CLOCK_MONOTONIC, &monotonicBefore);
    CHECK(near(::time(nullptr), machineRealtime_s()));
    CHECK(::ioctl(fd, fake::step, hour_s) == 0);
    ::clock_gettime(CLOCK_REALTIME, &realtime);
    CHECK(near(realtime.tv_sec, machineRealtime_s() + hour_s));
    CHECK(near(::time(nullptr), machineRealtime_s() + hour_s));
    timeval now{};
    ::gettimeofday(&now, nullptr);
    CHECK(near(now.tv_sec, machineRealtime_s() + hour_s));
    ::clock_gettime(CLOCK_MONOTONIC, &monotonic);
    CHECK(near(monotonic.tv_sec, monotonicBefore.tv_sec));
    // A deadline by the stepped clock is kept.
    const std::int64_t start = machineNow_ms();
    const timespec when = in(CLOCK_REALTIME, 100);
    CHECK(::clock_nanosleep(CLOCK_REALTIME, TIMER_ABSTIME, &when, nullptr) == 0);
    CHECK(machineNow_ms() - start >= 95 && machineNow_ms() - start < 20000);
}

}  // namespace

const Case timeCases[] = {{"sleeps", sleeps},
                          {"waits", waits},
                          {"conditions", conditions},
                          {"step", step},
                          {nullptr, nullptr}};
