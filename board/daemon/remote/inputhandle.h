// An open descriptor of an input device: a stream of 24-byte records in both directions, and its
// ioctls. Loop thread only.
#pragma once

#include "board/daemon/device.h"

#include <linux/input.h>
#include <time.h>

#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace board {

class PluggedInput;

class InputHandle : public Handle {
  public:
    explicit InputHandle(std::shared_ptr<PluggedInput> input);  // throws std::system_error
    ~InputHandle() override;
    InputHandle(const InputHandle&) = delete;
    InputHandle& operator=(const InputHandle&) = delete;

    int clientDescriptor() override { return client_; }
    wire::Kind kind() const override { return wire::Kind::evdev; }
    bool knows(std::uint32_t request) const override;
    int unknownIoctlError() const override;
    int ioctl(IoctlCall& call) override;
    Mapping map(std::uint64_t offset, std::uint64_t length, std::uint32_t protection) override;
    void unmapped(std::uint64_t /*offset*/, std::uint64_t /*length*/) override {}

    // Called by the device. Events reach the client with the SYN_REPORT that ends them.
    void deliver(std::uint16_t type, std::uint16_t code, std::int32_t value);
    void takeWrites();
    void hangUp();

  private:
    input_event stamped(std::uint16_t type, std::uint16_t code, std::int32_t value) const;
    std::size_t unreadEvents() const;
    void dropUnread();
    void flush();

    int text(IoctlCall& call, const std::string& text) const;
    int bits(IoctlCall& call, const std::set<std::uint16_t>& codes, unsigned highest) const;
    int eventBits(IoctlCall& call, unsigned type) const;
    int sized(IoctlCall& call) const;
    int repeat(IoctlCall& call);
    int chooseClock(const IoctlCall& call);

    std::shared_ptr<PluggedInput> input_;
    int client_ = -1;  // the same socket as the client's copy: unread events are counted here
    int peer_ = -1;
    clockid_t clock_ = CLOCK_REALTIME;
    std::vector<input_event> packet_;  // not ended yet
};

}  // namespace board
