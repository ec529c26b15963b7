// What a device of the board is to the daemon: something that can be opened; an open descriptor
// answers ioctls and maps memory. Everything here runs on the daemon's one event-loop thread and
// must not block: a call that would wait answers -EAGAIN and the client waits on its descriptor.
#pragma once

#include "board/protocol/wire.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace board {

// One pointer inside an ioctl's argument (see protocol/nested.h): what the caller sent, how much it
// can take back, what it gets. A reply longer than `capacity` is a defect of the device.
struct NestedBlock {
    std::vector<std::byte> sent;
    std::uint32_t capacity = 0;
    std::vector<std::byte> reply;

    template <typename T>
    std::vector<T> sentAs() const {
        std::vector<T> items(sent.size() / sizeof(T));
        if (!items.empty())
            std::memcpy(items.data(), sent.data(), items.size() * sizeof(T));
        return items;
    }
    template <typename T>
    void replyWith(const std::vector<T>& items) {
        reply.resize(items.size() * sizeof(T));
        if (!items.empty())
            std::memcpy(reply.data(), items.data(), reply.size());
    }
};

// One ioctl on its way through a device. The argument is as long as the request number says.
class IoctlCall {
  public:
    std::uint32_t request = 0;
    std::uint32_t fileFlags = 0;  // O_NONBLOCK and the like, as the descriptor has them now
    std::vector<std::byte> argument;
    std::vector<NestedBlock> blocks;

    // The argument as T: a copy to work on, and storing it back. T must be as long as the argument.
    template <typename T>
    T load() const {
        T value{};
        std::memcpy(&value, argument.data(),
                    sizeof(T) < argument.size() ? sizeof(T) : argument.size());
        return value;
    }
    template <typename T>
    void store(const T& value) {
        std::memcpy(argument.data(), &value,
                    sizeof(T) < argument.size() ? sizeof(T) : argument.size());
    }
};

// Memory that a client maps: a sealed memfd, owned by the device.
struct Mapping {
    int memfd = -1;
    int error = 0;  // -errno when memfd is -1
};

// An open descriptor of a device. Destroyed when the client closed its last copy or died.
class Handle {
  public:
    virtual ~Handle() = default;

    // The descriptor that the client is given (the daemon keeps its own copy or the peer's end).
    // Called once, right after opening; ownership stays with the handle.
    virtual int clientDescriptor() = 0;
    // A companion that becomes readable when an exceptional condition is pending (V4L2 events), or
    // -1. Asked once, after clientDescriptor(); ownership stays with the handle.
    virtual int eventDescriptor() { return -1; }
    virtual wire::Kind kind() const = 0;

    // Whether the device knows this ioctl at all (else the client answers unknownIoctlError()
    // without looking at the argument).
    virtual bool knows(std::uint32_t request) const = 0;
    virtual int unknownIoctlError() const = 0;  // positive errno: ENOTTY, EINVAL, ...

    // The call's result: 0 or more, or -errno. What is in call.argument and the blocks' replies is
    // sent back also when the call failed, if `replyOnError` says so.
    virtual int ioctl(IoctlCall& call) = 0;
    virtual bool replyOnError(std::uint32_t /*request*/) const { return false; }

    virtual Mapping map(std::uint64_t offset, std::uint64_t length, std::uint32_t protection) = 0;
    virtual void unmapped(std::uint64_t offset, std::uint64_t length) = 0;

    // State word in the shared page, set by the connection before the first call; null in unit
    // tests.
    std::uint32_t slot = 0;
};

// A device behind a node.
class Device {
  public:
    virtual ~Device() = default;

    // A new open descriptor, or null with *error = positive errno. `fileFlags` are the caller's O_
    // flags.
    virtual std::unique_ptr<Handle> open(std::uint32_t fileFlags, std::uint32_t pid,
                                         int* error) = 0;
};

}  // namespace board
