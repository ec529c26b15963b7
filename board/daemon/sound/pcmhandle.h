// An open descriptor of a PCM node. Loop thread only.
#pragma once

#include "board/daemon/device.h"
#include "board/daemon/sound/pcmstream.h"

#include <map>
#include <memory>

namespace board {

class PluggedCard;

class PcmHandle : public Handle {
  public:
    PcmHandle(std::shared_ptr<PluggedCard> card, bool playback);  // throws std::system_error
    ~PcmHandle() override;

    int clientDescriptor() override { return stream_.clientDescriptor(); }
    wire::Kind kind() const override { return wire::Kind::pcm; }
    bool knows(std::uint32_t request) const override;
    int unknownIoctlError() const override;
    int ioctl(IoctlCall& call) override;
    Mapping map(std::uint64_t offset, std::uint64_t length, std::uint32_t protection) override;
    void unmapped(std::uint64_t offset, std::uint64_t length) override;

    PcmStream& stream() { return stream_; }
    const PcmStream& stream() const { return stream_; }

  private:
    using Step = int (PcmHandle::*)(IoctlCall&);
    static const std::map<std::uint32_t, Step>& table();
    template <typename T, int (PcmHandle::*step)(T&)>
    int with(IoctlCall& call);
    template <int (PcmStream::*step)()>
    int on(IoctlCall& call);

    int version(std::int32_t& version);
    int information(snd_pcm_info& info);
    int timestamps(std::int32_t& type);
    int refine(snd_pcm_hw_params& params);
    int setHardware(snd_pcm_hw_params& params);
    int setSoftware(snd_pcm_sw_params& params);
    int status(snd_pcm_status& status);
    int delay(snd_pcm_sframes_t& frames);
    int pointers(snd_pcm_sync_ptr& pointers);
    int channel(snd_pcm_channel_info& info);
    int pause(std::int32_t& on);
    int rewind(snd_pcm_uframes_t& frames);
    int forward(snd_pcm_uframes_t& frames);
    int read(IoctlCall& call);
    int write(IoctlCall& call);
    int separately(IoctlCall& call);  // READN and WRITEN: the card has no such access

    std::shared_ptr<PluggedCard> card_;
    HardwareSpace space_;
    PcmStream stream_;
};

}  // namespace board
