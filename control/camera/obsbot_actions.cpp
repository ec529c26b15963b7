// What the remote's keys do to the camera. Whatever fails is ignored: the next key is the retry.
#include "control/camera/obsbot.h"
#include "control/task/drivertext.h"
#include "control/task/logline.h"
#include "control/task/xioctl.h"

#include <linux/videodev2.h>

#include <algorithm>

namespace {

constexpr int motionSpeed = 10;

// The camera's own protocol: 60 bytes to a selector of its extension unit.
constexpr int commandBytes = 60;
constexpr int commandSelector = 2;
constexpr int trackSelector = 3;
constexpr int probeSelector = 4;  // every camera that takes commands can be asked for it
constexpr int unitIds = 255;
constexpr unsigned char sleepCommand[] = {0xAA, 0x00, 0x0E, 0x12, 0x33, 0x00, 0xF4,
                                          0xE0, 0x00, 0xE1, 0x13, 0xC2, 0x01, 0x03};
constexpr unsigned char wakeCommand[] = {0xAA, 0x00, 0x0E, 0x12, 0x00, 0x33, 0x34,
                                         0xD1, 0x00, 0xE1, 0x13, 0xC2, 0x01, 0x01};

ObsBotAction& entryOf(void* obsBot, ObsBotActionIndex index) {
    return static_cast<ObsBot*>(obsBot)->actions[static_cast<std::size_t>(index)];
}

// Does not need the control table: a camera that names its controls differently moves too.
int drive(void* obsBot, std::uint32_t id, int speed, ObsBotActionIndex ended) {
    const UniqueFd camera = static_cast<ObsBot*>(obsBot)->openCamera();
    if (camera.valid()) {
        v4l2_control control{id, speed};
        xioctl(camera.get(), VIDIOC_S_CTRL, &control);
    }
    entryOf(obsBot, ended).busy = false;
    return 0;
}

}  // namespace

// Stopping an axis ends its first motion's entry, whichever of the two ran.

int controlHandle_tiltStop(void* obsBot) {
    return drive(obsBot, V4L2_CID_TILT_SPEED, 0, ACTION_TILT_UP);
}

int controlHandle_tiltUp(void* obsBot) {
    return drive(obsBot, V4L2_CID_TILT_SPEED, motionSpeed, ACTION_TILT_UP);
}

int controlHandle_tiltDown(void* obsBot) {
    return drive(obsBot, V4L2_CID_TILT_SPEED, -motionSpeed, ACTION_TILT_DOWN);
}

int controlHandle_panStop(void* obsBot) {
    return drive(obsBot, V4L2_CID_PAN_SPEED, 0, ACTION_PAN_LEFT);
}

int controlHandle_panLeft(void* obsBot) {
    return drive(obsBot, V4L2_CID_PAN_SPEED, -motionSpeed, ACTION_PAN_LEFT);
}

int controlHandle_panRight(void* obsBot) {
    return drive(obsBot, V4L2_CID_PAN_SPEED, motionSpeed, ACTION_PAN_RIGHT);
}

int controlHandle_ZoomStop(void* obsBot) {
    return drive(obsBot, V4L2_CID_ZOOM_CONTINUOUS, 0, ACTION_ZOOM_IN);
}

int controlHandle_ZoomIn(void* obsBot) {
    return drive(obsBot, V4L2_CID_ZOOM_CONTINUOUS, motionSpeed, ACTION_ZOOM_IN);
}

int controlHandle_ZoomDe(void* obsBot) {
    return drive(obsBot, V4L2_CID_ZOOM_CONTINUOUS, -motionSpeed, ACTION_ZOOM_DE);
}

bool ObsBot::findExtensionUnit(int* unit) {
    *unit = -1;
    const UniqueFd camera = openCamera();
    v4l2_capability capability{};
    if (camera.valid() && xioctl(camera.get(), VIDIOC_QUERYCAP, &capability) != -1) {
        logOut(capabilityText(capability));
    }
    for (int id = 0; id < unitIds; ++id) {
        if (running == 0) {  // a camera that is slow to refuse must not hold up the teardown
            return false;
        }
        unsigned char answer[commandBytes] = {};
        if (getControl_xu(id, probeSelector, commandBytes, answer) == 1) {
            *unit = id;
            break;
        }
    }
    return true;
}

int controlHandle_track(void* obsBot) {
    auto& bot = *static_cast<ObsBot*>(obsBot);
    int unit = -1;
    if (bot.findExtensionUnit(&unit)) {
        unsigned char state[commandBytes] = {};
        bot.getControl_xu(unit, trackSelector, commandBytes, state);
        state[0] = state[0] == 0 ? 1 : 0;
        bot.setControl_xu(unit, trackSelector, commandBytes, state);
    }
    entryOf(obsBot, ACTION_TRACK).busy = false;
    return 0;
}

int controlHandle_reset(void* obsBot) {
    auto& bot = *static_cast<ObsBot*>(obsBot);
    const UniqueFd camera = bot.openCamera();
    for (const UVC_PARAM_E param : {UVC_PAN_ABSOLUTE, UVC_TILT_ABSOLUTE, UVC_ZOOM_ABSOLUTE}) {
        UvcControlEntry& row = bot.controls[static_cast<std::size_t>(param)];
        row.value = row.default_value;
        if (camera.valid()) {
            v4l2_control control{row.id, row.value};
            xioctl(camera.get(), VIDIOC_S_CTRL, &control);
        }
    }
    entryOf(obsBot, ACTION_RESET).busy = false;
    return 0;
}

int controlHandle_dormant(void* obsBot) {
    auto& bot = *static_cast<ObsBot*>(obsBot);
    int unit = -1;
    if (bot.findExtensionUnit(&unit)) {
        unsigned char command[commandBytes] = {};
        // The supervisor reads the state: it changes before the camera falls silent.
        if (ObsBot::dormantStatus != 1) {
            ObsBot::dormantStatus = 1;
            std::copy(std::begin(sleepCommand), std::end(sleepCommand), command);
        } else {
            ObsBot::dormantStatus = 0;
            std::copy(std::begin(wakeCommand), std::end(wakeCommand), command);
        }
        bot.setControl_xu(unit, commandSelector, commandBytes, command);
    }
    entryOf(obsBot, ACTION_DORMANT).busy = false;
    return 0;
}
