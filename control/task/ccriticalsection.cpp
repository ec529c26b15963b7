#include "control/task/ccriticalsection.h"

CCriticalSection::CCriticalSection() {
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
    pthread_mutex_init(&mutex_, &attributes);
    pthread_mutexattr_destroy(&attributes);
}

CCriticalSection::~CCriticalSection() {
    pthread_mutex_destroy(&mutex_);
}

int CCriticalSection::Lock() {
    return pthread_mutex_lock(&mutex_);
}

int CCriticalSection::UnLock() {
    return pthread_mutex_unlock(&mutex_);
}
