// What a camera delivers: payload after payload, for ever, made once from a recording.
#pragma once

#include "board/media/encoding.h"
#include "board/media/stamp.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace board {

// A picture whose mark was drawn before the stream began: it carries its place in the loop and
// stampInLoop instead of a number and a time.
struct LoopPlace {
    std::uint32_t mark = 0;  // the mark's frame field
    std::int32_t ahead =
        0;  // how many frames later (earlier: negative) it is shown than it is sent
};

class FrameLoop {
  public:
    virtual ~FrameLoop() = default;

    // Whether this frame of a stream (counted from its start) is made already. Any thread.
    virtual bool has(std::uint32_t /*index*/) const { return true; }
    // Writes the frame's payload, cut off at `capacity`, and returns its whole length. The stamp is
    // drawn in where place() has nothing to say. Frames that has() denies have no length.
    virtual std::size_t compose(std::uint32_t index, const Stamp& stamp, std::uint8_t* destination,
                                std::size_t capacity) const = 0;
    virtual std::optional<LoopPlace> place(std::uint32_t /*index*/) const { return std::nullopt; }
    // Whether the pictures carry a mark at all: those of a media file do not.
    virtual bool marked() const { return true; }
};

struct FrameLoopWish {
    std::string recording;
    std::uint32_t fourcc = 0, width = 0, height = 0;
    Encoding encoding;

    bool operator==(const FrameLoopWish& other) const {
        return recording == other.recording && fourcc == other.fourcc && width == other.width &&
               height == other.height && encoding == other.encoding;
    }
    bool operator!=(const FrameLoopWish& other) const { return !(*this == other); }
};

// Whether a loop of this format can be made: the raw ones of recording.h, MJPG and H264.
bool canMakeFrames(std::uint32_t fourcc);

// Makes a loop. `ready` gets it as soon as a stream can begin; the rest is made before this
// returns, unless `goOn` becomes false meanwhile. Throws std::runtime_error with one line, before
// `ready`.
void makeFrameLoop(const FrameLoopWish& wish, const std::function<bool()>& goOn,
                   const std::function<void(const std::shared_ptr<const FrameLoop>&)>& ready);

}  // namespace board
