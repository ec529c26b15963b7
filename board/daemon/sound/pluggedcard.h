// One plugging of a sound card: the devices behind its nodes, until the last descriptor is closed.
// Loop thread only.
#pragma once

#include "board/daemon/device.h"
#include "board/daemon/sound/cardcontrol.h"
#include "board/daemon/sound/cardstate.h"
#include "board/daemon/sound/pcmhandle.h"
#include "board/daemon/soundlimits.h"

#include <sound/asound.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace board {

class PluggedCard : public std::enable_shared_from_this<PluggedCard> {
  public:
    PluggedCard(std::shared_ptr<CardState> state, const SoundDescription& description,
                unsigned number);

    // Puts the nodes in place, takes them away for ever.
    void plug();
    void unplug();
    bool gone() const { return gone_; }
    unsigned number() const { return number_; }
    std::string path(char direction) const;  // 'p' or 'c': a PCM node's; ' ': the control node's
    unsigned openHandles() const { return unsigned(streams_.size() + controls_.size()); }
    const SoundDescription& description() const { return description_; }

    void suspend();
    void wake(bool goOn);  // goOn: suspended streams go on by themselves
    void breakOff();
    void setClock(const std::function<void(CardClock&)>& change);
    void catchUp();
    // The open stream of a direction, or null.
    const PcmStream* stream(bool playback) const;

    // What handles work with.
    bool hasStream(bool playback) const { return !limitsOf(playback).settings.empty(); }
    bool hasStreams() const { return hasStream(true) || hasStream(false); }
    bool asleep() const { return state_->asleep; }
    SoundLimits limits(bool playback) const;  // with what the card was ordered to grant
    PcmStream::Parts parts(bool playback, const HardwareSpace& space,
                           std::function<void(std::uint32_t)> stateChanged);
    void tell(std::uint32_t slot, std::uint32_t bits) { state_->board.setHandleState(slot, bits); }
    void information(bool playback, snd_pcm_info& info) const;
    snd_ctl_card_info cardInformation() const;
    void closed(PcmHandle& handle);
    void closed(CardControl& handle);

  private:
    class PcmNode : public Device {
      public:
        PcmNode(PluggedCard& card, bool playback) : card_(card), playback_(playback) {}
        std::unique_ptr<Handle> open(std::uint32_t fileFlags, std::uint32_t pid,
                                     int* error) override;

      private:
        PluggedCard& card_;
        bool playback_;
    };
    class ControlNode : public Device {
      public:
        explicit ControlNode(PluggedCard& card) : card_(card) {}
        std::unique_ptr<Handle> open(std::uint32_t fileFlags, std::uint32_t pid,
                                     int* error) override;

      private:
        PluggedCard& card_;
    };

    const SoundLimits& limitsOf(bool playback) const {
        return playback ? description_.playback : description_.capture;
    }
    std::unique_ptr<Handle> openStream(bool playback, int* error);
    std::unique_ptr<Handle> openControl(int* error);

    std::shared_ptr<CardState> state_;
    const SoundDescription description_;
    const unsigned number_;
    bool gone_ = false;
    PcmNode playback_{*this, true}, capture_{*this, false};
    ControlNode control_{*this};
    std::vector<PcmHandle*> streams_;
    std::vector<CardControl*> controls_;
};

}  // namespace board
