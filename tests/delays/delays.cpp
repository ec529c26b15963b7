// Makes threads late where they meet: around locks, waits, reads and writes some sleep a little, at
// random. Preloaded into the programs of a build (tools/with-delays) it brings about orders of
// events that a quiet machine hardly ever has: one thread is late while the others go on, where a
// busy machine holds up all of them. TEST_DELAYS=report: at its end a program tells how often.
#include "board/preload/next.h"

#include <dlfcn.h>
#include <poll.h>
#include <pthread.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <string>

namespace {

// One call in so many is delayed, after which the thread is left alone for so many times as long.
constexpr std::uint64_t odds = 40, rest = 6;
constexpr std::int64_t shortest_us = 200, usual_us = 5000, longest_us = 60000;

std::atomic<bool> wanted{false};
std::atomic<unsigned> delays{0};

struct Lateness {
    std::int64_t quietUntil_ns;
    std::uint64_t random;
    bool busy;
};
// Not made on first use: that takes memory and locks.
__attribute__((tls_model("initial-exec"))) thread_local Lateness mine{};

std::int64_t now_ns() {
    timespec now{};
    ::syscall(SYS_clock_gettime, CLOCK_MONOTONIC, &now);
    return now.tv_sec * 1000000000LL + now.tv_nsec;
}

std::uint64_t drawn() {
    if (mine.random == 0)
        mine.random = std::uint64_t(now_ns()) ^ std::uint64_t(::syscall(SYS_gettid)) << 32U;
    mine.random ^= mine.random << 13U;
    mine.random ^= mine.random >> 7U;
    mine.random ^= mine.random << 17U;
    return mine.random >> 20U;
}

void beLate() {
    const std::int64_t now = now_ns();
    if (now < mine.quietUntil_ns)
        return;
    // Half of them are short, so that a test's next step comes within others' delays.
    const std::int64_t most_us = drawn() % 2 == 0 ? usual_us : longest_us;
    const std::int64_t length_us =
        shortest_us + std::int64_t(drawn() % std::uint64_t(most_us - shortest_us));
    const timespec length = {0, length_us * 1000};
    ::syscall(SYS_nanosleep, &length, nullptr);
    mine.quietUntil_ns = now + length_us * 1000 * std::int64_t(1 + rest);
    ++delays;
}

void maybeLate() {
    if (!wanted.load(std::memory_order_relaxed) || mine.busy)
        return;
    const int error = errno;
    mine.busy = true;
    if (drawn() % odds == 0)
        beLate();
    mine.busy = false;
    errno = error;
}

// Only programs of the build that this library belongs to.
__attribute__((constructor)) void begin() {
    Dl_info self{};
    std::error_code error;
    const std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe", error);
    if (error || ::dladdr(reinterpret_cast<const void*>(&begin), &self) == 0)
        return;
    const std::filesystem::path build =
        std::filesystem::path(self.dli_fname).parent_path().parent_path().parent_path();
    wanted = program.string().rfind(build.string() + "/", 0) == 0;
}

__attribute__((destructor)) void end() {
    const char* order = std::getenv("TEST_DELAYS");
    if (order != nullptr && std::string(order) == "report")
        std::fprintf(stderr, "delays: %u\n", delays.load());
}

}  // namespace

#define LATE(result, name, parameters, arguments) \
    WRAPPER(result, name, parameters) {           \
        NEXT(name);                               \
        maybeLate();                              \
        const result value = next arguments;      \
        maybeLate();                              \
        return value;                             \
    }

LATE(int, pthread_mutex_lock, (pthread_mutex_t * mutex), (mutex))
LATE(int, pthread_mutex_unlock, (pthread_mutex_t * mutex), (mutex))
LATE(int, pthread_cond_clockwait,
     (pthread_cond_t * condition, pthread_mutex_t* mutex, clockid_t clock, const timespec* until),
     (condition, mutex, clock, until))
LATE(ssize_t, read, (int fd, void* buffer, std::size_t size), (fd, buffer, size))
LATE(ssize_t, write, (int fd, const void* buffer, std::size_t size), (fd, buffer, size))
LATE(ssize_t, recv, (int fd, void* buffer, std::size_t size, int flags), (fd, buffer, size, flags))
LATE(ssize_t, send, (int fd, const void* buffer, std::size_t size, int flags),
     (fd, buffer, size, flags))
LATE(ssize_t, recvmsg, (int fd, msghdr* message, int flags), (fd, message, flags))
LATE(ssize_t, sendmsg, (int fd, const msghdr* message, int flags), (fd, message, flags))
LATE(int, poll, (pollfd * waited, nfds_t count, int timeout_ms), (waited, count, timeout_ms))
LATE(int, select, (int count, fd_set* readable, fd_set* writable, fd_set* except, timeval* timeout),
     (count, readable, writable, except, timeout))
LATE(int, close, (int fd), (fd))
