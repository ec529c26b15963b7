// What an open descriptor of the card reads: 32-byte events, one a message.
#pragma once

#include <drm.h>

#include <cstdint>
#include <memory>

namespace board {

// Both ends of a SEQPACKET pair. Holding the client's end too makes its unread bytes countable, so
// that a client that never reads meets the same bound as with a kernel: 4096 bytes.
class EventSink {
  public:
    // Null with *error = positive errno.
    static std::shared_ptr<EventSink> create(int* error);
    ~EventSink();
    EventSink(const EventSink&) = delete;
    EventSink& operator=(const EventSink&) = delete;

    int clientEnd() const { return clientEnd_; }

    // Room for one event; false when unread and promised ones fill the bound.
    bool reserve();
    // Sends an event for which room was reserved. Never blocks.
    void send(const drm_event_vblank& event);

  private:
    EventSink() = default;

    int ownEnd_ = -1, clientEnd_ = -1;
    unsigned reserved_ = 0;  // events
};

// An event on its way: who gets it and what the client gave along. Without a sink nobody wants it.
struct EventTarget {
    std::weak_ptr<EventSink> sink;
    std::uint64_t userData = 0;
};

}  // namespace board
