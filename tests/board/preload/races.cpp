// Built with ThreadSanitizer. Two threads work on one camera; "race" lets them touch a variable
// without a lock, "clean" lets them hold one. The calls around the access must not hide the race.
#include "tests/board/preload/check.h"
#include "tests/board/preload/fakeorders.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/select.h>
#include <unistd.h>

#include <atomic>

namespace {

constexpr int rounds = 200;
int camera = -1;
int input = -1;
bool racy = false;
int shared = 0;
pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
// Relaxed on purpose: both threads run at the same time, and nothing orders their accesses.
std::atomic<int> turns{0};

void touch() {
    if (!racy)
        ::pthread_mutex_lock(&lock);
    shared = shared + 1;
    if (!racy)
        ::pthread_mutex_unlock(&lock);
}

void calls() {
    fake::Sum sum = {1, 2, 0};
    CHECK(::ioctl(camera, fake::add, &sum) == 0 && sum.sum == 3);
    fd_set read;
    FD_ZERO(&read);
    FD_SET(input, &read);
    timeval none = {0, 0};
    ::select(input + 1, &read, nullptr, nullptr, &none);
    char byte = 0;
    ::read(input, &byte, 1);  // non-blocking
    const int copy = ::dup(camera);
    void* memory = ::mmap(nullptr, 4096, PROT_READ, MAP_SHARED, copy, 0);
    CHECK(memory != MAP_FAILED && ::munmap(memory, 4096) == 0 && ::close(copy) == 0);
}

void* work(void* side) {
    const int own = *static_cast<int*>(side);
    for (int i = 0; i < rounds; ++i) {
        // The threads take turns, so that the accesses never overlap in time: only the order that
        // a detector assumes between the calls of one and of the other decides what it reports.
        while (turns.load(std::memory_order_relaxed) % 2 != own)
            ::sched_yield();
        calls();
        touch();
        calls();
        turns.fetch_add(1, std::memory_order_relaxed);
    }
    return nullptr;
}

}  // namespace

int main(int count, char** arguments) {
    racy = count > 1 && std::strcmp(arguments[1], "race") == 0;
    camera = ::open("/dev/video0", O_RDWR);
    input = ::open("/dev/input/event0", O_RDWR | O_NONBLOCK);
    CHECK(camera >= 0 && input >= 0);
    pthread_t threads[2];
    int sides[2] = {0, 1};
    for (int i = 0; i < 2; ++i)
        ::pthread_create(&threads[i], nullptr, work, &sides[i]);
    for (const pthread_t thread : threads)
        ::pthread_join(thread, nullptr);
    CHECK(shared == 2 * rounds);
    return failures() == 0 ? 0 : 1;
}
