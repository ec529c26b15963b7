// The page that the daemon and every client map: what can be answered without a round trip.
// The daemon writes, clients read; the exceptions are the counters named so.
#pragma once

#include <atomic>
#include <cstdint>

namespace board::wire {

constexpr std::uint32_t pageMagic = 0x44524f42;  // "BORD"
constexpr unsigned maxNodes = 64;
constexpr unsigned maxHandles = 512;
constexpr unsigned maxParks = 8;

// A device node. `inode` changes with every plugging, as on a devtmpfs.
struct NodeEntry {
    std::atomic<std::uint32_t> present;
    std::uint32_t mode;  // st_mode
    std::uint64_t rdev;  // st_rdev (makedev)
    std::uint64_t inode;
    char path[48];
};

// State bits of an open descriptor.
constexpr std::uint32_t handleGone = 1u << 0;       // device unplugged: calls answer ENODEV
constexpr std::uint32_t handleStreaming = 1u << 1;  // V4L2: an empty queue means EAGAIN, not EINVAL
constexpr std::uint32_t handleFailed = 1u << 2;  // sound: the stream's state is an error to a poll
constexpr std::uint32_t handleFrameShift = 16;   // sound: the bits above are the bytes of a frame

// A call that is held in its wait: a wait with a time-out runs to its end without becoming ready,
// one without stays until the park is lifted. `call` is a libc name ("select", "read",
// "pthread_cond_wait") or an ioctl's ("VIDIOC_DQBUF"); `thread` is the caller's name as the kernel
// knows it (15 characters), empty for any.
struct ParkEntry {
    std::atomic<std::uint32_t> active;
    std::atomic<std::uint32_t> held;  // counted by clients: calls that were held so far
    char call[40];
    char thread[16];
};

struct SharedPage {
    std::uint32_t magic;
    std::uint32_t version;
    // Board time = origin + (machine time - origin) * speed, for each clock with its own origin.
    std::uint32_t speed;  // 1..10, fixed for the run
    std::int64_t monotonicOrigin_ns;
    std::int64_t realtimeOrigin_ns;
    std::atomic<std::int64_t> realtimeStep_ns;  // added to CLOCK_REALTIME: an order steps the clock
    std::atomic<std::uint32_t> nodeCount;       // entries in use; never shrinks
    std::atomic<std::uint32_t> parkCount;       // active parks; 0: nobody looks further
    NodeEntry nodes[maxNodes];
    std::atomic<std::uint32_t> handles[maxHandles];
    ParkEntry parks[maxParks];

    // Reports of the program under test (which never exits by itself): one raise is
    // generation << 2 | bits. The client answers with dumpDone = generation; leakResult is what the
    // last leak check returned (1: leaks were found).
    std::atomic<std::uint32_t> dumpRequest;
    std::atomic<std::uint32_t> dumpDone;
    std::atomic<std::uint32_t> leakResult;
};

constexpr std::uint32_t dumpLeaks = 1u << 0;     // __lsan_do_recoverable_leak_check
constexpr std::uint32_t dumpCoverage = 1u << 1;  // __gcov_dump

static_assert(std::atomic<std::uint32_t>::is_always_lock_free);

}  // namespace board::wire
