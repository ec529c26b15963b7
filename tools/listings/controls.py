"""Camera controls: from v4l2-ctl's variable names back to the driver's."""

import re

from . import ListingError

# Names that v4l2-ctl's spelling does not give back: commas, brackets, capitals.
_NAMES = {
    "auto_exposure": "Auto Exposure",
    "exposure_absolute": "Exposure (Absolute)",
    "exposure_auto": "Exposure, Auto",
    "exposure_auto_priority": "Exposure, Auto Priority",
    "exposure_dynamic_framerate": "Exposure, Dynamic Framerate",
    "exposure_time_absolute": "Exposure Time, Absolute",
    "focus_absolute": "Focus, Absolute",
    "focus_auto": "Focus, Auto",
    "focus_automatic_continuous": "Focus, Automatic Continuous",
    "focus_relative": "Focus, Relative",
    "hue_automatic": "Hue, Automatic",
    "hue_auto": "Hue, Auto",
    "iris_absolute": "Iris, Absolute",
    "iris_relative": "Iris, Relative",
    "led1_frequency": "LED1 Frequency",
    "led1_mode": "LED1 Mode",
    "pan_absolute": "Pan, Absolute",
    "pan_relative": "Pan, Relative",
    "pan_reset": "Pan, Reset",
    "pan_speed": "Pan, Speed",
    "tilt_absolute": "Tilt, Absolute",
    "tilt_relative": "Tilt, Relative",
    "tilt_reset": "Tilt, Reset",
    "tilt_speed": "Tilt, Speed",
    "white_balance_automatic": "White Balance, Automatic",
    "white_balance_temperature_auto": "White Balance Temperature, Auto",
    "zoom_absolute": "Zoom, Absolute",
    "zoom_continuous": "Zoom, Continuous",
    "zoom_relative": "Zoom, Relative",
}
_CLASSES = {0x00980000: "User Controls", 0x009a0000: "Camera Controls",
            0x009b0000: "Flash Controls", 0x009d0000: "JPEG Compression Controls"}
_MENUS = {
    0x00980918: {"0": "Disabled", "1": "50 Hz", "2": "60 Hz", "3": "Auto"},
    0x009a0901: {"0": "Auto Mode", "1": "Manual Mode", "2": "Shutter Priority Mode",
                 "3": "Aperture Priority Mode"},
}
_EXPOSURE = 0x009a0901
_TYPES = ("int", "bool", "menu", "intmenu", "button", "bitmask")
_VALUE = re.compile(r"(\w+)=(-?(?:0x)?[0-9a-fA-F]+|[\w,-]+)(?: \(([^)]*)\))?")


def variable(name):
    """As v4l2-ctl spells a driver's name."""
    return re.sub(r"[^a-z0-9]+", "_", name.lower()).strip("_")


def driver_name(listed):
    name = _NAMES.get(listed, listed.replace("_", " ").title())
    if variable(name) != listed:
        raise ListingError("no driver's name is known that v4l2-ctl would print as %s" % listed)
    return name


def class_control(identifier):
    number = int(identifier, 16) & 0xffff0000
    if number not in _CLASSES:
        return None
    return {"id": "0x%08x" % (number | 1), "name": _CLASSES[number], "type": "class",
            "flags": ["read-only", "write-only"]}


def read_control(name, identifier, kind, rest):
    if kind not in _TYPES:
        raise ListingError("control %s has type %s; %s can be read"
                           % (name, kind, ", ".join(_TYPES)))
    control = {"id": identifier, "name": driver_name(name), "type": kind}
    listed = {match[1]: match for match in _VALUE.finditer(rest)}
    if kind != "button":
        for key in ("min", "max", "step", "default", "value"):
            if key in listed:
                control[key] = int(listed[key][2], 0)
        if "default" not in control:
            raise ListingError("control %s lists no default" % name)
        if kind in ("menu", "intmenu"):
            control["menu"] = {}
            if "value" in listed and listed["value"][3]:
                control["listedText"] = listed["value"][3]
    flags = re.search(r"flags=(.*)$", rest)
    if flags:
        control["flags"] = [flag.strip() for flag in flags[1].split(",")]
    return control


def _usual_entries(control):
    number = int(control["id"], 16)
    entries = _MENUS.get(number, {})
    if number == _EXPOSURE:
        # Cameras offer manual exposure and one automatic mode.
        offered = {1, control["default"], control.get("value", control["default"])}
        entries = {key: text for key, text in entries.items() if int(key) in offered}
    return {key: text for key, text in entries.items()
            if control["min"] <= int(key) <= control["max"]}


def complete_menu(control):
    """Adds the driver's usual entries to a menu that the listing leaves out; tells whether it did."""
    text = control.pop("listedText", None)
    if control.get("menu") != {}:
        return False
    control["menu"] = _usual_entries(control)
    if text is not None:
        control["menu"].setdefault(str(control["value"]), text)
    if not control["menu"]:
        raise ListingError("control %s lists no menu" % control["name"])
    return True
