// A V4L2 camera inside the test process: the calls of the code under test on its node are answered
// here (the test is linked with these calls wrapped).
#pragma once

#include "board/daemon/scenario.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

constexpr std::chrono::seconds deadline(20);

// Installs itself as the process's only camera. Thread-safe.
class FakeCamera {
  public:
    explicit FakeCamera(board::CameraDescription description, std::string path = "/dev/video0");
    ~FakeCamera();
    FakeCamera(const FakeCamera&) = delete;
    FakeCamera& operator=(const FakeCamera&) = delete;

    static FakeCamera* current();

    // Hands one frame to the reader, as soon as a buffer is queued; false when none came in time.
    // `bytesused` is what the driver reports, the payload's size if 0.
    bool deliver(const std::vector<std::uint8_t>& payload, std::uint32_t bytesused = 0);
    // From now on every call fails with ENODEV, and the node is readable.
    void unplug();
    // From now on a buffer that is given back is refused; waits until that happened `count` times.
    void refuseRequeues();
    bool waitRefused(unsigned count);
    // Waits until `count` buffers are queued.
    bool waitQueued(std::size_t count);
    std::vector<std::string> calls() const;  // names of the successful and failed calls, in order
    unsigned openDescriptors() const { return open_; }
    unsigned mappings() const { return mapped_; }

    // Set before use.
    std::map<unsigned long, int> failing;  // request -> errno
    int statError = 0;
    bool characterDevice = true;
    int openError = 0;
    int lowestDescriptor = 0;  // numbers below are taken
    std::uint32_t capabilities;
    bool unterminatedCard = false;
    bool noThreads = false;          // the process cannot start any
    bool endless = false;            // no enumeration ever ends
    bool stepwiseSizes = false;      // sizes are listed as a range
    bool stepwiseIntervals = false;  // each interval is listed as the start of a range
    std::uint32_t bufferBytes = 4096;
    std::uint32_t grantedBuffers = 3;
    std::atomic<std::uint32_t> reportedIndexOffset{0};  // added to the index of a dequeued buffer

    // What was asked of it.
    std::atomic<int> openFlags{0};
    std::atomic<std::uint32_t> setWidth{0}, setHeight{0}, setFourcc{0}, setField{0}, setRate{0};
    std::atomic<unsigned> enumerations{0};

    // Called by the wrapped functions.
    bool owns(int fd) const;
    bool isNode(const char* path) const { return path_ == path; }
    int openNode(int flags);
    void closed(int fd);
    int ioctl(int fd, unsigned long request, void* argument);
    void* map(std::size_t length, long offset);
    bool unmap(void* start);

  private:
    struct Done {
        std::uint32_t index;
        std::uint32_t bytesused;
    };
    using Memory = std::unique_ptr<std::uint8_t[]>;

    int answer(unsigned long request, void* argument);
    int enumFormat(void* argument) const;
    int enumSize(void* argument) const;
    int enumInterval(void* argument) const;
    int queueBuffer(void* argument);
    int dequeueBuffer(void* argument);
    const board::CameraFormat* formatOf(std::uint32_t fourcc) const;
    void note(const std::string& call);

    board::CameraDescription description_;
    std::string path_;
    mutable std::mutex lock_;
    std::condition_variable changed_;
    int event_;  // readable while a frame is done
    std::vector<int> descriptors_;
    std::atomic<unsigned> open_{0};
    std::atomic<unsigned> mapped_{0};
    std::vector<Memory> memory_;
    std::deque<std::uint32_t> queued_;
    std::deque<Done> done_;
    std::vector<std::string> calls_;
    bool gone_ = false;
    bool refusing_ = false;
    unsigned refused_ = 0;
};

// A format with modes, in one line of a test.
struct Mode {
    std::uint32_t width, height;
    std::vector<std::uint32_t> rates;
};
board::CameraFormat cameraFormat(const char (&fourcc)[5], const std::vector<Mode>& modes);
board::CameraDescription camera(std::vector<board::CameraFormat> formats,
                                std::string card = "Camera");
