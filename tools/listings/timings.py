"""Timings of display modes: the standard ones, and reduced blanking for the rest."""

import math
import os
import re

_FOLDER = os.path.join(os.path.dirname(__file__), "..", "..", "board", "edid")
_ROW = re.compile(r'^\{(\d+), (\d+), ([\d, ]+), "([+-]{2})(i?)(d?)"\},$')


def refresh(mode):
    """In Hz, exact; of an interlaced mode the rate of fields."""
    rate = mode["clock"] * 1000 / (mode["htotal"] * mode["vtotal"])
    return rate * 2 if "interlace" in mode["flags"] else rate


def finish(mode):
    """Adds the name and the rounded refresh rate as a kernel gives them."""
    interlaced = "interlace" in mode["flags"]
    mode["name"] = "%dx%d%s" % (mode["hdisplay"], mode["vdisplay"], "i" if interlaced else "")
    mode["vrefresh"] = int(math.floor(refresh(mode) + 0.5))
    return mode


def make(clock, horizontal, vertical, flags):
    mode = {"clock": clock}
    mode.update(zip(("hdisplay", "hsyncStart", "hsyncEnd", "htotal"), horizontal))
    mode.update(zip(("vdisplay", "vsyncStart", "vsyncEnd", "vtotal"), vertical))
    mode["flags"] = flags
    return finish(mode)


def _table(name):
    rows = []
    with open(os.path.join(_FOLDER, name), encoding="ascii") as file:
        for line in file:
            match = _ROW.match(line)
            if not match:
                continue
            numbers = [int(number) for number in match[3].split(",")]
            flags = ["phsync" if match[4][0] == "+" else "nhsync",
                     "pvsync" if match[4][1] == "+" else "nvsync"]
            flags += ["interlace"] if match[5] else []
            flags += ["doubleclock"] if match[6] else []
            rows.append(make(int(match[2]), numbers[:4], numbers[4:], flags))
    return rows


def _other_clock(mode):
    """The clock of the same format in the other family: 60 Hz and 59.94 Hz."""
    if mode["vrefresh"] % 6:
        return mode["clock"]
    if mode["vdisplay"] in (240, 480):
        return (mode["clock"] * 1001 + 500) // 1000
    return (mode["clock"] * 1000 + 500) // 1001


def _standard():
    modes = []
    for mode in _table("vic.inc"):
        modes.append(mode)
        other = _other_clock(mode)
        if other != mode["clock"]:
            modes.append(finish(dict(mode, clock=other)))
    return modes + _table("established.inc") + _table("dmt.inc")


STANDARD = _standard()


def reduced_blanking(width, height, rate):
    """VESA reduced blanking, with the clock that gives the rate."""
    lines_by_shape = ((4, 3, 4), (16, 9, 5), (16, 10, 6), (5, 4, 7), (15, 9, 7))
    sync = next((lines for x, y, lines in lines_by_shape if width * y == height * x), 10)
    line_us = (1e6 / rate - 460) / height
    blanking = max(int(460 / line_us) + 1, 3 + sync + 6)
    vtotal = height + blanking
    exact = rate * (width + 160) * vtotal / 1000
    # The formula's clocks come in steps of 250 kHz; listings round the rate to two decimals.
    step = round(exact / 250) * 250
    clock = step if abs(step / exact - 1) * rate < 0.005 else round(exact)
    return make(clock, (width, width + 48, width + 80, width + 160),
                (height, height + 3, height + 3 + sync, vtotal), ["phsync", "nvsync"])


def find(width, height, interlaced, rate, taken):
    """The timing of a mode known by size and rate with two decimals. `taken` are the modes of this
    display so far: a second mode of the same size and rate is another timing where there is one.
    The flag tells whether it is a standard one."""
    fitting = [mode for mode in STANDARD
               if (mode["hdisplay"], mode["vdisplay"]) == (width, height)
               and ("interlace" in mode["flags"]) == interlaced
               and abs(refresh(mode) - rate) < 0.0055]
    key = lambda mode: [mode[name] for name in ("clock", "htotal", "hsyncStart", "vtotal")]
    used = [key(mode) for mode in taken]
    for mode in fitting:
        if key(mode) not in used:
            return dict(mode), True
    if fitting:
        return dict(fitting[0]), True
    if interlaced:
        mode = reduced_blanking(width, height, rate / 2)
        return finish(dict(mode, vtotal=mode["vtotal"] | 1,
                           flags=mode["flags"] + ["interlace"])), False
    return reduced_blanking(width, height, rate), False
