// Who looks on at what the devices do. Loop thread only; nothing that is handed over outlives the
// call.
#pragma once

#include "board/protocol/views.h"

#include <cstddef>
#include <cstdint>

namespace board {

class Watcher {
  public:
    virtual ~Watcher() = default;

    // Something else is on screen, or nothing any more. `flip`: what a page flip tells; null when
    // it was no flip.
    virtual void screenChanged(const wire::ViewFlip* flip) = 0;
    // A payload is in a buffer, as the client gets it.
    virtual void payloadDelivered(const wire::ViewPayload& about, const std::uint8_t* payload) = 0;
    // Frames were recorded or played: `bytes` bytes of them.
    virtual void soundMoved(const wire::ViewSound& about, const std::uint8_t* frames,
                            std::size_t bytes) = 0;
    // No more for now: the stream came to an end.
    virtual void soundStopped(wire::ViewCard card) = 0;
};

}  // namespace board
