// The control node of a sound card and its open descriptors: what the card is, without a mixer.
// Loop thread only.
#pragma once

#include "board/daemon/device.h"

#include <sound/asound.h>

#include <memory>

namespace board {

class PluggedCard;

class CardControl : public Handle {
  public:
    explicit CardControl(std::shared_ptr<PluggedCard> card);  // throws std::system_error
    ~CardControl() override;

    int clientDescriptor() override { return client_; }
    wire::Kind kind() const override { return wire::Kind::sndControl; }
    bool knows(std::uint32_t request) const override;
    int unknownIoctlError() const override;
    int ioctl(IoctlCall& call) override;
    Mapping map(std::uint64_t offset, std::uint64_t length, std::uint32_t protection) override;
    void unmapped(std::uint64_t /*offset*/, std::uint64_t /*length*/) override {}

    void hangUp();

  private:
    int nextDevice(IoctlCall& call) const;
    int pcmInformation(IoctlCall& call) const;

    std::shared_ptr<PluggedCard> card_;
    int client_ = -1, peer_ = -1;  // an idle socket: no events ever
};

}  // namespace board
