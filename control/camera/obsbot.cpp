#include "control/camera/obsbot.h"

#include <utility>

std::atomic<int> ObsBot::dormantStatus{0};

namespace {

constexpr std::int64_t tiltHint = 40;
constexpr std::int64_t panHint = 60;
constexpr std::int64_t zoomHint = 70;

constexpr std::array<ObsBotAction, 12> allActions{{
    {false, controlHandle_tiltStop, 0},
    {false, controlHandle_tiltUp, tiltHint},
    {false, controlHandle_tiltDown, tiltHint},
    {false, controlHandle_panStop, 0},
    {false, controlHandle_panLeft, panHint},
    {false, controlHandle_panRight, panHint},
    {false, controlHandle_ZoomStop, 0},
    {false, controlHandle_ZoomIn, zoomHint},
    {false, controlHandle_ZoomDe, zoomHint},
    {false, controlHandle_track, 0},
    {false, controlHandle_reset, 0},
    {false, controlHandle_dormant, 0},
}};

}  // namespace

ObsBot::ObsBot(std::string videoDevicePath) : videoDevicePath(std::move(videoDevicePath)) {
    // A sleeping camera must not be asked: the table stays empty.
    if (dormantStatus != 1) {
        initBrivUvcControl();
        queryControls();
    }
    actions = allActions;
    lastAction = ACTION_NONE;
    activate(1);
}

ObsBot::~ObsBot() {
    TaskBase::close();
    wait();
}
