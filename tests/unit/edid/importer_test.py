#!/usr/bin/env python3
"""The importer: listing to description and back, and what it says of text it cannot read."""

import json
import os
import re
import subprocess
import sys
import tempfile
import unittest

IMPORTER = sys.argv.pop(1)
HERE = os.path.dirname(os.path.abspath(__file__))


def run(*arguments):
    environment = dict(os.environ, PYTHONDONTWRITEBYTECODE="1")
    return subprocess.run([sys.executable, IMPORTER, *arguments], capture_output=True, text=True,
                          env=environment, timeout=60)


def listing(name):
    path = os.path.join(HERE, "listings", name)
    with open(path, encoding="utf-8") as file:
        return path, file.read()


def imported(path):
    result = run(path)
    if result.returncode:
        raise AssertionError(result.stderr)
    return json.loads(result.stdout)


def camera_lines(camera):
    """As v4l2-ctl prints it."""
    lines = []
    for number, form in enumerate(camera["formats"]):
        lines.append("[%d]: '%s' (%s%s)" % (number, form["fourcc"], form["description"],
                                            ", compressed" if form["compressed"] else ""))
        for size in form["sizes"]:
            lines.append("Size: Discrete %dx%d" % (size["width"], size["height"]))
            for up, down in size["intervals"]:
                lines.append("Interval: Discrete %.3fs (%.3f fps)" % (up / down, down / up))
    for control in camera["controls"]:
        if control["type"] == "class":
            lines.append(control["name"])
            continue
        name = re.sub("[^a-z0-9]+", "_", control["name"].lower()).strip("_")
        text = "%s %s (%s) :" % (name, control["id"], control["type"])
        for key in ("min", "max", "step", "default", "value"):
            if key in control:
                text += " %s=%d" % (key, control[key])
        if "flags" in control:
            text += " flags=" + ", ".join(control["flags"])
        lines.append(text)
        lines += ["%s: %s" % item for item in control.get("menu", {}).items()]
    return lines


def rate(mode):
    fields = 2 if "interlace" in mode["flags"] else 1
    return mode["clock"] * 1000 * fields / (mode["htotal"] * mode["vtotal"])


class RoundTrip(unittest.TestCase):
    def test_camera(self):
        path, text = listing("usb-2-0-camera.txt")
        wanted = [" ".join(line.split()) for line in text.splitlines() if line.strip()]
        wanted = [line for line in wanted if not line.startswith(("ioctl:", "Type:"))]
        self.assertEqual(len(wanted), 36)
        self.assertEqual(camera_lines(imported(path)), wanted)

    def test_modetest(self):
        path, text = listing("monitor-17in.txt")
        display = imported(path)
        lines = []
        for number, mode in enumerate(display["modes"]):
            keys = ("hdisplay", "hsyncStart", "hsyncEnd", "htotal", "vdisplay", "vsyncStart",
                    "vsyncEnd", "vtotal", "clock")
            lines.append("#%d %s %.2f %s flags: %s; type: %s" % (
                number, mode["name"], rate(mode), " ".join(str(mode[key]) for key in keys),
                ", ".join(mode["flags"]), ", ".join(mode["type"])))
        wanted = [line.strip() for line in text.splitlines() if re.match(r"\s+#\d+ ", line)]
        self.assertEqual(len(wanted), 17)
        self.assertEqual(lines, wanted)
        self.assertIn("".join(display["edid"]), re.sub(r"\s", "", text))
        self.assertEqual((display["widthMm"], display["heightMm"]), (340, 270))

    def test_xrandr(self):
        path, text = listing("tv-22in.txt")
        display = imported(path)
        listed = []
        for line in text.splitlines():
            match = re.match(r"^   (\d+x\d+i?) +(.*)$", line)
            for token in match[2].split() if match else []:
                listed.append((match[1], token.rstrip("*+"), "+" in token))
        found = [(mode["name"], "%.2f" % rate(mode), "preferred" in mode["type"])
                 for mode in display["modes"]]
        self.assertEqual(len(listed), 24)
        self.assertEqual(found, listed)
        for mode in display["modes"]:
            self.assertEqual(mode["vrefresh"], int(rate(mode) + 0.5))

    def test_raw_edid(self):
        path, text = listing("monitor-17in.txt")
        edid = bytes.fromhex("".join(imported(path)["edid"]))
        with tempfile.TemporaryDirectory() as folder:
            raw = os.path.join(folder, "panel.bin")
            with open(raw, "wb") as file:
                file.write(edid)
            display = imported(raw)
        self.assertEqual(display["name"], "panel")
        self.assertEqual(display["modes"], [])
        self.assertEqual(bytes.fromhex("".join(display["edid"])), edid)


class Refusals(unittest.TestCase):
    def refused(self, text, part):
        with tempfile.TemporaryDirectory() as folder:
            path = os.path.join(folder, "listing.txt")
            with open(path, "wb") as file:
                file.write(text if isinstance(text, bytes) else text.encode())
            result = run(path)
        self.assertEqual(result.returncode, 1)
        self.assertEqual(result.stdout, "")
        self.assertEqual(result.stderr.count("\n"), 1, result.stderr)
        self.assertIn(part, result.stderr)

    def test_one_line_says_what_cannot_be_read(self):
        yuyv = "\t[0]: 'YUYV' (YUYV 4:2:2)\n"
        self.refused("", "no listing of")
        self.refused("\x00\xff\xfe", "no listing of")
        self.refused(bytes.fromhex("00ffffffffffff00") + b"x" * 30, "no EDID: 38 bytes")
        self.refused(yuyv + "\t\tSize: Stepwise 16x16 - 640x480\n", "line 2: only discrete")
        self.refused("x 0x00980900 (int) : default=0\n" + "\t\tSize: Discrete 6x4\n",
                     "line 2: a size before the first format")
        self.refused(yuyv + "\t\tSize: Discrete 6x4\n\t\t\tInterval: Discrete 0.033s (9.000 fps)\n",
                     "line 3: interval 0.033 s and rate 9.000")
        self.refused("brightness 0x00980900 (str)    : default=x\n", "line 1: control brightness")
        self.refused("gain 0x00980900 (int)    : min=0 max=1\n", "lists no default")
        self.refused("HDMI-1 connected 1x1+0+0 1mm x 1mm\n   1920x1080  sixty\n", "line 2: no mode")
        self.refused("HDMI-1 connected 1x1+0+0 1mm x 1mm\n", "lists no mode")
        self.refused("Connectors:\n", "no connected connector")
        self.refused("edid-decode (hex):\n\n00 ff\n", "no EDID: 0 bytes")

    def test_missing_file(self):
        result = run("no-such-file.txt")
        self.assertEqual(result.returncode, 1)
        self.assertIn("No such file", result.stderr)
        self.assertEqual(result.stderr.count("\n"), 1)


if __name__ == "__main__":
    unittest.main()
