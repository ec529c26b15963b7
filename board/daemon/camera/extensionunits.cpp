#include "board/daemon/camera/extensionunits.h"

#include <linux/usb/video.h>

#include <algorithm>
#include <cerrno>

namespace board {

namespace {

constexpr std::uint8_t canGetAndSet = 0x03;

// How many bytes the driver wants for a query; 0 for one that it does not know.
std::size_t wantedBytes(std::uint8_t query, std::uint16_t length) {
    switch (query) {
        case UVC_GET_LEN:
            return 2;
        case UVC_GET_INFO:
            return 1;
        case UVC_SET_CUR:
        case UVC_GET_CUR:
        case UVC_GET_MIN:
        case UVC_GET_MAX:
        case UVC_GET_RES:
        case UVC_GET_DEF:
            return length;
        default:
            return 0;
    }
}

}  // namespace

ExtensionUnits::ExtensionUnits(const std::vector<ExtensionUnitDescription>& described) {
    for (const ExtensionUnitDescription& unit : described) {
        units_.push_back({unit.id, {}});
        for (const UnitControl& control : unit.controls)
            units_.back().controls.push_back(
                {control, std::vector<std::uint8_t>(control.bytes, 0)});
    }
}

ExtensionUnits::Control* ExtensionUnits::find(std::uint8_t unit, std::uint8_t selector) {
    for (Unit& known : units_)
        for (Control& control : known.controls)
            if (known.id == unit && control.described.selector == selector)
                return &control;
    return nullptr;
}

int ExtensionUnits::query(const uvc_xu_control_query& query, NestedBlock& data) {
    Control* control = find(query.unit, query.selector);
    if (control == nullptr)
        return -ENOENT;
    const std::uint16_t length = control->described.bytes;
    const std::size_t wanted = wantedBytes(query.query, length);
    if (wanted == 0)
        return -EINVAL;
    if (query.size != wanted)
        return -ENOBUFS;
    switch (query.query) {
        case UVC_SET_CUR:
            write(*control, data);
            return 0;
        case UVC_GET_LEN:
            data.replyWith(
                std::vector<std::uint8_t>{std::uint8_t(length & 0xff), std::uint8_t(length >> 8)});
            return 0;
        case UVC_GET_INFO:
            data.replyWith(std::vector<std::uint8_t>{canGetAndSet});
            return 0;
        case UVC_GET_CUR:
            data.replyWith(control->value);
            return 0;
        case UVC_GET_MAX:
            data.replyWith(std::vector<std::uint8_t>(length, 0xff));
            return 0;
        case UVC_GET_RES:
            data.replyWith(std::vector<std::uint8_t>(length, 1));
            return 0;
        default:  // minimum and default
            data.replyWith(std::vector<std::uint8_t>(length, 0));
            return 0;
    }
}

void ExtensionUnits::write(Control& control, const NestedBlock& data) {
    control.value = data.sentAs<std::uint8_t>();
    if (control.described.role != UnitRole::power)
        return;
    const auto is = [&](std::vector<std::uint8_t> command) {
        command.resize(control.value.size());
        return control.value == command;
    };
    if (is(control.described.sleep))
        asleep_ = true;
    else if (is(control.described.wake))
        asleep_ = false;
}

bool ExtensionUnits::tracking() const {
    for (const Unit& unit : units_)
        for (const Control& control : unit.controls)
            if (control.described.role == UnitRole::tracking && control.value[0] != 0)
                return true;
    return false;
}

}  // namespace board
