"""Cameras: v4l2-ctl --list-formats-ext, -D and -L."""

import re

from . import ListingError
from .controls import class_control, complete_menu, read_control

_NODE = "# streaming interface"
_FORMAT = re.compile(r"^\s*\[\d+\]: '(.{4})' \((.*)\)\s*$")
_SIZE = re.compile(r"^\s*Size: Discrete (\d+)x(\d+)\s*$")
_INTERVAL = re.compile(r"^\s*Interval: Discrete ([\d.]+)s \(([\d.]+) fps\)\s*$")
_CONTROL = re.compile(r"^\s*(\w+) (0x[0-9a-f]{8}) \((\w+)\)\s*:(.*)$")
_MENU_ITEM = re.compile(r"^\s*(\d+): (.*?)\s*$")
_FIELD = re.compile(r"^\s+(Driver name|Card type|Bus info|Driver version)\s*: (.*?)\s*$")
_CLASS = re.compile(r"^(\w+ Controls)$")

DEFAULTS = {"card": "UVC Camera", "driver": "uvcvideo", "busInfo": "usb-0000:00:14.0-1",
            "version": "6.5.7"}
_KEYS = {"Driver name": "driver", "Card type": "card", "Bus info": "busInfo",
         "Driver version": "version"}


def _simplify(numerator, denominator, most_terms=8, threshold=333):
    """The short fraction that the kernel's driver gives for an interval: a continued fraction that
    ends at the first large term."""
    terms = []
    x, y = numerator, denominator
    while y and len(terms) < most_terms:
        term = x // y
        if term >= threshold:
            if len(terms) < 2:
                terms.append(term)
            break
        terms.append(term)
        x, y = y, x - term * y
    x, y = 0, 1
    for term in reversed(terms):
        x, y = y, term * y + x
    return y, x


def interval(seconds, rate):
    """From the listing's two roundings to the fraction that prints them."""
    def prints_the_same(fraction):
        return ("%.3f" % (fraction[0] / fraction[1]) == seconds
                and "%.3f" % (fraction[1] / fraction[0]) == rate)

    # Cameras say units of 100 ns, most of them cut off.
    units = 1e7 / float(rate)
    for unit in (int(units), int(units + 0.5), int(units) + 1):
        fraction = _simplify(unit, 10000000)
        if fraction[1] and prints_the_same(fraction):
            return list(fraction)
    raise ListingError("interval %s s and rate %s do not belong together" % (seconds, rate))


class _Reader:
    def __init__(self):
        self.fields, self.formats, self.controls = {}, [], []
        self.classes = []
        self.listed_menu = None

    def line(self, text, number):
        for pattern, use in ((_FORMAT, self._format), (_SIZE, self._size),
                             (_INTERVAL, self._interval), (_CONTROL, self._control),
                             (_FIELD, self._field)):
            match = pattern.match(text)
            if match:
                try:
                    use(match)
                except (ListingError, ValueError) as error:
                    raise ListingError("line %d: %s" % (number, error))
                return
        item = _MENU_ITEM.match(text)
        if item and self.listed_menu is not None:
            self.listed_menu[item[1]] = item[2]
        elif re.match(r"^\s*(Size|Interval):", text):
            raise ListingError("line %d: only discrete sizes and intervals can be read: %s"
                               % (number, text.strip()))

    def _format(self, match):
        compressed = match[2].endswith(", compressed")
        description = match[2][:-len(", compressed")] if compressed else match[2]
        self.formats.append({"fourcc": match[1], "description": description,
                             "compressed": compressed, "sizes": []})

    def _size(self, match):
        if not self.formats:
            raise ListingError("a size before the first format")
        self.formats[-1]["sizes"].append(
            {"width": int(match[1]), "height": int(match[2]), "intervals": []})

    def _interval(self, match):
        if not self.formats or not self.formats[-1]["sizes"]:
            raise ListingError("an interval before the first size")
        self.formats[-1]["sizes"][-1]["intervals"].append(interval(match[1], match[2]))

    def _control(self, match):
        control = read_control(match[1], match[2], match[3], match[4])
        owner = class_control(control["id"])
        if owner and owner["id"] not in self.classes:
            self.classes.append(owner["id"])
            self.controls.append(owner)
        self.controls.append(control)
        self.listed_menu = control.get("menu")

    def _field(self, match):
        self.fields.setdefault(_KEYS[match[1]], match[2])


def _node(text, wanted):
    """A listing can hold several nodes of one device, each under a note of its own."""
    if _NODE not in text:
        if wanted:
            raise ListingError("the listing has one node, number 0")
        return text
    head, *nodes = text.split(_NODE)
    if wanted >= len(nodes):
        raise ListingError("the listing has nodes 0 to %d" % (len(nodes) - 1))
    return head + nodes[wanted].split("\n", 1)[1]


def read_camera(texts, node, card):
    """`texts`: listings of one camera (formats, controls), read one after the other."""
    reader = _Reader()
    for text in texts:
        for number, line in enumerate(_node(text, node).splitlines(), 1):
            reader.line(line, number)
    if not reader.formats and not reader.controls:
        raise ListingError("no format and no control as v4l2-ctl prints them")
    missing = []
    for control in reader.controls:
        if complete_menu(control):
            missing.append("menu of " + control["name"])
    if not reader.formats:
        missing.append("formats")
        reader.formats.append({"fourcc": "YUYV", "description": "YUYV 4:2:2", "compressed": False,
                               "sizes": [{"width": 640, "height": 480, "intervals": [[1, 30]]}]})
    if not reader.controls:
        missing.append("controls")
    camera = {"name": "", "source": ""}
    for key, value in dict(DEFAULTS, card=card or DEFAULTS["card"]).items():
        if key not in reader.fields:
            missing.append(key)
        camera[key] = reader.fields.get(key, value)
    camera.update(formats=reader.formats, controls=reader.controls, recording="")
    several = ", %d listings" % len(texts) if len(texts) > 1 else ""
    camera["source"] = "v4l2-ctl" + several + ("; not listed: " + ", ".join(missing) if missing else "")
    return camera
