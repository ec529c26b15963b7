// From the opened card to a mode with its first flip queued.
#include "control/display/displaydrm.h"
#include "control/display/drmcard.h"
#include "control/task/logline.h"

#include <cstring>
#include <optional>
#include <ostream>
#include <string_view>

namespace {

std::string_view nameOf(const drmModePropertyRes& property) {
    return std::string_view(property.name, strnlen(property.name, sizeof(property.name)));
}

// What a picture property is set to; nothing for properties that are left alone.
std::optional<std::uint64_t> wantedValue(std::string_view name) {
    if (name == "brightness" || name == "saturation" || name == "contrast" || name == "hue") {
        return 50;
    }
    if (name == "hdmi_output_format") {
        return 1;
    }
    return std::nullopt;
}

}  // namespace

void DisplayDrm::init_drm_display() {
    evctx = drmEventContext{};
    evctx.version = 4;
    evctx.page_flip_handler = modeset_page_flip_handler;

    drmFd = openDrmCard();
    if (!drmFd.valid()) {
        reportDrmFailure("open /dev/dri/card0");
    } else {
        const DrmModePtr<drmModeRes> resources(drmModeGetResources(drmFd.get()));
        if (resources) {
            choosePaths(*resources);
        } else {
            reportDrmFailure("read the card's resources");
        }
    }
    logOut("conn_id_target = ", connId, " enc_id_target = ", encId, " crtc_id_target = ", crtcId);
    logOut("drmbuf.width = ", bufs[0].width, " drmbuf.height = ", bufs[0].height);
    connector_adjust();

    const bool scanningOut = createBuffers() && setCrtc();
    if (scanningOut) {
        // A refused flip is made up for by the display task.
        queueFlip(blankBuf.fb_id);
    }
    logOut("init drm mode MODE_FILP");
    if (scanningOut) {
        takeMarkers();
    }
    lastProbe = std::chrono::steady_clock::now();
    initialized = scanningOut;
}

void DisplayDrm::choosePaths(const drmModeRes& resources) {
    for (int i = 0; i < resources.count_connectors; ++i) {
        std::ostringstream line;
        const std::uint32_t id = resources.connectors[i];
        // The index is one raw byte in the log, not a number.
        line << static_cast<char>(i) << " conn_id = " << id << " ----------";
        if (id != 0) {
            describeConnector(id, line);
        }
        line << '\n';
        writeOut(line.str());
    }
}

void DisplayDrm::describeConnector(std::uint32_t id, std::ostream& line) {
    const DrmModePtr<drmModeConnector> connector(drmModeGetConnector(drmFd.get(), id));
    if (!connector) {
        reportDrmFailure("read a connector");
        return;
    }
    if (connector->connection != DRM_MODE_CONNECTED) {
        line << " status = disconnected";
        return;
    }
    line << " enc_id = " << connector->encoder_id;
    if (connector->encoder_id == 0) {
        return;
    }
    const DrmModePtr<drmModeEncoder> encoder(drmModeGetEncoder(drmFd.get(), connector->encoder_id));
    if (!encoder) {
        reportDrmFailure("read an encoder");
        return;
    }
    line << " crtc_id = " << encoder->crtc_id;
    if (encoder->possible_crtcs == firstCrtcOnly) {
        connId = id;
        crtcId = encoder->crtc_id;
        encId = connector->encoder_id;
        chooseMode(*connector, line);
    }
}

void DisplayDrm::chooseMode(const drmModeConnector& connector, std::ostream& line) {
    const int found =
        findDrmModeIndex(&connector, static_cast<int>(modeInfo.width),
                         static_cast<int>(modeInfo.height), static_cast<int>(modeInfo.fps));
    if (found >= 0) {
        modeIndex = found;
        line << " get drm mode index succeed index = " << found;
    } else {
        modeIndex = 0;
        line << " get drm mode index faild ";
    }
    // A connected display may list no mode at all: then there is no size, and no buffer is made.
    const bool listed = modeIndex < connector.count_modes;
    const std::uint32_t width = listed ? connector.modes[modeIndex].hdisplay : 0;
    const std::uint32_t height = listed ? connector.modes[modeIndex].vdisplay : 0;
    for (buffer_object& bo : bufs) {
        bo.width = width;
        bo.height = height;
    }
    blankBuf.width = width;
    blankBuf.height = height;
}

void DisplayDrm::connector_adjust() {
    if (connId == 0) {
        return;
    }
    DrmModePtr<drmModeConnector> connector(drmModeGetConnectorCurrent(drmFd.get(), connId));
    for (int i = 0; connector && i < connector->count_props; ++i) {
        const DrmModePtr<drmModePropertyRes> property(
            drmModeGetProperty(drmFd.get(), connector->props[i]));
        const auto value = property ? wantedValue(nameOf(*property)) : std::nullopt;
        if (value) {
            drmModeObjectSetProperty(drmFd.get(), connId, DRM_MODE_OBJECT_CONNECTOR,
                                     property->prop_id, *value);
        }
    }
    connector.reset(drmModeGetConnectorCurrent(drmFd.get(), connId));
    for (int i = 0; connector && i < connector->count_props; ++i) {
        const DrmModePtr<drmModePropertyRes> property(
            drmModeGetProperty(drmFd.get(), connector->props[i]));
        if (property) {
            logOut("id: ", property->prop_id, " name:", nameOf(*property),
                   " value:", connector->prop_values[i]);
        }
    }
}

bool DisplayDrm::setCrtc() {
    const DrmModePtr<drmModeConnector> connector(drmModeGetConnectorCurrent(drmFd.get(), connId));
    if (!connector) {
        reportDrmFailure("read the connector again");
        return false;
    }
    if (modeIndex >= connector->count_modes ||
        connector->modes[modeIndex].hdisplay != bufs[0].width ||
        connector->modes[modeIndex].vdisplay != bufs[0].height) {
        logErr("display: its modes changed during the set-up, which ends here");
        return false;
    }
    if (drmModeSetCrtc(drmFd.get(), crtcId, bufs[0].fb_id, 0, 0, &connId, 1,
                       &connector->modes[modeIndex]) != 0) {
        reportDrmFailure("set the mode");
        return false;
    }
    return true;
}
