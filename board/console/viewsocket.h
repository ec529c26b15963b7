// One view of the board: a connection to its view socket.
#pragma once

#include "board/protocol/views.h"

#include <chrono>
#include <string>
#include <vector>

namespace board::console {

// Descriptors that came with a packet; closed with the object unless taken out.
class Descriptors {
  public:
    Descriptors() = default;
    ~Descriptors() { clear(); }
    Descriptors(const Descriptors&) = delete;
    Descriptors& operator=(const Descriptors&) = delete;

    void add(int descriptor) { list_.push_back(descriptor); }
    void clear();
    const std::vector<int>& list() const { return list_; }

  private:
    std::vector<int> list_;
};

struct ViewPacket {
    std::vector<char> bytes;
    Descriptors descriptors;

    // The struct at the packet's beginning; false when the packet is too short for it.
    template <typename Struct>
    bool read(Struct& head) const;
};

class ViewSocket {
  public:
    enum class Event { packet, nothing, gone };

    // A board that does not answer is `gone` at the first call of receive.
    ViewSocket(const std::string& folder, wire::ViewKind kind);
    ~ViewSocket();
    ViewSocket(const ViewSocket&) = delete;
    ViewSocket& operator=(const ViewSocket&) = delete;

    // Readiness for one more packet.
    void grant();
    Event receive(ViewPacket& packet, std::chrono::milliseconds patience);

  private:
    bool open(const std::string& folder, wire::ViewKind kind);

    int socket_ = -1;
};

template <typename Struct>
bool ViewPacket::read(Struct& head) const {
    if (bytes.size() < sizeof head)
        return false;
    __builtin_memcpy(&head, bytes.data(), sizeof head);
    return true;
}

}  // namespace board::console
