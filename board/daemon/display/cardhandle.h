// One open descriptor of the card: its buffers, frame buffers and events, and the ioctls.
#pragma once

#include "board/daemon/board.h"
#include "board/daemon/display/card.h"
#include "board/daemon/display/eventsink.h"

#include <cstdint>
#include <map>
#include <memory>
#include <vector>

namespace board {

class CardHandle final : public Handle {
  public:
    CardHandle(Board& board, Card& card, std::shared_ptr<EventSink> events, std::uint32_t pid);
    ~CardHandle() override;

    int clientDescriptor() override { return events_->clientEnd(); }
    wire::Kind kind() const override { return wire::Kind::drm; }
    bool knows(std::uint32_t request) const override;
    int unknownIoctlError() const override;
    int ioctl(IoctlCall& call) override;
    bool replyOnError(std::uint32_t request) const override;
    Mapping map(std::uint64_t offset, std::uint64_t length, std::uint32_t protection) override;
    void unmapped(std::uint64_t /*offset*/, std::uint64_t /*length*/) override {}

    std::uint32_t magic() const { return magic_; }  // 0 until the client asked for it
    void setAuthenticated() { authenticated_ = true; }

  private:
    // How an ioctl is answered: by a member, or with a fixed errno where the card has no such
    // feature.
    struct Entry {
        int (CardHandle::*answer)(IoctlCall&);
        int error;  // positive errno for a null `answer`
        bool masterOnly;
    };
    static const std::map<std::uint32_t, Entry>& entries();

    // cardhandle.cpp: who is asking, what the card can do
    int version(IoctlCall& call);
    int getUnique(IoctlCall& call);
    int setVersion(IoctlCall& call);
    int getClient(IoctlCall& call);
    int getMagic(IoctlCall& call);
    int authMagic(IoctlCall& call);
    int setMaster(IoctlCall& call);
    int dropMaster(IoctlCall& call);
    int getCapability(IoctlCall& call);
    int setClientCapability(IoctlCall& call);

    // cardresources.cpp: objects and properties
    int getResources(IoctlCall& call);
    int getCrtc(IoctlCall& call);
    int getEncoder(IoctlCall& call);
    int getConnector(IoctlCall& call);
    int getPlaneResources(IoctlCall& call);
    int getPlane(IoctlCall& call);
    int objectGetProperties(IoctlCall& call);
    int getProperty(IoctlCall& call);
    int getPropertyBlob(IoctlCall& call);
    int setProperty(IoctlCall& call);
    int objectSetProperty(IoctlCall& call);

    // cardbuffers.cpp
    int createDumb(IoctlCall& call);
    int mapDumb(IoctlCall& call);
    int destroyDumb(IoctlCall& call);
    int gemClose(IoctlCall& call);
    int addFramebuffer(IoctlCall& call);
    int addFramebuffer2(IoctlCall& call);
    int getFramebuffer(IoctlCall& call);
    int removeFramebuffer(IoctlCall& call);
    int keepFramebuffer(Framebuffer framebuffer, std::uint32_t& framebufferId);
    std::uint32_t newBufferHandle() const;

    // cardscanout.cpp
    int setCrtc(IoctlCall& call);
    int pageFlip(IoctlCall& call);
    int waitVblank(IoctlCall& call);

    Board& board_;
    Card& card_;
    std::shared_ptr<EventSink> events_;
    std::uint32_t pid_;
    std::uint32_t magic_ = 0;
    bool authenticated_ = false;
    bool universalPlanes_ = false, aspectRatios_ = false, stereo_ = false;  // what the client knows
    std::map<std::uint32_t, std::shared_ptr<DumbBuffer>> buffers_;          // by GEM handle
    std::vector<std::uint32_t> framebuffers_;                               // ids
};

// Fills block `index` with `items` when the caller has room for all of them.
template <typename T>
void replyList(IoctlCall& call, std::size_t index, const std::vector<T>& items) {
    if (!items.empty() && index < call.blocks.size() &&
        call.blocks[index].capacity >= items.size() * sizeof(T))
        call.blocks[index].replyWith(items);
}

}  // namespace board
