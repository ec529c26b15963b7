#include "board/daemon/camera/cameracontrols.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace board {

namespace {

// Which automatic mode rules which control, and the mode's value that leaves it to the user.
struct Ruled {
    std::uint32_t slave, master;
    std::int64_t manual;
};
constexpr Ruled ruled[] = {
    {V4L2_CID_EXPOSURE_ABSOLUTE, V4L2_CID_EXPOSURE_AUTO, V4L2_EXPOSURE_MANUAL},
    {V4L2_CID_WHITE_BALANCE_TEMPERATURE, V4L2_CID_AUTO_WHITE_BALANCE, 0},
    {V4L2_CID_BLUE_BALANCE, V4L2_CID_AUTO_WHITE_BALANCE, 0},
    {V4L2_CID_RED_BALANCE, V4L2_CID_AUTO_WHITE_BALANCE, 0},
    {V4L2_CID_FOCUS_ABSOLUTE, V4L2_CID_FOCUS_AUTO, 0},
    {V4L2_CID_HUE, V4L2_CID_HUE_AUTO, 0},
};

const char* className(std::uint32_t controlClass) {
    switch (controlClass) {
        case V4L2_CTRL_CLASS_USER:
            return "User Controls";
        case V4L2_CTRL_CLASS_CAMERA:
            return "Camera Controls";
        case V4L2_CTRL_CLASS_CODEC:
            return "Codec Controls";
        case V4L2_CTRL_CLASS_JPEG:
            return "JPEG Compression Controls";
        case V4L2_CTRL_CLASS_IMAGE_SOURCE:
            return "Image Source Controls";
        case V4L2_CTRL_CLASS_IMAGE_PROC:
            return "Image Processing Controls";
        default:
            return "Other Controls";
    }
}

std::uint32_t kernelType(ControlType type) {
    switch (type) {
        case ControlType::integer:
            return V4L2_CTRL_TYPE_INTEGER;
        case ControlType::boolean:
            return V4L2_CTRL_TYPE_BOOLEAN;
        case ControlType::menu:
            return V4L2_CTRL_TYPE_MENU;
        case ControlType::integerMenu:
            return V4L2_CTRL_TYPE_INTEGER_MENU;
        case ControlType::button:
            return V4L2_CTRL_TYPE_BUTTON;
        case ControlType::bitmask:
            return V4L2_CTRL_TYPE_BITMASK;
        case ControlType::controlClass:
            break;
    }
    return V4L2_CTRL_TYPE_CTRL_CLASS;
}

// Limits as the driver reports them for types that have fixed ones.
void fixLimits(CameraControl& control) {
    switch (control.type) {
        case ControlType::boolean:
            control.minimum = 0;
            control.maximum = 1;
            control.step = 1;
            break;
        case ControlType::menu:
        case ControlType::integerMenu:
            control.step = 1;
            break;
        case ControlType::button:
        case ControlType::controlClass:
            control.minimum = control.maximum = control.step = control.defaultValue =
                control.value = 0;
            break;
        case ControlType::bitmask:
            control.minimum = control.step = 0;
            break;
        case ControlType::integer:
            break;
    }
}

// The field may lie in a packed structure: no reference to it can be taken.
void copyName(void* field, std::size_t size, const std::string& name) {
    std::memset(field, 0, size);
    std::memcpy(field, name.data(), std::min(name.size(), size - 1));
}

}  // namespace

CameraControls::CameraControls(const std::vector<CameraControl>& described) {
    for (const CameraControl& control : described) {
        Item item;
        item.control = control;
        fixLimits(item.control);
        items_.emplace(control.id & V4L2_CTRL_ID_MASK, item);
    }
    for (const Ruled& rule : ruled) {
        const auto slave = items_.find(rule.slave);
        if (slave == items_.end() || items_.count(rule.master) == 0)
            continue;
        slave->second.master = rule.master;
        slave->second.masterManual = rule.manual;
    }
    addClasses();
}

void CameraControls::addClasses() {
    std::map<std::uint32_t, Item> classes;
    for (const auto& [id, item] : items_) {
        const std::uint32_t controlClass = V4L2_CTRL_ID2WHICH(id);
        Item heading;
        heading.control.id = controlClass | 1;
        heading.control.name = className(controlClass);
        heading.control.type = ControlType::controlClass;
        heading.control.flags = V4L2_CTRL_FLAG_READ_ONLY | V4L2_CTRL_FLAG_WRITE_ONLY;
        fixLimits(heading.control);
        classes.emplace(heading.control.id, heading);
    }
    items_.insert(classes.begin(), classes.end());
}

bool CameraControls::isClass(std::uint32_t id) const {
    const auto found = items_.find(id);
    return found != items_.end() && found->second.control.type == ControlType::controlClass;
}

void CameraControls::store(std::uint32_t id, std::int64_t value) {
    const auto found = items_.find(id);
    if (found != items_.end())
        found->second.control.value = value;
}

std::uint32_t CameraControls::flags(const Item& item) const {
    if (item.master == 0)
        return item.control.flags;
    const bool manual = items_.at(item.master).control.value == item.masterManual;
    return (item.control.flags & ~std::uint32_t(V4L2_CTRL_FLAG_INACTIVE)) |
           (manual ? 0u : std::uint32_t(V4L2_CTRL_FLAG_INACTIVE));
}

int CameraControls::query(v4l2_query_ext_ctrl& query) const {
    const std::uint32_t id = query.id & V4L2_CTRL_ID_MASK;
    auto found = items_.end();
    if (query.id & V4L2_CTRL_FLAG_NEXT_CTRL)
        found = items_.upper_bound(id);
    else if (!(query.id & V4L2_CTRL_FLAG_NEXT_COMPOUND))  // there are no compound controls
        found = items_.find(id);
    if (found == items_.end())
        return -EINVAL;
    const CameraControl& control = found->second.control;
    query = {};
    query.id = found->first;
    query.type = kernelType(control.type);
    copyName(query.name, sizeof query.name, control.name);
    query.minimum = control.minimum;
    query.maximum = control.maximum;
    query.step = std::uint64_t(control.step);
    query.default_value = control.defaultValue;
    query.flags = flags(found->second);
    query.elem_size = 4;
    query.elems = 1;
    return 0;
}

int CameraControls::query(v4l2_queryctrl& query) const {
    v4l2_query_ext_ctrl wide{};
    wide.id = query.id;
    if (const int error = this->query(wide))
        return error;
    query = {};
    query.id = wide.id;
    query.type = wide.type;
    copyName(query.name, sizeof query.name, wide.name);
    query.minimum = std::int32_t(wide.minimum);
    query.maximum = std::int32_t(wide.maximum);
    query.step = std::int32_t(wide.step);
    query.default_value = std::int32_t(wide.default_value);
    query.flags = wide.flags;
    return 0;
}

int CameraControls::menu(v4l2_querymenu& entry) const {
    const auto found = items_.find(entry.id);
    if (found == items_.end() || (found->second.control.type != ControlType::menu &&
                                  found->second.control.type != ControlType::integerMenu))
        return -EINVAL;
    const CameraControl& control = found->second.control;
    const auto line = control.menu.find(entry.index);
    if (line == control.menu.end())
        return -EINVAL;
    entry.reserved = 0;
    copyName(entry.name, sizeof entry.name, "");
    if (control.type == ControlType::integerMenu)
        entry.value = std::strtoll(line->second.c_str(), nullptr, 10);
    else
        copyName(entry.name, sizeof entry.name, line->second);
    return 0;
}

int CameraControls::get(v4l2_control& control) const {
    v4l2_ext_controls header{};
    std::vector<v4l2_ext_control> items(1);
    items[0].id = control.id;
    std::uint32_t failed = 0;
    if (const int error = checkAccess(VIDIOC_G_EXT_CTRLS, items, items[0]))
        return error;
    if (const int error = read(header, items, &failed))
        return error;
    control.value = items[0].value;
    return 0;
}

int CameraControls::set(v4l2_control& control, std::vector<ControlChange>& changed) {
    v4l2_ext_controls header{};
    std::vector<v4l2_ext_control> items(1);
    header.count = 1;
    items[0].id = control.id;
    items[0].value = control.value;
    const int result = extended(VIDIOC_S_EXT_CTRLS, header, items, changed);
    control.value = items[0].value;
    return result;
}

int CameraControls::checkAccess(std::uint32_t request, const std::vector<v4l2_ext_control>& items,
                                const v4l2_ext_control& wanted) const {
    const auto found = items_.find(wanted.id);
    if (found == items_.end())
        return -EINVAL;
    const Item& item = found->second;
    const bool reading = request == VIDIOC_G_EXT_CTRLS;
    const std::uint32_t forbidden = reading ? V4L2_CTRL_FLAG_WRITE_ONLY : V4L2_CTRL_FLAG_READ_ONLY;
    if (item.control.type == ControlType::controlClass || (item.control.flags & forbidden))
        return -EACCES;
    if (request != VIDIOC_S_EXT_CTRLS || item.master == 0)
        return 0;
    // A call that sets the mode and the control together is judged by the mode it sets.
    std::int64_t mode = items_.at(item.master).control.value;
    for (const v4l2_ext_control& other : items) {
        if (other.id == item.master)
            mode = other.value;
    }
    return mode == item.masterManual ? 0 : -EACCES;
}

int CameraControls::read(const v4l2_ext_controls& header, std::vector<v4l2_ext_control>& items,
                         std::uint32_t* failed) const {
    for (std::size_t i = 0; i < items.size(); ++i) {
        const auto found = items_.find(items[i].id);
        *failed = std::uint32_t(i);
        if (found == items_.end())
            return -EINVAL;
        const CameraControl& control = found->second.control;
        items[i].value = std::int32_t(header.which == V4L2_CTRL_WHICH_DEF_VAL ? control.defaultValue
                                                                              : control.value);
    }
    return 0;
}

int CameraControls::adjust(const Item& item, std::int32_t& value) const {
    const CameraControl& control = item.control;
    std::int64_t wanted = value;
    switch (control.type) {
        case ControlType::integer: {
            // Some cameras claim a step of 0.
            const std::int64_t step = std::max<std::int64_t>(control.step, 1);
            const std::int64_t highest = std::max(control.minimum, control.maximum);
            wanted = std::clamp(wanted, control.minimum, highest);
            const std::int64_t steps = (wanted - control.minimum + step / 2) / step;
            wanted = std::min(control.minimum + steps * step, highest);
            break;
        }
        case ControlType::boolean:
            wanted = std::clamp<std::int64_t>(wanted, 0, 1);
            break;
        case ControlType::bitmask:
            wanted &= control.maximum;
            break;
        case ControlType::menu:
        case ControlType::integerMenu:
            if (wanted < control.minimum || wanted > control.maximum)
                return -ERANGE;
            if (control.menu.count(wanted) == 0)
                return -EINVAL;
            break;
        case ControlType::button:
            wanted = 0;
            break;
        case ControlType::controlClass:
            return -EACCES;
    }
    value = std::int32_t(wanted);
    return 0;
}

int CameraControls::extended(std::uint32_t request, v4l2_ext_controls& header,
                             std::vector<v4l2_ext_control>& items,
                             std::vector<ControlChange>& changed) {
    const bool reading = request == VIDIOC_G_EXT_CTRLS, trying = request == VIDIOC_TRY_EXT_CTRLS;
    const std::uint32_t count = std::uint32_t(items.size());
    header.reserved[0] = 0;
    header.error_idx = count;
    for (auto& item : items)
        item.reserved2[0] = 0;

    if (header.which == V4L2_CTRL_WHICH_REQUEST_VAL)
        return -EINVAL;
    if (header.which == V4L2_CTRL_WHICH_DEF_VAL) {
        if (!reading)  // defaults cannot be changed
            return -EINVAL;
    } else if (header.which != V4L2_CTRL_WHICH_CUR_VAL) {
        for (std::uint32_t i = 0; i < count; ++i) {
            if (V4L2_CTRL_ID2WHICH(items[i].id) == header.which)
                continue;
            header.error_idx = trying ? i : count;
            return -EINVAL;
        }
    }
    for (std::uint32_t i = 0; i < count; ++i) {
        if (const int error = checkAccess(request, items, items[i])) {
            header.error_idx = trying ? i : count;
            return error;
        }
    }
    if (reading) {
        std::uint32_t failed = 0;
        const int error = read(header, items, &failed);
        header.error_idx = error == 0 ? 0 : failed;
        return error;
    }
    Values values;
    for (std::uint32_t i = 0; i < count; ++i) {
        std::int32_t value = items[i].value;
        if (const int error = adjust(items_.at(items[i].id), value)) {
            header.error_idx = trying ? i : count;
            return error;
        }
        items[i].value = value;
        values[items[i].id] = value;
    }
    header.error_idx = 0;
    if (!trying)
        commit(values, changed);
    return 0;
}

void CameraControls::commit(const Values& values, std::vector<ControlChange>& changed) {
    for (const auto& [id, value] : values) {
        Item& item = items_.at(id);
        item.control.value = value;
        const bool withMaster = item.master != 0 && values.count(item.master) != 0;
        changed.push_back({id, std::uint32_t(V4L2_EVENT_CTRL_CH_VALUE) |
                                   (withMaster ? std::uint32_t(V4L2_EVENT_CTRL_CH_FLAGS) : 0u)});
        for (const auto& [slaveId, slave] : items_) {
            if (slave.master == id && values.count(slaveId) == 0)
                changed.push_back({slaveId, V4L2_EVENT_CTRL_CH_VALUE | V4L2_EVENT_CTRL_CH_FLAGS});
        }
    }
}

v4l2_event_ctrl CameraControls::event(const ControlChange& change) const {
    const Item& item = items_.at(change.id);
    const CameraControl& control = item.control;
    v4l2_event_ctrl event{};
    event.changes = change.changes;
    event.type = kernelType(control.type);
    event.value64 = 0;
    event.value = std::int32_t(control.value);
    event.flags = flags(item);
    event.minimum = std::int32_t(control.minimum);
    event.maximum = std::int32_t(control.maximum);
    event.step = std::int32_t(control.step);
    event.default_value = std::int32_t(control.defaultValue);
    return event;
}

}  // namespace board
