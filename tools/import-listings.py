#!/usr/bin/env python3
"""Makes a device description for the virtual board out of listings of a real device.

  tools/import-listings.py LISTING... > device.json

Cameras: output of v4l2-ctl --list-formats-ext, -D, -L; several files of one camera are put together.
Displays: output of modetest -c, xrandr or edid-decode, or a raw EDID file.
The result goes into board/scenarios/cameras/ or board/scenarios/displays/.
"""

import argparse
import json
import os
import re
import sys

from listings import ListingError, cameras, displays

WIDTH = 100


def dump(value, indent=0):
    """JSON that people can read and compare line by line."""
    line = json.dumps(value, ensure_ascii=False)
    # One size, control or mode stays on one line, however long.
    record = indent > 0 and isinstance(value, dict) and "[{" not in line
    if indent + len(line) <= WIDTH or record or not isinstance(value, (dict, list)):
        return line
    inner = " " * (indent + 2)
    if isinstance(value, dict):
        rows = ["%s: %s" % (json.dumps(key), dump(item, indent + 2)) for key, item in value.items()]
        opening, closing = "{", "}"
    else:
        rows = [dump(item, indent + 2) for item in value]
        opening, closing = "[", "]"
    return "%s\n%s%s\n%s%s" % (opening, inner, (",\n" + inner).join(rows), " " * indent, closing)


def read_file(path):
    try:
        with open(path, "rb") as file:
            return file.read()
    except OSError as error:
        raise ListingError("%s: %s" % (path, error.strerror))


def card_of(name):
    """The kernel's name for a camera that gives none, where the file name tells the USB ids."""
    match = re.match(r"^([0-9a-f]{4})-([0-9a-f]{4})-", name)
    return "UVC Camera (%s:%s)" % match.groups() if match else None


def import_device(paths, options):
    raw = [read_file(path) for path in paths]
    name = options.name or os.path.splitext(os.path.basename(paths[0]))[0]
    if any(data.startswith(displays.HEADER) for data in raw):
        device = displays.read_edid(raw[0], "EDID file")
    else:
        device = import_text([data.decode("utf-8", "replace") for data in raw], name, options)
    device["name"] = name
    return device


def import_text(texts, name, options):
    text = texts[0]
    if "edid-decode (hex)" in text or "EDID (hex)" in text:
        return displays.read_edid_decode(text)
    if re.search(r"^Connectors:", text, re.M):
        return displays.read_modetest(text, options.connector)
    if re.search(r"^\S+ connected ", text, re.M):
        return displays.read_xrandr(text, options.connector)
    if re.search(r"^\s*\[\d+\]: '.{4}' |^\s*\w+ 0x[0-9a-f]{8} \(", text, re.M):
        return cameras.read_camera(texts, options.node, card_of(name))
    raise ListingError("no listing of v4l2-ctl, modetest, xrandr or edid-decode")


def main():
    parser = argparse.ArgumentParser(
        description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("listing", nargs="+", metavar="LISTING")
    parser.add_argument("--name", help="name of the device (default: of the first file)")
    parser.add_argument("--connector", help="display: which output, where several are connected")
    parser.add_argument("--node", type=int, default=0,
                        help="camera: which node, where a listing has several (default 0)")
    options = parser.parse_args()
    try:
        print(dump(import_device(options.listing, options)))
    except ListingError as error:
        sys.exit("import-listings: %s: %s" % (options.listing[0], error))


if __name__ == "__main__":
    main()
