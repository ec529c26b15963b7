#!/usr/bin/env python3
"""The application's rooms include only themselves and rooms below them, and no circle stands."""
import pathlib
import re
import sys

ORDER = ["task", "convert", "display", "decode", "audio", "camera", "capture", "supervise"]
# Leaves of upper rooms that hold only values; lower rooms may include them.
LEAVES = {"control/supervise/versiontext.h", "control/capture/selecttimeout.h"}

root = pathlib.Path(sys.argv[1])
faults = []
edges = {}
for path in sorted((root / "control").rglob("*")):
    if path.suffix not in (".h", ".cpp"):
        continue
    name = path.relative_to(root).as_posix()
    room = name.split("/")[1]
    for line, text in enumerate(path.read_text().splitlines(), 1):
        found = re.match(r'\s*#\s*include\s+"([^"]+)"', text)
        if not found:
            continue
        target = found.group(1)
        edges.setdefault(name, []).append(target)
        if target in LEAVES:
            continue
        if not target.startswith("control/"):
            faults.append(f"{name}:{line}: includes {target}; the application includes only control/")
        elif ORDER.index(target.split("/")[1]) > ORDER.index(room):
            faults.append(f"{name}:{line}: includes {target}, which lies above {room}/")


def walk(name, trail):
    if name in trail:
        faults.append("circle: " + " -> ".join(trail[trail.index(name):] + [name]))
        return
    for target in edges.get(name, []):
        walk(target, trail + [name])


for start in edges:
    walk(start, [])
print("\n".join(dict.fromkeys(faults)) or f"rooms: {len(edges)} files in order")
sys.exit(1 if faults else 0)
