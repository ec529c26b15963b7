#include "control/display/displaydrm.h"

std::atomic<DisplayDrm*> DisplayDrm::drmdev{nullptr};
std::mutex DisplayDrm::drmdevLock;

namespace {

// A probing fetch reads the display's EDID over a slow bus: too much for every question.
constexpr std::chrono::seconds probeInterval{1};

}  // namespace

DisplayDrm::DisplayDrm(decInfo mode) : modeInfo(mode) {
    const std::lock_guard<std::mutex> lock(drmdevLock);
    drmdev = this;
}

DisplayDrm::~DisplayDrm() {
    {
        const std::lock_guard<std::mutex> lock(drmdevLock);
        DisplayDrm* self = this;
        drmdev.compare_exchange_strong(self, nullptr);
    }
    close_drm_display();
}

DisplayDrm* DisplayDrm::getDrmDev() {
    return drmdev;
}

std::uint32_t DisplayDrm::getDisplayWidth() const {
    return bufs[0].width;
}

std::uint32_t DisplayDrm::getDisplayHeight() const {
    return bufs[0].height;
}

std::uint32_t DisplayDrm::getDisplayPitch() const {
    return bufs[0].pitch;
}

bool DisplayDrm::isDrmConnected() {
    if (!initialized) {
        return false;
    }
    const std::lock_guard<std::mutex> lock(probeLock);
    const auto now = std::chrono::steady_clock::now();
    const bool probe = now - lastProbe >= probeInterval;
    if (probe) {
        lastProbe = now;
    }
    const DrmModePtr<drmModeConnector> connector(
        probe ? drmModeGetConnector(drmFd.get(), connId)
              : drmModeGetConnectorCurrent(drmFd.get(), connId));
    return connector && connector->connection == DRM_MODE_CONNECTED;
}
