// Recursive lock with its scope guard.
#pragma once

#include <pthread.h>

class CCriticalSection {
  public:
    CCriticalSection();
    ~CCriticalSection();
    CCriticalSection(const CCriticalSection&) = delete;
    CCriticalSection& operator=(const CCriticalSection&) = delete;

    // Both return what the pthread call returns; the same thread may lock again.
    int Lock();
    int UnLock();

  private:
    pthread_mutex_t mutex_;
};

class CCriticalAutoLock {
  public:
    explicit CCriticalAutoLock(CCriticalSection& section) : section_(section) { section_.Lock(); }
    ~CCriticalAutoLock() { section_.UnLock(); }
    CCriticalAutoLock(const CCriticalAutoLock&) = delete;
    CCriticalAutoLock& operator=(const CCriticalAutoLock&) = delete;

  private:
    CCriticalSection& section_;
};
