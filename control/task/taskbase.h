// Base of every worker: threads that run svc() and an unbounded queue of messages.
#pragma once

#include "control/task/ccriticalsection.h"
#include "control/task/ceventimpl.h"

#include <pthread.h>
#include <sys/time.h>
#include <atomic>
#include <deque>
#include <memory>
#include <string>

class TaskBase {
  public:
    TaskBase();
    // Joins: an owner that did not call close() waits here until svc() returns by itself.
    // A derived class whose svc() uses its members joins in its own destructor, before they go.
    // Messages still queued are not freed: their type is unknown here.
    virtual ~TaskBase();
    TaskBase(const TaskBase&) = delete;
    TaskBase& operator=(const TaskBase&) = delete;

    // Starts n threads; 1. A thread that cannot be started is left out.
    virtual int activate(int n);
    // Asks the threads to end; 0. Does not wake a waiting getq.
    virtual int close();
    // Appends a message and wakes the waiters; 1. Any thread.
    virtual int putq(void* msg);
    // 1 with the oldest message, which the caller then owns; 0 when none came within timeout_ms
    // (-1: no limit), `out` untouched. Any thread.
    virtual int getq(void** out, int timeout_ms);
    virtual int getqSize();
    // The worker's loop, on a thread of its own.
    virtual int svc();

    // Joins every started thread, in the order of starting. Owner's thread only.
    void wait();
    unsigned int thr_count() const;

    // The calling thread's kernel id.
    static int gettid();
    // Pins a thread to the CPUs whose bits are set; the result of pthread_setaffinity_np.
    static int setCpuCore(int mask, unsigned long thread);
    // Names the calling thread after its class, cut to the 15 characters that the kernel keeps.
    static void setThreadName(const std::string& className);

    // Diagnostics for a single thread: time since the last call (or the last task made).
    static void debugDiffTime_ms(int print, const std::string& tag);
    static void debugDiffTime_ns(int print);
    // Prints the resident memory of the calling thread's process; nothing when it cannot be read.
    static void debugMem();
    static void debugMem(const std::string& statusPath);

    static timeval lastTime;

  protected:
    // The threads that activate started, in that order. Owner's thread only.
    const std::deque<pthread_t>& startedThreads() const { return threadIds; }

    std::atomic<int> running{0};           // 1 while the threads shall keep looping
    std::atomic<int> waitTimeout_ms{100};  // for the getq calls of svc()

  private:
    static void* svc_run(void* self);
    // Stores the time of now as the last one; returns what was there.
    static timeval exchangeLastTime(const timeval& now);

    std::unique_ptr<CCriticalSection> queueLock;
    std::unique_ptr<CEventImpl> queueEvent;
    std::deque<void*> msgQueue;
    std::deque<pthread_t> threadIds;
};
