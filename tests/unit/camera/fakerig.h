// A camera that pans, tilts and zooms, and receivers of remote controls, inside the test process:
// the calls of the code under test on their nodes are answered here (the test is linked with these
// calls wrapped).
#pragma once

#include <linux/input.h>
#include <linux/videodev2.h>
#include <sys/types.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

constexpr std::chrono::seconds deadline(20);
constexpr char cameraNode[] = "/dev/video0";
constexpr char dongle[] = "NYFZ USB DONGLE";

struct FakeControl {
    std::uint32_t id;
    std::string name;  // a name of 32 characters fills its field without a zero
    std::int64_t minimum, maximum;
    std::uint64_t step;
    std::int64_t defaultValue;
    std::int32_t value;
    std::uint32_t flags = 0;
};

// The controls of a camera whose driver uses the older names, in the order of their ids.
std::vector<FakeControl> ptzControls();

class FakeRig {
  public:
    FakeRig();
    ~FakeRig();
    FakeRig(const FakeRig&) = delete;
    FakeRig& operator=(const FakeRig&) = delete;

    static FakeRig* current();

    // Set before use.
    std::vector<FakeControl> controls = ptzControls();
    std::set<std::uint32_t> refusedControls;  // reading and writing fail
    bool endlessControls = false;             // the enumeration never ends
    bool stuckControls = false;               // it gives the same control again and again
    int extensionUnit = 2;                    // -1: the camera has none
    bool refusesCommands = false;             // the unit can be read only
    std::chrono::milliseconds unitAnswer{0};  // how long each of its answers takes
    unsigned char tracking = 0;               // first byte of selector 3
    std::string presetPath;                   // stands for the preset file; empty: no such folder
    bool presetUnreadable = false, presetUnwritable = false;
    std::atomic<bool> patient{false};          // sleeps last as long as asked, else a millisecond
    std::atomic<bool> noThreads{false};        // the process cannot start any
    std::atomic<bool> cameraGone{false};       // its node does not exist
    std::atomic<bool> receiversRefuse{false};  // they can be opened for reading only

    std::atomic<unsigned> pauses{0};  // sleeps of the code under test that have begun

    // Receivers: /dev/input/eventN.
    void plugReceiver(int number, const std::string& name = dongle);
    // The node goes; who has it open reads ENODEV, or, when `quietly`, nothing any more.
    void unplugReceiver(int number, bool quietly = false);
    bool waitOpened(unsigned times);    // for reading and writing, since the beginning
    bool waitSearched(unsigned times);  // whole searches of the ten nodes
    // One record to everyone who has the receiver open.
    void send(int number, int type, int code, int value);
    void press(int number, int key);  // a scan code, the key, the end of the report
    void release(int number, int key);
    void repeat(int number, int key);  // as the kernel does for a held key: no scan code
    // Waits until all that was sent is read and dealt with.
    bool settle();
    std::vector<input_event> written(int number);  // what the receiver was told

    // What the camera was told, in order: "tilt_speed=10", "xu 2.3=01 00 ... 00".
    std::vector<std::string> told() const;
    bool waitTold(std::size_t count);
    unsigned unitReads(int unit, int selector) const;
    unsigned capabilityQueries() const { return capabilityQueries_; }
    unsigned controlReads() const { return controlReads_; }
    std::chrono::steady_clock::time_point lastTold() const;
    std::size_t openDescriptors() const;
    int openFlags(const std::string& path) const;  // of the last opening
    unsigned openings(const std::string& path) const;

    // Called by the wrapped functions; -errno.
    bool owns(int fd) const;
    int open(const std::string& path, int flags);
    int closed(int fd);  // another descriptor that is to be closed with it, or -1
    int ioctl(int fd, unsigned long request, void* argument);
    ssize_t read(int fd, void* buffer, std::size_t size);
    bool exists(const std::string& path) const;

  private:
    struct Receiver {
        std::string name;
        bool gone = false, quiet = false;
    };
    struct Open {                            // one open descriptor
        std::shared_ptr<Receiver> receiver;  // null: the camera's
        int number = -1;
        int testSide = -1;
        std::size_t sent = 0, taken = 0;  // bytes
        bool drained = false;
    };

    int cameraIoctl(unsigned long request, void* argument);
    int queryControl(v4l2_query_ext_ctrl& query) const;
    int getControl(v4l2_control& control);
    int setControl(const v4l2_control& control);
    int queryUnit(void* argument);
    int receiverIoctl(const Receiver& receiver, unsigned long request, void* argument) const;
    void tell(const std::string& what);

    mutable std::mutex lock_;
    std::condition_variable changed_;
    std::map<int, std::shared_ptr<Receiver>> receivers_;
    std::map<int, Open> open_;
    std::map<int, std::vector<int>> oldSides_;  // of closed descriptors: may hold what was written
    std::vector<std::string> told_;
    std::chrono::steady_clock::time_point lastTold_;
    std::map<std::pair<int, int>, unsigned> unitReads_;
    std::map<std::string, int> openFlags_;
    std::map<std::string, unsigned> openings_;
    unsigned opened_ = 0, searches_ = 0;
    std::atomic<unsigned> capabilityQueries_{0}, controlReads_{0};
};
