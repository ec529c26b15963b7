"""Displays: modetest -c, xrandr, edid-decode and raw EDID."""

import re

from . import ListingError, timings

_CONNECTOR = re.compile(r"^(\S+) connected(?: primary)?(?: \d+x\d+\+\d+\+\d+)?.*?"
                        r"(?:(\d+)mm x (\d+)mm)?\s*$")
_XRANDR_MODE = re.compile(r"^   (\d+)x(\d+)(i?)((?:\s+[\d.]+[*+ ]*)+)$")
_MODETEST_CONNECTOR = re.compile(r"^(\d+)\s+\d+\s+(\S+)\s+(\S+-\d+)\s+(\d+)x(\d+)\s+\d+\s*\d*\s*$")
_MODETEST_MODE = re.compile(r"^  (?:#\d+ )?(\S+) ([\d.]+)((?: \d+){8,9}) ?(\d+)? "
                            r"flags: ([^;]*); type: ?(.*)$")
_HEX_LINE = re.compile(r"^\s*((?:[0-9a-fA-F]{2} ?){16})\s*$")
HEADER = bytes.fromhex("00ffffffffffff00")

FLAGS = {"phsync": "phsync", "nhsync": "nhsync", "pvsync": "pvsync", "nvsync": "nvsync",
         "interlace": "interlace", "dblscan": "doublescan", "csync": "csync",
         "dblclk": "doubleclock"}
TYPES = {"preferred": "preferred", "driver": "driver", "userdef": "user"}


def _display(width_mm, height_mm, modes, edid, source):
    lines = [edid[i:i + 16].hex() for i in range(0, len(edid), 16)]
    return {"name": "", "source": source, "connector": "HDMI-A-1", "widthMm": width_mm,
            "heightMm": height_mm, "possibleCrtcs": 1, "modes": modes, "edid": lines}


def _mode_entry(mode, types):
    entry = {"name": mode["name"], "clock": mode["clock"]}
    for key in ("hdisplay", "hsyncStart", "hsyncEnd", "htotal", "hskew", "vdisplay", "vsyncStart",
                "vsyncEnd", "vtotal", "vscan", "vrefresh"):
        entry[key] = mode.get(key, 0)
    entry["flags"] = mode["flags"]
    entry["type"] = types
    return entry


def read_edid(data, source):
    """Raw EDID: what it lists is worked out when the display is loaded."""
    if len(data) < 128 or len(data) % 128 or data[:8] != HEADER:
        raise ListingError("no EDID: %d bytes, blocks of 128 that begin with %s are needed"
                           % (len(data), HEADER.hex()))
    return _display(data[21] * 10, data[22] * 10, [], data, source)


def _hex_block(lines, start):
    data = b""
    for line in lines[start:]:
        match = _HEX_LINE.match(line)
        if match:
            data += bytes.fromhex(match[1])
        elif data and line.strip():
            break
    return data


def read_edid_decode(text):
    lines = text.splitlines()
    # A second dump of the same display, with another heading, can stand before it.
    for heading in ("edid-decode (hex):", "EDID (hex):"):
        if heading in (line.strip() for line in lines):
            start = [line.strip() for line in lines].index(heading) + 1
            return read_edid(_hex_block(lines, start), "edid-decode")
    raise ListingError('no line "edid-decode (hex):" with a dump after it')


def _modetest_mode(line, number):
    match = _MODETEST_MODE.match(line)
    if not match:
        raise ListingError("line %d: no mode as modetest prints it: %s" % (number, line.strip()))
    values = [int(value) for value in match[3].split()]
    if match[4] is not None:
        values.append(int(match[4]))
    if len(values) not in (8, 9):
        raise ListingError("line %d: a mode has eight figures and a clock" % number)
    flags = [flag.strip() for flag in match[5].split(",") if flag.strip()]
    types = [kind.strip() for kind in match[6].split(",") if kind.strip()]
    unknown = [flag for flag in flags if flag not in FLAGS] + [t for t in types if t not in TYPES]
    if unknown:
        raise ListingError("line %d: unknown flag or type %s" % (number, ", ".join(unknown)))
    clock = values[8] if len(values) == 9 else 0
    mode = timings.make(clock or _clock(values, float(match[2]), flags), values[:4], values[4:8],
                        [FLAGS[flag] for flag in flags])
    mode["name"] = match[1]
    return _mode_entry(mode, [TYPES[kind] for kind in types])


def _clock(values, rate, flags):
    lines = values[7] / 2 if "interlace" in flags else values[7]
    return round(rate * values[3] * lines / 1000)


def read_modetest(text, wanted):
    lines = text.splitlines()
    modes, edid, found, size = [], b"", None, (0, 0)
    for number, line in enumerate(lines, 1):
        connector = _MODETEST_CONNECTOR.match(line)
        if connector:
            if found:
                break
            if connector[2] == "connected" and wanted in (None, connector[3]):
                found, size = connector[3], (int(connector[4]), int(connector[5]))
        elif found and re.match(r"^  #?\d+.*flags:", line):
            modes.append(_modetest_mode(line, number))
        elif found and re.match(r"^\s+\d+ EDID:", line):
            edid = _hex_block(lines, number)
    if not found:
        raise ListingError("no connected connector%s" % (" " + wanted if wanted else ""))
    if not modes:
        raise ListingError("connector %s lists no mode" % found)
    missing = [] if any("phsync" in m["flags"] or "nhsync" in m["flags"] for m in modes) else \
        ["sync polarities"]
    return _display(size[0], size[1], modes, edid, _source("modetest -c", found, missing))


def _source(tool, connector, missing):
    text = "%s, connector %s" % (tool, connector)
    return text + ("; not listed: " + ", ".join(missing) if missing else "")


def _xrandr_modes(line, match, number, modes, computed):
    for token in re.finditer(r"([\d.]+)([*+ ]*)", match[4]):
        try:
            rate = float(token[1])
        except ValueError:
            raise ListingError("line %d: %s is no rate: %s" % (number, token[1], line.strip()))
        mode, standard = timings.find(int(match[1]), int(match[2]), bool(match[3]), rate, modes)
        if not standard:
            computed.append("%s@%.2f" % (mode["name"], rate))
        types = ["preferred", "driver"] if "+" in token[2] else ["driver"]
        modes.append(_mode_entry(mode, types))


def read_xrandr(text, wanted):
    found, size, modes, computed = None, (0, 0), [], []
    for number, line in enumerate(text.splitlines(), 1):
        if line and not line.startswith(" "):
            connector = _CONNECTOR.match(line)
            if found:
                break
            if connector and wanted in (None, connector[1]):
                found = connector[1]
                size = (int(connector[2] or 0), int(connector[3] or 0))
            continue
        if not found or not line.strip():
            continue
        match = _XRANDR_MODE.match(line.rstrip())
        if not match:
            raise ListingError("line %d: no mode as xrandr prints it: %s" % (number, line.strip()))
        _xrandr_modes(line, match, number, modes, computed)
    if not found:
        raise ListingError("no connected output%s" % (" " + wanted if wanted else ""))
    if not modes:
        raise ListingError("output %s lists no mode" % found)
    missing = ["EDID", "timings (standard ones used%s)" % (
        "; reduced blanking for " + " ".join(computed) if computed else "")]
    return _display(size[0], size[1], modes, b"", _source("xrandr", found, missing))
