// The camera's controls and its extension units.
#include "control/camera/obsbot.h"
#include "control/task/drivertext.h"
#include "control/task/logline.h"
#include "control/task/xioctl.h"

#include <fcntl.h>
#include <linux/usb/video.h>
#include <linux/uvcvideo.h>
#include <linux/videodev2.h>

#include <cstring>

namespace {

struct ControlName {
    std::uint32_t id;
    const char* name;
};

// In the order of UVC_PARAM_E. Newer drivers call some of them differently; those rows stay
// invalid.
constexpr ControlName controlNames[] = {
    {V4L2_CID_PAN_ABSOLUTE, "Pan (Absolute)"},
    {V4L2_CID_TILT_ABSOLUTE, "Tilt (Absolute)"},
    {V4L2_CID_ZOOM_ABSOLUTE, "Zoom, Absolute"},
    {V4L2_CID_FOCUS_AUTO, "Focus, Auto"},
    {V4L2_CID_PAN_SPEED, "Pan (Speed)"},
    {V4L2_CID_TILT_SPEED, "Tilt (Speed)"},
    {V4L2_CID_BRIGHTNESS, "Brightness"},
    {V4L2_CID_CONTRAST, "Contrast"},
    {V4L2_CID_SATURATION, "Saturation"},
    {V4L2_CID_HUE, "Hue"},
    {V4L2_CID_SHARPNESS, "Sharpness"},
    {V4L2_CID_AUTO_WHITE_BALANCE, "White Balance Temperature, Auto"},
    {V4L2_CID_WHITE_BALANCE_TEMPERATURE, "White Balance Temperature"},
};

// No camera comes near; a driver that never says "no more" must not hold the start for ever.
constexpr int maxControls = 1024;
constexpr std::uint32_t nextControl = V4L2_CTRL_FLAG_NEXT_CTRL | V4L2_CTRL_FLAG_NEXT_COMPOUND;

constexpr int travelSteps = 180;  // of pan, tilt and zoom, whatever the driver reports

std::int64_t span(const UvcControlEntry& row) {
    return std::int64_t{row.max} - row.min;
}

void printTravel(const char* axis, const UvcControlEntry& row) {
    logOut(axis, "_step:", row.step, ',', axis, "_min:", row.min, ',', axis, "_max:", row.max, ',',
           axis, "_value:", row.value);
}

int queryExtensionUnit(int camera, std::uint8_t query, int unit, int selector, int size,
                       unsigned char* data) {
    uvc_xu_control_query request{};
    request.unit = static_cast<__u8>(unit);
    request.selector = static_cast<__u8>(selector);
    request.query = query;
    request.size = static_cast<__u16>(size);
    request.data = data;
    return xioctl(camera, UVCIOC_CTRL_QUERY, &request);
}

}  // namespace

UniqueFd ObsBot::openCamera() const {
    return UniqueFd(open(videoDevicePath.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
}

int ObsBot::initBrivUvcControl() {
    currentView = 1;
    controls = {};
    for (std::size_t i = 0; i < controls.size(); ++i) {
        controls[i].id = controlNames[i].id;
        std::strcpy(controls[i].name, controlNames[i].name);
    }
    return 1;
}

int ObsBot::queryControls() {
    for (UvcControlEntry& row : controls) {
        row.valid = false;
        row.min = row.max = row.default_value = row.step = row.value = 0;
    }
    const UniqueFd camera = openCamera();
    if (!camera.valid()) {
        logOut("open error");
        return -1;
    }
    enumerateControls(camera.get());
    for (const UVC_PARAM_E param : {UVC_PAN_ABSOLUTE, UVC_TILT_ABSOLUTE, UVC_ZOOM_ABSOLUTE}) {
        UvcControlEntry& row = controls[param];
        if (span(row) >= travelSteps) {
            row.step = static_cast<std::int32_t>(span(row) / travelSteps);
        }
    }
    for (UvcControlEntry& row : controls) {
        v4l2_control control{row.id, 0};
        if (xioctl(camera.get(), VIDIOC_G_CTRL, &control) != -1) {
            row.value = control.value;
        }
    }
    printTravel("pan", controls[UVC_PAN_ABSOLUTE]);
    printTravel("tilt", controls[UVC_TILT_ABSOLUTE]);
    printTravel("zoom", controls[UVC_ZOOM_ABSOLUTE]);
    return 0;
}

void ObsBot::enumerateControls(int camera) {
    std::uint32_t last = 0;
    for (int count = 0; count < maxControls; ++count) {
        v4l2_query_ext_ctrl control{};
        control.id = last | nextControl;
        if (xioctl(camera, VIDIOC_QUERY_EXT_CTRL, &control) == -1 || control.id <= last) {
            return;
        }
        last = control.id;
        if ((control.flags & V4L2_CTRL_FLAG_DISABLED) != 0) {
            continue;
        }
        const std::string name = fieldText(control.name);
        logOut("name:", name, ", max:", control.maximum, ", min:", control.minimum,
               ", step:", static_cast<std::int64_t>(control.step));
        takeRange(name.c_str(), control);
    }
}

void ObsBot::takeRange(const char* name, const v4l2_query_ext_ctrl& control) {
    for (UvcControlEntry& row : controls) {
        if (std::strcmp(row.name, name) != 0) {
            continue;
        }
        row.max = static_cast<std::int32_t>(control.maximum);
        row.min = static_cast<std::int32_t>(control.minimum);
        row.default_value = static_cast<std::int32_t>(control.default_value);
        row.step = static_cast<std::int32_t>(control.step);
        row.valid = row.max != row.min;  // of what is left of the numbers: they are divided by
        return;
    }
}

// The row of a control that can be used, else null and one line.
UvcControlEntry* ObsBot::usableRow(UVC_PARAM_E param) {
    const auto index = static_cast<std::size_t>(static_cast<int>(param));
    if (param < 0 || index >= controls.size()) {
        logOut("wrong param_no");
        return nullptr;
    }
    if (!controls[index].valid) {
        writeOut("can not get or set");
        return nullptr;
    }
    return &controls[index];
}

int ObsBot::getControl(UVC_PARAM_E param, int* value, char percent) {
    UvcControlEntry* row = usableRow(param);
    if (row == nullptr) {
        return 0;
    }
    const UniqueFd camera = openCamera();
    if (!camera.valid()) {
        logOut("open error");
        return 0;
    }
    v4l2_control control{row->id, 0};
    if (xioctl(camera.get(), VIDIOC_G_CTRL, &control) != -1) {
        row->value = control.value;
    }
    if (value != nullptr) {
        const std::int64_t above = std::int64_t{row->value} - row->min;
        *value = percent != 0 ? static_cast<int>(above * 100 / span(*row)) : row->value;
    }
    return 1;
}

int ObsBot::setControl(UVC_PARAM_E param, int value, char percent) {
    UvcControlEntry* row = usableRow(param);
    if (row == nullptr) {
        return 0;
    }
    const UniqueFd camera = openCamera();
    if (!camera.valid()) {
        logOut("open error");
        return 0;
    }
    v4l2_control control{row->id, value};
    if (percent != 0) {
        control.value = static_cast<std::int32_t>(row->min + span(*row) * value / 100);
    }
    const std::int32_t sent = control.value;
    if (xioctl(camera.get(), VIDIOC_S_CTRL, &control) != -1) {
        row->value = sent;  // not what the driver made of it
        logOut("set success");
    }
    return 1;
}

int ObsBot::getControl_xu(int unit, int selector, int size, unsigned char* data) {
    const UniqueFd camera = openCamera();
    if (!camera.valid()) {
        logOut("open error");
        return 0;
    }
    return queryExtensionUnit(camera.get(), UVC_GET_CUR, unit, selector, size, data) != -1 ? 1 : 0;
}

int ObsBot::setControl_xu(int unit, int selector, int size, unsigned char* data) {
    const UniqueFd camera = openCamera();
    if (!camera.valid()) {
        logOut("open error");
        return 0;
    }
    if (queryExtensionUnit(camera.get(), UVC_SET_CUR, unit, selector, size, data) == -1) {
        logOut("setControl ", selector, " failed");
        return 0;
    }
    return 1;
}
