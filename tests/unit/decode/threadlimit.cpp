#include "tests/unit/decode/threadlimit.h"

#include <pthread.h>
#include <atomic>
#include <cerrno>

namespace {

std::atomic<int> threadsLeft{1000000};

}  // namespace

ThreadLimit::ThreadLimit(int threads) {
    threadsLeft = threads;
}

ThreadLimit::~ThreadLimit() {
    threadsLeft = 1000000;
}

extern "C" {
// The linker gives the names of wrapped calls.
// NOLINTBEGIN(bugprone-reserved-identifier)
int __real_pthread_create(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                          void* (*start)(void*), void* argument) {
    if (threadsLeft.fetch_sub(1) <= 0) {
        return EAGAIN;
    }
    return __real_pthread_create(thread, attributes, start, argument);
}
// NOLINTEND(bugprone-reserved-identifier)
}
