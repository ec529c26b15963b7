#include "control/task/taskbase.h"

#include "tests/unit/task/waiting.h"

#include <gtest/gtest.h>
#include <algorithm>
#include <future>
#include <mutex>
#include <thread>
#include <vector>

static std::atomic<bool> threadsAreRefused{false};

extern "C" {
int __real_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*run)(void*),
                          void* argument);
int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*run)(void*),
                          void* argument);
int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*run)(void*),
                          void* argument) {
    return threadsAreRefused ? EAGAIN : __real_pthread_create(thread, attributes, run, argument);
}
}

namespace {

// A worker that notes what its loop does.
class Worker : public TaskBase {
  public:
    ~Worker() override {
        close();
        wait();
    }
    int svc() override {
        setThreadName("Decoder_Rawvideo");
        char name[32] = {};
        pthread_getname_np(pthread_self(), name, sizeof(name));
        {
            const std::lock_guard<std::mutex> lock(mutex);
            threadName = name;
            kernelId = gettid();
            affinityResult = setCpuCore(mask, pthread_self());
        }
        ++entered;
        while (running) {
            void* message = nullptr;
            if (getq(&message, waitTimeout_ms) == 1) {
                ++received;
            }
        }
        ++left;
        return 0;
    }
    int isRunning() const { return running; }
    int waitTimeout() const { return waitTimeout_ms; }

    int mask = 1;
    std::mutex mutex;  // several threads of one worker write the next three
    std::string threadName;
    int kernelId = 0;
    int affinityResult = -1;
    std::atomic<int> entered{0}, left{0}, received{0};
};

void* numbered(std::size_t number) {
    return reinterpret_cast<void*>(number);
}

}  // namespace

TEST(TaskBase, BeginsIdle) {
    Worker worker;
    EXPECT_EQ(worker.isRunning(), 0);
    EXPECT_EQ(worker.waitTimeout(), 100);
    EXPECT_EQ(worker.getqSize(), 0);
    EXPECT_EQ(worker.thr_count(), 0U);
    TaskBase plain;
    EXPECT_EQ(plain.svc(), 0);
}

TEST(TaskBase, EmptyQueueTimesOutAndLeavesTheResultAlone) {
    TaskBase task;
    int marker = 0;
    void* out = &marker;
    const auto start = Clock::now();
    EXPECT_EQ(task.getq(&out, 100), 0);
    const double waited = millisecondsSince(start);
    EXPECT_GE(waited, 95.0);
    EXPECT_LT(waited, 2000.0);
    EXPECT_EQ(out, &marker);
}

TEST(TaskBase, MinusOneWaitsUntilAMessageComes) {
    TaskBase task;
    int message = 0;
    auto consumer = std::async(std::launch::async, [&task] {
        void* out = nullptr;
        const int result = task.getq(&out, -1);
        return std::make_pair(result, out);
    });
    // Longer than any time-out that -1 could be mistaken for.
    EXPECT_EQ(consumer.wait_for(std::chrono::milliseconds(300)), std::future_status::timeout);
    EXPECT_EQ(task.putq(&message), 1);
    EXPECT_EQ(consumer.get(), std::make_pair(1, static_cast<void*>(&message)));
}

TEST(TaskBase, PutWakesAWaitingConsumerAtOnce) {
    TaskBase task;
    int message = 0;
    std::atomic<bool> waiting{false};
    auto consumer = std::async(std::launch::async, [&] {
        void* out = nullptr;
        waiting = true;
        const auto start = Clock::now();
        const int result = task.getq(&out, 20000);
        return std::make_tuple(result, out, millisecondsSince(start));
    });
    ASSERT_TRUE(comesTrue([&] { return waiting.load(); }));
    // Give the consumer the time to get from its mark into the wait; if it does not, the message
    // is found by the look at the queue, which this test then shows instead.
    EXPECT_EQ(consumer.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
    task.putq(&message);
    const auto [result, out, waited] = consumer.get();
    EXPECT_EQ(result, 1);
    EXPECT_EQ(out, &message);
    EXPECT_LT(waited, 10000.0);
}

TEST(TaskBase, MessagesKeepTheirOrder) {
    TaskBase task;
    for (std::size_t i = 1; i <= 5; ++i) {
        task.putq(numbered(i));
    }
    EXPECT_EQ(task.getqSize(), 5);
    for (std::size_t i = 1; i <= 5; ++i) {
        void* out = nullptr;
        ASSERT_EQ(task.getq(&out, 0), 1);
        EXPECT_EQ(out, numbered(i));
    }
    EXPECT_EQ(task.getqSize(), 0);
}

TEST(TaskBase, EachProducersMessagesKeepTheirOrder) {
    constexpr std::size_t producers = 4, each = 2000;
    TaskBase task;
    std::vector<std::thread> threads;
    for (std::size_t p = 0; p < producers; ++p) {
        threads.emplace_back([&task, p] {
            for (std::size_t i = 0; i < each; ++i) {
                task.putq(numbered(1 + p * each + i));
            }
        });
    }
    std::vector<std::size_t> next(producers, 0);
    for (std::size_t taken = 0; taken < producers * each;) {
        void* out = nullptr;
        if (task.getq(&out, 10000) != 1) {
            ADD_FAILURE() << "no message for 10 s after " << taken;
            break;
        }
        const std::size_t number = reinterpret_cast<std::size_t>(out) - 1;
        EXPECT_EQ(number % each, next[number / each]++);
        ++taken;
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

TEST(TaskBase, CloseEndsTheLoopWithinItsTimeout) {
    Worker worker;
    EXPECT_EQ(worker.activate(1), 1);
    EXPECT_EQ(worker.thr_count(), 1U);
    ASSERT_TRUE(comesTrue([&] { return worker.entered == 1; }));
    EXPECT_EQ(worker.isRunning(), 1);
    const auto start = Clock::now();
    EXPECT_EQ(worker.close(), 0);
    worker.wait();
    EXPECT_LT(millisecondsSince(start), 2000.0);
    EXPECT_EQ(worker.left, 1);
    EXPECT_EQ(worker.thr_count(), 0U);
}

TEST(TaskBase, WaitJoinsOnceAndNothingWithoutThreads) {
    Worker worker;
    worker.wait();
    worker.activate(3);
    EXPECT_EQ(worker.thr_count(), 3U);
    ASSERT_TRUE(comesTrue([&] { return worker.entered == 3; }));
    worker.close();
    worker.wait();
    EXPECT_EQ(worker.left, 3);
    worker.wait();
    EXPECT_EQ(worker.left, 3);
}

TEST(TaskBase, AThreadThatCannotBeStartedIsNotWaitedFor) {
    Worker worker;
    threadsAreRefused = true;
    EXPECT_EQ(worker.activate(2), 1);
    threadsAreRefused = false;
    EXPECT_EQ(worker.thr_count(), 0U);
    worker.wait();
    EXPECT_EQ(worker.entered, 0);
}

TEST(TaskBase, CanBeStartedAgain) {
    Worker worker;
    for (int round = 1; round <= 2; ++round) {
        worker.activate(1);
        ASSERT_TRUE(comesTrue([&] { return worker.entered == round; }));
        worker.close();
        worker.wait();
        EXPECT_EQ(worker.left, round);
    }
}

TEST(TaskBase, ThreadsAreNamedAndHaveTheirOwnKernelId) {
    Worker worker;
    worker.activate(1);
    ASSERT_TRUE(comesTrue([&] { return worker.entered == 1; }));
    EXPECT_EQ(worker.threadName, "Decoder_Rawvide");
    EXPECT_NE(worker.kernelId, TaskBase::gettid());
    EXPECT_EQ(TaskBase::gettid(), getpid());
}

TEST(TaskBase, PinsToTheCpusOfTheMask) {
    auto pinned = std::async(std::launch::async, [] {
        const int result = TaskBase::setCpuCore(1, pthread_self());
        cpu_set_t set;
        CPU_ZERO(&set);
        pthread_getaffinity_np(pthread_self(), sizeof(set), &set);
        return std::make_tuple(result, CPU_COUNT(&set), CPU_ISSET(0, &set) != 0);
    });
    EXPECT_EQ(pinned.get(), std::make_tuple(0, 1, true));
}

TEST(TaskBase, AMaskWithoutOneOfTheMachinesCpusIsRefusedAndChangesNothing) {
    const unsigned int cpus = std::thread::hardware_concurrency();
    if (cpus >= 32) {
        GTEST_SKIP() << "every mask names a CPU of this machine";
    }
    Worker worker;
    worker.mask = static_cast<int>(1U << cpus);
    worker.activate(1);
    ASSERT_TRUE(comesTrue([&] { return worker.entered == 1; }));
    EXPECT_EQ(worker.affinityResult, EINVAL);
    worker.putq(nullptr);
    EXPECT_TRUE(comesTrue([&] { return worker.received == 1; }));
}
