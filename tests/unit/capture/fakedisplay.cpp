#include "tests/unit/capture/fakedisplay.h"

#include <cstdio>

namespace {

FakeDisplay* installed = nullptr;
std::uint32_t connectorIds[] = {33};

}  // namespace

FakeDisplay::FakeDisplay(const std::vector<board::DisplayMode>& modes) {
    for (const board::DisplayMode& mode : modes) {
        drmModeModeInfo info{};
        info.hdisplay = mode.hdisplay;
        info.vdisplay = mode.vdisplay;
        info.vrefresh = mode.vrefresh_Hz;
        std::snprintf(info.name, sizeof info.name, "%s", mode.name.c_str());
        modes_.push_back(info);
    }
    installed = this;
}

FakeDisplay::~FakeDisplay() {
    installed = nullptr;
}

FakeDisplay* FakeDisplay::current() {
    return installed;
}

extern "C" {

drmModeResPtr __wrap_drmModeGetResources(int) {
    auto* resources = new drmModeRes{};
    resources->count_connectors = 1;
    resources->connectors = connectorIds;
    return resources;
}

void __wrap_drmModeFreeResources(drmModeResPtr resources) {
    delete resources;
}

drmModeConnectorPtr __wrap_drmModeGetConnector(int, std::uint32_t id) {
    auto* connector = new drmModeConnector{};
    connector->connector_id = id;
    connector->connection = DRM_MODE_CONNECTED;
    connector->count_modes = static_cast<int>(installed->modes().size());
    connector->modes = installed->modes().data();
    return connector;
}

void __wrap_drmModeFreeConnector(drmModeConnectorPtr connector) {
    delete connector;
}

}  // extern "C"
