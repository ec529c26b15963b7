// The KMS card behind /dev/dri/card0: one connector, encoder, CRTC and plane, shared by all
// openers.
#pragma once

#include "board/daemon/board.h"
#include "board/daemon/display/crtc.h"
#include "board/daemon/display/properties.h"
#include "board/daemon/scenario.h"

#include <cstdint>
#include <memory>
#include <vector>

namespace board {

class CardHandle;

// Runs on the loop's thread. While no client holds the card as master, the console does: the
// display's first mode with a black picture.
class Card final : public Device {
  public:
    Card(Board& board, const DisplayDescription& description, Crtc::Listener listener);

    std::unique_ptr<Handle> open(std::uint32_t fileFlags, std::uint32_t pid, int* error) override;

    // The world's side: what is plugged to the connector.
    void plug();
    void unplug();
    bool plugged() const { return plugged_; }
    void replaceDescription(const DisplayDescription& description);
    const DisplayDescription& description() const { return description_; }

    // The clients' side.
    Crtc& crtc() { return crtc_; }
    const Crtc& crtc() const { return crtc_; }
    const std::vector<drm_mode_modeinfo>& modes() const { return modes_; }  // empty while unplugged
    // Whether the connector is driven by the encoder, and so by the CRTC.
    bool routed() const { return crtc_.on() || (plugged_ && consoleRules_); }
    PropertyValues& connectorProperties() { return connectorProperties_; }
    const PropertyValues& planeProperties() const { return planeProperties_; }
    const std::vector<std::uint8_t>* edidBlob(std::uint32_t blobId) const;  // null: no such blob
    int setConnectorProperty(std::uint32_t propertyId, std::uint64_t value);

    bool isMaster(const CardHandle& handle) const { return master_ == &handle; }
    int setMaster(CardHandle& handle);      // 0 or -EBUSY
    int dropMaster(CardHandle& handle);     // 0 or -EINVAL
    int authenticate(std::uint32_t magic);  // 0 or -EINVAL
    std::uint32_t newMagic() { return ++lastMagic_; }

    const std::shared_ptr<BufferBudget>& budget() const { return budget_; }
    // Takes over a checked frame buffer and numbers it; 0 when there are too many.
    std::uint32_t addFramebuffer(Framebuffer framebuffer);
    // Null when there is none of that number.
    FramebufferRef findFramebuffer(std::uint32_t framebufferId) const;
    // One on screen turns the CRTC off.
    void removeFramebuffer(std::uint32_t framebufferId);
    // A client has taken the CRTC into its hands: the console waits until the master is gone.
    void clientTookOver() { consoleRules_ = false; }

    void closed(CardHandle& handle);  // its frame buffers are removed already

  private:
    void takeIntoUse();  // modes and EDID of what is plugged now
    void showConsole();
    FramebufferRef keep(Framebuffer framebuffer);
    std::uint32_t newObjectId() const;

    Board& board_;
    DisplayDescription description_;
    bool plugged_ = false;
    std::vector<drm_mode_modeinfo> modes_;
    std::vector<std::uint8_t> edid_;
    PropertyValues connectorProperties_, planeProperties_;
    std::shared_ptr<BufferBudget> budget_ = std::make_shared<BufferBudget>();
    std::vector<FramebufferRef> framebuffers_;  // the console's included
    FramebufferRef console_;                    // its latest picture, null before the first
    Crtc crtc_;
    bool consoleRules_ = true;
    std::vector<CardHandle*> handles_;  // in the order of opening
    CardHandle* master_ = nullptr;
    std::uint32_t lastMagic_ = 0;
};

}  // namespace board
