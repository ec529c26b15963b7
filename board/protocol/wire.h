// What travels between the preload library and the daemon.
//
// One SEQPACKET connection stands for one open descriptor: the first message opens, later ones are
// calls on it, the end of the connection is the last close. Every request gets exactly one
// response. A message is the fixed header, then `argBytes` bytes of the ioctl's argument, then the
// bytes of each nested block in order. All integers are native: both ends run on one machine.
#pragma once

#include <cstdint>

namespace board::wire {

constexpr std::uint32_t protocolVersion = 1;
constexpr char socketName[] = "board.sock";       // devices, in the run folder
constexpr char orderSocketName[] = "order.sock";  // orders, in the run folder
constexpr char pageName[] = "page";               // SharedPage, in the run folder
constexpr char rootName[] = "root";               // files that stand in for fixed paths
constexpr char commandsName[] = "commands";       // shell commands that programs ran, a line each
constexpr char keptName[] = "kept";               // calls that the host did not get, a line each
constexpr char runFolderVariable[] = "VIRTUAL_BOARD";  // environment: the run folder

constexpr unsigned maxBlocks = 8;
constexpr std::uint32_t maxArgBytes = 0x3fff;  // what an ioctl number can express
constexpr std::uint32_t maxMessageBytes = 128 * 1024;

enum class Op : std::uint32_t {
    open = 1,   // path in the argument bytes; response carries the client's descriptor
    ioctl = 2,  // code = request masked to 32 bits
    map = 3,    // offset, length, protection; response carries a memfd to map at offset 0
    unmap = 4,  // offset, length
    known = 5,  // result 0: the ioctl exists on this device, -errno otherwise; no argument is read
};

// One pointer inside an ioctl's argument. `sent` bytes follow the header; up to `capacity` bytes
// may come back.
struct Block {
    std::uint32_t sent;
    std::uint32_t capacity;
};

struct Request {
    Op op;
    std::uint32_t code;
    std::uint32_t fileFlags;  // O_ flags of the caller's descriptor at this moment
    std::uint32_t pid;
    std::uint64_t offset;
    std::uint64_t length;
    std::uint32_t protection;
    std::uint32_t argBytes;
    std::uint32_t blockCount;
    Block blocks[maxBlocks];
};

// Which rules the client follows for a descriptor.
enum class Kind : std::uint32_t { none = 0, v4l2 = 1, drm = 2, pcm = 3, sndControl = 4, evdev = 5 };

struct Response {
    std::int32_t result;     // the call's value, or -errno
    std::uint32_t argBytes;  // bytes of the argument that follow (0: leave the caller's untouched)
    std::uint32_t blockCount;
    std::uint32_t blockBytes[maxBlocks];
    Kind kind;                // open
    std::uint32_t slot;       // open: index into SharedPage::handles
    std::uint32_t eventSlot;  // reserved for a companion descriptor: 1 when a second one follows
};

}  // namespace board::wire
