#include "control/task/myevent.h"

#include <ctime>

namespace {

timespec deadlineAfter(int timeout_ms) {
    timespec deadline{};
    clock_gettime(CLOCK_MONOTONIC, &deadline);
    deadline.tv_sec += timeout_ms / 1000;
    deadline.tv_nsec += static_cast<long>(timeout_ms % 1000) * 1000000L;
    if (deadline.tv_nsec > 999999999L) {
        deadline.tv_sec += 1;
        deadline.tv_nsec -= 1000000000L;
    }
    return deadline;
}

}  // namespace

MyEvent::MyEvent(bool manualReset, bool initialState)
    : manualReset(manualReset), signaled(initialState) {}

MyEvent::~MyEvent() {
    if (mutexReady) {
        pthread_mutex_destroy(&mutex);
        mutexReady = false;
    }
    if (condReady) {
        pthread_cond_destroy(&cond);
        condReady = false;
    }
}

bool MyEvent::CreateEvent() {
    if (!mutexReady) {
        mutexReady = pthread_mutex_init(&mutex, nullptr) == 0;
    }
    if (!condReady) {
        condReady = pthread_cond_init(&cond, nullptr) == 0;
    }
    return EnsureInitialized();
}

bool MyEvent::EnsureInitialized() const {
    return mutexReady && condReady;
}

bool MyEvent::Set() {
    if (!EnsureInitialized()) {
        return false;
    }
    pthread_mutex_lock(&mutex);
    signaled = true;
    pthread_cond_broadcast(&cond);
    pthread_mutex_unlock(&mutex);
    return true;
}

bool MyEvent::Reset() {
    if (!EnsureInitialized()) {
        return false;
    }
    pthread_mutex_lock(&mutex);
    signaled = false;
    pthread_mutex_unlock(&mutex);
    return true;
}

bool MyEvent::Wait(int timeout_ms) {
    if (!EnsureInitialized()) {
        return false;
    }
    pthread_mutex_lock(&mutex);
    // The condition keeps default attributes, so the clock is named at each wait: the wall clock
    // of a board without a battery jumps when the network sets it.
    const timespec deadline = timeout_ms == -1 ? timespec{} : deadlineAfter(timeout_ms);
    int result = 0;
    while (!signaled && result == 0) {
        result = timeout_ms == -1
                     ? pthread_cond_wait(&cond, &mutex)
                     : pthread_cond_clockwait(&cond, &mutex, CLOCK_MONOTONIC, &deadline);
    }
    if (result == 0 && !manualReset) {
        signaled = false;
    }
    pthread_mutex_unlock(&mutex);
    return result == 0;
}
