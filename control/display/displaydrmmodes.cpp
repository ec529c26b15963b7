// Which displays are attached and which modes they offer.
#include "control/display/displaydrm.h"
#include "control/display/drmcard.h"
#include "control/task/logline.h"

#include <algorithm>
#include <cstring>

namespace {

// Modes from here on are never used.
constexpr std::uint32_t refreshLimit_hz = 61;

std::string nameOf(const drmModeModeInfo& mode) {
    return std::string(mode.name, strnlen(mode.name, sizeof(mode.name)));
}

void printMode(int index, const drmModeModeInfo& mode) {
    // The two end values are the start values once more: the log is read by tools that know it so.
    logOut(' ', index, ' ', nameOf(mode), '@', mode.vrefresh, "\n     htotal:", mode.htotal,
           " vtotal:", mode.vtotal, "\n     hsync_start:", mode.hsync_start,
           " vsync_start:", mode.vsync_start, "\n     hsync_end:", mode.hsync_start,
           " vsync_end:", mode.vsync_start, "\n     flags:", mode.flags);
}

void appendMode(const drmModeModeInfo& mode, std::vector<decInfo>& list) {
    const bool listed = std::any_of(list.begin(), list.end(), [&mode](const decInfo& entry) {
        return entry.width == mode.hdisplay && entry.height == mode.vdisplay &&
               entry.fps == mode.vrefresh;
    });
    if (!listed && mode.vrefresh < refreshLimit_hz) {
        decInfo entry;
        entry.width = mode.hdisplay;
        entry.height = mode.vdisplay;
        entry.fps = mode.vrefresh;
        list.push_back(entry);
    }
}

// Probes the connector; null when it has no display.
DrmModePtr<drmModeConnector> fetchConnected(int fd, std::uint32_t id) {
    DrmModePtr<drmModeConnector> connector(id != 0 ? drmModeGetConnector(fd, id) : nullptr);
    if (connector && connector->connection != DRM_MODE_CONNECTED) {
        connector.reset();
    }
    return connector;
}

}  // namespace

bool DisplayDrm::findDrmDevice() {
    const UniqueFd card = openDrmCard();
    const DrmModePtr<drmModeRes> resources(card.valid() ? drmModeGetResources(card.get())
                                                        : nullptr);
    if (!resources) {
        return false;
    }
    for (int i = 0; i < resources->count_connectors; ++i) {
        const auto connector = fetchConnected(card.get(), resources->connectors[i]);
        if (!connector || connector->encoder_id == 0) {
            continue;
        }
        const DrmModePtr<drmModeEncoder> encoder(
            drmModeGetEncoder(card.get(), connector->encoder_id));
        if (encoder && encoder->possible_crtcs == firstCrtcOnly) {
            return true;
        }
    }
    return false;
}

void DisplayDrm::getDrmEdidInfo(std::vector<decInfo>& list) {
    const UniqueFd card = openDrmCard();
    const DrmModePtr<drmModeRes> resources(card.valid() ? drmModeGetResources(card.get())
                                                        : nullptr);
    if (!resources) {
        return;
    }
    for (int i = 0; i < resources->count_connectors; ++i) {
        const auto connector = fetchConnected(card.get(), resources->connectors[i]);
        if (!connector) {
            continue;
        }
        for (int j = 0; j < connector->count_modes; ++j) {
            printMode(j, connector->modes[j]);
            appendMode(connector->modes[j], list);
        }
    }
}

int DisplayDrm::findDrmModeIndex(const drmModeConnector* connector, int width, int height,
                                 int fps) {
    if (connector == nullptr || connector->connection != DRM_MODE_CONNECTED) {
        return -1;
    }
    int best = -1;
    for (int i = 0; i < connector->count_modes; ++i) {
        const drmModeModeInfo& mode = connector->modes[i];
        if (mode.vrefresh >= refreshLimit_hz || mode.hdisplay != width || mode.vdisplay != height) {
            continue;
        }
        if (mode.vrefresh == static_cast<std::uint32_t>(fps)) {
            return i;
        }
        if (best < 0 || mode.vrefresh > connector->modes[best].vrefresh) {
            best = i;
        }
    }
    return best;
}
