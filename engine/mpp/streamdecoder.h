// Simple mode: H.264 packets in, frames out.
#pragma once

#include <cstdint>
#include <deque>
#include <mutex>
#include <vector>

#include "engine/mpp/accessunits.h"
#include "engine/mpp/avc.h"
#include "engine/mpp/decoder.h"
#include "engine/mpp/framenumbers.h"

namespace mpp {

class StreamDecoder : public Decoder {
  public:
    static constexpr std::size_t packetsThatWait = 4;
    // Frames that the program has not taken; its group's limit is usually reached before.
    static constexpr std::size_t framesThatWait = 32;

    using Decoder::Decoder;
    MPP_RET put(const Packet& packet) override;
    MPP_RET get(Frame*& frame) override;
    MPP_RET reset() override;
    RK_S32 backlog() const override { return static_cast<RK_S32>(packets_.size()); }
    bool busy() const override { return busy_ || !packets_.empty(); }
    RK_U32 waitsFor() const override { return waitsFor_; }

  private:
    using Lock = std::unique_lock<std::mutex>;
    struct Data {
        std::vector<std::uint8_t> bytes;
        RK_S64 pts = 0;
        bool eos = false;
        bool split = false;
    };

    bool prepare() override { return avc_.open(); }
    void work() override;
    // The steps of the decoder's thread. False when a reset or the end came in between.
    bool decode(const Data& data);
    bool decodeUnit(const AccessUnit& unit);
    bool giveOutPictures();
    bool giveOut(const AVFrame& picture);
    bool agreeOn(const PictureSize& size);
    bool finishStream();
    // A buffer for the picture; null with MPP_OK when interrupted, with another result when the
    // program's group will not give one of that size.
    Ref<Buffer> waitForBuffer(std::size_t size, MPP_RET& result);
    bool put(Ref<Frame> frame);
    void judge(const AVFrame& picture, FrameInfo& info);
    void forget();
    void noteDamage(std::int64_t unit);
    bool interrupted() const { return channel_.ending || channel_.epoch != handledEpoch_; }

    // Of the decoder's thread.
    AccessUnits units_;
    AvcDecoder avc_;
    PictureSize agreed_;
    FrameNumbers numbers_;
    // Since the beginning or a reset, in the order of decoding:
    std::int64_t unit_ = 0;              // units
    std::int64_t key_ = -1;              // the last good key frame that came out; -1: none
    std::vector<std::int64_t> damaged_;  // units after it with something missing or broken

    // The channel's lock guards all below.
    std::deque<Data> packets_;
    std::deque<Ref<Frame>> frames_;
    unsigned handledEpoch_ = 0;
    bool busy_ = false;
    RK_U32 waitsFor_ = 1;
};

}  // namespace mpp
