// A condition that stays set until it is reset, or until one waiter has seen it.
#pragma once

#include <pthread.h>

class MyEvent {
  public:
    MyEvent(bool manualReset, bool initialState);
    ~MyEvent();
    MyEvent(const MyEvent&) = delete;
    MyEvent& operator=(const MyEvent&) = delete;

    // Makes what is not there yet; true when the event can be used.
    bool CreateEvent();
    bool EnsureInitialized() const;

    // All three return false at once while the event is not initialised.
    bool Set();  // wakes every waiter
    bool Reset();
    // True when the event was found set, false on time-out or error. -1 waits without limit, any
    // other value is a time-out in milliseconds. Steps of the wall clock do not change it.
    bool Wait(int timeout_ms);

  private:
    bool manualReset;
    bool signaled;
    bool mutexReady = false;
    bool condReady = false;
    pthread_mutex_t mutex;
    pthread_cond_t cond;
};
