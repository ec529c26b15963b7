// Threads that cannot be started. Needs --wrap=pthread_create in the test's link.
#pragma once

class ThreadLimit {
  public:
    explicit ThreadLimit(int threads);  // so many more, while this lives
    ~ThreadLimit();
    ThreadLimit(const ThreadLimit&) = delete;
    ThreadLimit& operator=(const ThreadLimit&) = delete;
};
