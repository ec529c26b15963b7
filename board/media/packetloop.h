// Payloads that were made ahead, one after the other in a circle. It may grow while it is sent.
#pragma once

#include "board/media/frameloop.h"

#include <mutex>
#include <vector>

namespace board {

struct MediaPacket {
    std::vector<std::uint8_t> bytes;
    std::vector<std::uint8_t> parameterSets;  // what goes in front of it now and then (H.264)
    bool key = false;
    std::uint32_t shown = 0;  // its place in the order in which pictures are shown
};

class PacketLoop : public FrameLoop {
  public:
    // `length` packets will come; parameter sets go with the first key frame of a stream and then
    // with every nth (0: never again). `marked`: each picture carries `shown` as its mark.
    PacketLoop(std::uint32_t length, unsigned parameterSetsEvery, bool marked);
    void add(MediaPacket packet);  // any thread

    bool has(std::uint32_t index) const override;
    std::size_t compose(std::uint32_t index, const Stamp& stamp, std::uint8_t* destination,
                        std::size_t capacity) const override;
    std::optional<LoopPlace> place(std::uint32_t index) const override;
    bool marked() const override { return marked_; }

  private:
    bool sendsParameterSets(std::uint32_t index) const;  // under lock_

    const std::uint32_t length_;
    const unsigned parameterSetsEvery_;
    const bool marked_;
    mutable std::mutex lock_;
    std::vector<MediaPacket> packets_;     // under lock_
    std::vector<std::uint32_t> keysUpTo_;  // under lock_: key frames before each packet
    std::uint32_t keys_ = 0;               // under lock_
};

}  // namespace board
