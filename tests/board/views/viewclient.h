// A client of the socket for whoever looks on at the board.
#pragma once

#include "board/protocol/views.h"
#include "tests/support/environment.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace views {

namespace wire = board::wire;

// A packet as it came; owns its descriptors.
class Packet {
  public:
    Packet(std::vector<std::uint8_t> bytes, std::vector<int> descriptors);
    ~Packet();
    Packet(Packet&& other) noexcept;
    Packet(const Packet&) = delete;
    Packet& operator=(const Packet&) = delete;
    Packet& operator=(Packet&&) = delete;

    // The struct that it begins with. Throws std::runtime_error when it is shorter.
    template <typename T>
    T as() const {
        T value{};
        copy(&value, sizeof value);
        return value;
    }
    const std::vector<std::uint8_t>& bytes() const { return bytes_; }
    const std::vector<int>& descriptors() const { return descriptors_; }
    // All that the descriptor's memory holds.
    std::vector<std::uint8_t> memory(std::size_t index = 0) const;

  private:
    void copy(void* to, std::size_t bytes) const;

    std::vector<std::uint8_t> bytes_;
    std::vector<int> descriptors_;
};

class ViewClient {
  public:
    // Connects; throws std::runtime_error.
    explicit ViewClient(const std::string& folder);
    // And asks for this kind.
    ViewClient(const std::string& folder, wire::ViewKind kind);
    ~ViewClient();
    ViewClient(const ViewClient&) = delete;
    ViewClient& operator=(const ViewClient&) = delete;

    bool send(const void* packet, std::size_t bytes);  // false: the board has hung up
    bool ask(wire::ViewKind kind, std::uint32_t version = wire::viewVersion);
    bool grant(unsigned packets = 1);
    // The next packet; nothing after the deadline (scaled) or when the board has hung up.
    std::optional<Packet> receive(support::Milliseconds patience = support::Milliseconds(10000));
    bool hungUp(support::Milliseconds patience = support::Milliseconds(10000));

  private:
    int socket_ = -1;
};

// The visible part of what a packet of kind screen is about, rows without padding, luma before
// chroma; empty when black. Throws std::runtime_error when it lies outside its memory.
std::vector<std::uint8_t> visiblePart(const Packet& packet);

}  // namespace views
