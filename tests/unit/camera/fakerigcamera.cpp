// The camera's side of the rig: its controls and its extension unit.
#include "tests/unit/camera/fakerig.h"

#include <linux/usb/video.h>
#include <linux/uvcvideo.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sstream>

namespace {

std::string controlName(std::uint32_t id) {
    switch (id) {
        case V4L2_CID_PAN_ABSOLUTE:
            return "pan_absolute";
        case V4L2_CID_TILT_ABSOLUTE:
            return "tilt_absolute";
        case V4L2_CID_ZOOM_ABSOLUTE:
            return "zoom_absolute";
        case V4L2_CID_FOCUS_AUTO:
            return "auto_focus";
        case V4L2_CID_PAN_SPEED:
            return "pan_speed";
        case V4L2_CID_TILT_SPEED:
            return "tilt_speed";
        case V4L2_CID_ZOOM_CONTINUOUS:
            return "zoom_continuous";
        default:
            return std::to_string(id);
    }
}

}  // namespace

std::vector<FakeControl> ptzControls() {
    return {
        {0x00980900, "Brightness", 0, 100, 1, 50, 51},
        {0x00980901, "Contrast", 0, 100, 1, 50, 52},
        {0x00980902, "Saturation", 0, 100, 1, 50, 53},
        {0x00980903, "Hue", -50, 50, 1, 0, 4},
        {0x0098090c, "White Balance Temperature, Auto", 0, 1, 1, 1, 1},
        {0x0098091a, "White Balance Temperature", 2800, 6500, 1, 4000, 5000},
        {0x0098091b, "Sharpness", 0, 4, 1, 2, 3},
        {0x009a0908, "Pan (Absolute)", -18000, 18000, 3600, 0, 7200},
        {0x009a0909, "Tilt (Absolute)", -324000, 324000, 7200, 3600, -7200},
        {0x009a090c, "Focus, Auto", 0, 1, 1, 1, 0},
        {0x009a090d, "Zoom, Absolute", 0, 100, 1, 0, 30},
        {0x009a090f, "Zoom, Continuous", -100, 100, 1, 0, 0},
        {0x009a0920, "Pan (Speed)", -160, 160, 1, 0, 0},
        {0x009a0921, "Tilt (Speed)", -120, 120, 1, 0, 0},
    };
}

unsigned FakeRig::unitReads(int unit, int selector) const {
    const std::lock_guard<std::mutex> guard(lock_);
    const auto found = unitReads_.find({unit, selector});
    return found == unitReads_.end() ? 0 : found->second;
}

int FakeRig::cameraIoctl(unsigned long request, void* argument) {
    switch (request) {
        case VIDIOC_QUERYCAP: {
            auto& value = *static_cast<v4l2_capability*>(argument);
            std::strcpy(reinterpret_cast<char*>(value.driver), "uvcvideo");
            std::memset(value.card, 'x', sizeof value.card);  // fills its field without a zero
            std::strcpy(reinterpret_cast<char*>(value.bus_info), "usb-1");
            value.version = 0x00060142;
            ++capabilityQueries_;
            return 0;
        }
        case VIDIOC_QUERY_EXT_CTRL:
            return queryControl(*static_cast<v4l2_query_ext_ctrl*>(argument));
        case VIDIOC_G_CTRL:
            return getControl(*static_cast<v4l2_control*>(argument));
        case VIDIOC_S_CTRL:
            return setControl(*static_cast<v4l2_control*>(argument));
        case UVCIOC_CTRL_QUERY:
            return queryUnit(argument);
        default:
            return -ENOTTY;
    }
}

int FakeRig::queryControl(v4l2_query_ext_ctrl& query) const {
    constexpr std::uint32_t next = V4L2_CTRL_FLAG_NEXT_CTRL | V4L2_CTRL_FLAG_NEXT_COMPOUND;
    if ((query.id & next) != next) {
        return -EINVAL;
    }
    const std::uint32_t after = stuckControls ? 0 : query.id & ~next;
    const auto found = std::find_if(controls.begin(), controls.end(),
                                    [&](const FakeControl& control) { return control.id > after; });
    if (found == controls.end() && !endlessControls) {
        return -EINVAL;
    }
    const FakeControl& control = found == controls.end() ? controls.back() : *found;
    query.id = found == controls.end() ? after + 1 : control.id;
    std::strncpy(query.name, control.name.c_str(), sizeof query.name);
    query.minimum = control.minimum;
    query.maximum = control.maximum;
    query.step = control.step;
    query.default_value = control.defaultValue;
    query.flags = control.flags;
    return 0;
}

int FakeRig::getControl(v4l2_control& control) {
    ++controlReads_;
    const auto found = std::find_if(controls.begin(), controls.end(),
                                    [&](const FakeControl& c) { return c.id == control.id; });
    if (found == controls.end() || refusedControls.count(control.id) != 0) {
        return -EINVAL;
    }
    control.value = found->value;
    return 0;
}

int FakeRig::setControl(const v4l2_control& control) {
    tell(controlName(control.id) + "=" + std::to_string(control.value));
    const auto found = std::find_if(controls.begin(), controls.end(),
                                    [&](const FakeControl& c) { return c.id == control.id; });
    if (found == controls.end() || refusedControls.count(control.id) != 0) {
        return -EINVAL;
    }
    const std::int64_t clamped =
        std::clamp<std::int64_t>(control.value, found->minimum, found->maximum);
    found->value = static_cast<std::int32_t>(clamped);
    return 0;
}

int FakeRig::queryUnit(void* argument) {
    const auto& query = *static_cast<uvc_xu_control_query*>(argument);
    if (query.query == UVC_GET_CUR) {
        ++unitReads_[{query.unit, query.selector}];
    }
    if (query.unit != extensionUnit) {
        return -ENOENT;
    }
    if (query.selector < 2 || query.selector > 4) {
        return -ENOENT;
    }
    if (query.size != 60) {
        return -ENOBUFS;
    }
    if (query.query == UVC_GET_CUR) {
        for (int i = 0; i < 60; ++i) {
            query.data[i] = static_cast<unsigned char>(i);
        }
        query.data[0] = tracking;
        return 0;
    }
    if (query.query != UVC_SET_CUR) {
        return -EINVAL;
    }
    std::ostringstream bytes;
    bytes << "xu " << int{query.unit} << '.' << int{query.selector} << '=';
    for (int i = 0; i < 60; ++i) {
        char text[4];
        std::snprintf(text, sizeof text, "%02X ", query.data[i]);
        bytes << text;
    }
    tell(bytes.str());
    if (refusesCommands) {
        return -EPIPE;
    }
    if (query.selector == 3) {
        tracking = query.data[0];
    }
    return 0;
}
