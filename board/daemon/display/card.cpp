#include "board/daemon/display/card.h"

#include "board/daemon/display/cardhandle.h"

#include <drm_fourcc.h>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace board {

namespace {

constexpr std::size_t maxFramebuffers = 256;

}  // namespace

Card::Card(Board& board, const DisplayDescription& description, Crtc::Listener listener)
    : board_(board),
      description_(description),
      connectorProperties_({id::edid, id::dpms, id::linkStatus, id::nonDesktop, id::brightness,
                            id::contrast, id::saturation, id::hue, id::hdmiOutputFormat}),
      planeProperties_({id::planeType}),
      crtc_(board, id::crtc, std::move(listener)) {}

std::unique_ptr<Handle> Card::open(std::uint32_t /*fileFlags*/, std::uint32_t pid, int* error) {
    std::shared_ptr<EventSink> events = EventSink::create(error);
    if (events == nullptr)
        return nullptr;
    auto handle = std::make_unique<CardHandle>(board_, *this, std::move(events), pid);
    handles_.push_back(handle.get());
    if (master_ == nullptr)
        setMaster(*handle);
    return handle;
}

void Card::plug() {
    if (plugged_)
        return;
    plugged_ = true;
    takeIntoUse();
}

void Card::unplug() {
    if (!plugged_)
        return;
    plugged_ = false;
    takeIntoUse();
}

void Card::replaceDescription(const DisplayDescription& description) {
    description_ = description;
    if (plugged_)
        takeIntoUse();
}

void Card::takeIntoUse() {
    modes_.clear();
    edid_.clear();
    connectorProperties_.force(id::edid, 0);
    if (!plugged_)
        return;
    for (const DisplayMode& mode : description_.modes)
        modes_.push_back(toModeInfo(mode));
    edid_ = description_.edid;
    if (!edid_.empty())
        connectorProperties_.force(id::edid, newObjectId());
    if (consoleRules_)
        showConsole();
}

void Card::showConsole() {
    consoleRules_ = true;
    crtc_.setAsleep(false);
    connectorProperties_.force(id::dpms, 0);
    const auto usable = std::find_if(modes_.begin(), modes_.end(), isUsableMode);
    if (usable == modes_.end()) {
        // An unplugged console keeps its picture; one without any mode has none.
        if (plugged_)
            crtc_.off();
        return;
    }
    Framebuffer black;
    black.width = usable->hdisplay;
    black.height = usable->vdisplay;
    black.format = DRM_FORMAT_XRGB8888;
    // Held by name: a client's mode took the console's picture off the CRTC, but not out of the
    // card.
    const FramebufferRef previous = std::exchange(console_, keep(std::move(black)));
    crtc_.set(*usable, console_, 0, 0);
    if (previous != nullptr)
        removeFramebuffer(previous->id);
}

const std::vector<std::uint8_t>* Card::edidBlob(std::uint32_t blobId) const {
    return blobId != 0 && blobId == connectorProperties_.get(id::edid) ? &edid_ : nullptr;
}

int Card::setConnectorProperty(std::uint32_t propertyId, std::uint64_t value) {
    const int result = connectorProperties_.set(propertyId, value);
    if (result == 0 && propertyId == id::dpms) {
        clientTookOver();
        crtc_.setAsleep(value != DRM_MODE_DPMS_ON);
    }
    return result;
}

int Card::setMaster(CardHandle& handle) {
    if (master_ != nullptr && master_ != &handle)
        return -EBUSY;
    master_ = &handle;
    handle.setAuthenticated();
    return 0;
}

int Card::dropMaster(CardHandle& handle) {
    if (master_ != &handle)
        return -EINVAL;
    master_ = nullptr;
    return 0;
}

int Card::authenticate(std::uint32_t magic) {
    for (CardHandle* handle : handles_) {
        if (magic != 0 && handle->magic() == magic) {
            handle->setAuthenticated();
            return 0;
        }
    }
    return -EINVAL;
}

std::uint32_t Card::newObjectId() const {
    std::uint32_t candidate = id::firstFree;
    while (findFramebuffer(candidate) != nullptr || connectorProperties_.get(id::edid) == candidate)
        ++candidate;
    return candidate;
}

std::uint32_t Card::addFramebuffer(Framebuffer framebuffer) {
    return framebuffers_.size() < maxFramebuffers ? keep(std::move(framebuffer))->id : 0;
}

FramebufferRef Card::keep(Framebuffer framebuffer) {
    framebuffer.id = newObjectId();
    framebuffers_.push_back(std::make_shared<const Framebuffer>(std::move(framebuffer)));
    return framebuffers_.back();
}

FramebufferRef Card::findFramebuffer(std::uint32_t framebufferId) const {
    for (const FramebufferRef& framebuffer : framebuffers_) {
        if (framebuffer->id == framebufferId)
            return framebuffer;
    }
    return nullptr;
}

void Card::removeFramebuffer(std::uint32_t framebufferId) {
    const bool onScreen = crtc_.uses(framebufferId);
    framebuffers_.erase(
        std::remove_if(framebuffers_.begin(), framebuffers_.end(),
                       [&](const FramebufferRef& other) { return other->id == framebufferId; }),
        framebuffers_.end());
    if (onScreen)
        crtc_.off();
}

void Card::closed(CardHandle& handle) {
    handles_.erase(std::remove(handles_.begin(), handles_.end(), &handle), handles_.end());
    if (master_ == &handle)
        master_ = nullptr;
    if (master_ == nullptr && !consoleRules_)
        showConsole();
}

}  // namespace board
