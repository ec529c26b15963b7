// A race as tests have it: who has seen the first of two steps believes that the second one follows
// within a millisecond. Prints how often it did not.
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <thread>

namespace {

constexpr int rounds = 800;

class Race {
  public:
    void run() {
        {
            const std::lock_guard<std::mutex> guard(lock_);
            taken_ = true;
        }
        changed_.notify_one();
        const std::lock_guard<std::mutex> guard(lock_);
        done_ = true;
    }
    bool isLate() {
        std::unique_lock<std::mutex> guard(lock_);
        changed_.wait(guard, [this] { return taken_; });
        guard.unlock();
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        guard.lock();
        return !done_;
    }

  private:
    std::mutex lock_;
    std::condition_variable changed_;
    bool taken_ = false, done_ = false;
};

}  // namespace

int main() {
    int late = 0;
    for (int round = 0; round < rounds; ++round) {
        Race race;
        std::thread other([&] { race.run(); });
        late += race.isLate() ? 1 : 0;
        other.join();
    }
    std::printf("late: %d\n", late);
}
