// Whether the machine itself kept time while something was measured on it.
#pragma once

#include <atomic>
#include <chrono>
#include <thread>

namespace support {

// An ordinary thread that sleeps 5 ms at a time and notes how late it wakes. A virtual machine that
// is not given its processors shows here, and its figures say nothing about the program measured.
class LatenessProbe {
  public:
    LatenessProbe() : thread_([this] { run(); }) {}
    ~LatenessProbe() {
        stop_ = true;
        thread_.join();
    }
    LatenessProbe(const LatenessProbe&) = delete;
    LatenessProbe& operator=(const LatenessProbe&) = delete;

    double worst_ms() const { return worst_ms_; }

  private:
    void run() {
        using namespace std::chrono;
        while (!stop_) {
            const auto due = steady_clock::now() + milliseconds(5);
            std::this_thread::sleep_until(due);
            const double late = duration<double, std::milli>(steady_clock::now() - due).count();
            if (late > worst_ms_) {
                worst_ms_ = late;
            }
        }
    }

    std::atomic<bool> stop_{false};
    std::atomic<double> worst_ms_{0};
    std::thread thread_;
};

}  // namespace support
