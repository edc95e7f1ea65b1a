#!/usr/bin/env python3
"""Holds the layers of src/: a file includes only what lies in its own layer or below.

layers.py SOURCE_DIR. Prints every include that climbs and fails when there is one.
"""
import pathlib
import re
import sys

# From bottom to top. If two entries match a path, the longer one counts.
LAYERS = [
    ["thread/", "SingletonHolder.h"],
    ["log/"],
    ["function/", "image/"],
    ["Neighbours.h", "Devices/SeriesNumber.h"],
    ["Devices/bus/"],
    ["Devices/fpga/", "Devices/sensor/", "Devices/capture/", "Devices/peripheral/"],
    ["SeriesLogic/"],
    ["DeviceManager"],
    ["Runnable/"],
    ["VeltranoApi", "SystemSignalHandle", "SignalHandler", "Neighbours.cpp"],
]

# Includes of a higher layer that the product needs.
ALLOWED = {
    # The product determines the cropping and subsampling of the GMAX2509.
    ("Devices/sensor/gmax2509/GMAX2509.cpp", "SeriesLogic/SeriesLogic23.h"),
    # The self-test takes an image through both capture threads.
    ("Devices/sensor/imx252/IMX252SelfTest.cpp", "Runnable/CaptureStripStream.h"),
    ("Devices/sensor/imx252/IMX252SelfTest.cpp", "Runnable/CaptureVideoStream.h"),
    # Two series count lost callbacks in the strip thread, not in the FPGA.
    ("SeriesLogic/LostCallbacks.cpp", "Runnable/CaptureStripStream.h"),
}


def layer(path):
    fits = [(len(prefix), number) for number, prefixes in enumerate(LAYERS)
            for prefix in prefixes if path.startswith(prefix)]
    if not fits:
        sys.exit(f"layers: {path} belongs to no layer")
    return max(fits)[1]


src = pathlib.Path(sys.argv[1]).resolve()
climbs, seen = [], set()
files = sorted(path for path in src.rglob("*") if path.suffix in (".h", ".cpp"))
for file in files:
    path = file.relative_to(src).as_posix()
    for include in re.findall(r'#include ["<]([^">]+)[">]', file.read_text()):
        beside = (file.parent / include).resolve()
        if beside.is_file():
            include = beside.relative_to(src).as_posix()
        elif not (src / include).is_file():
            continue  # of the system, public, or a table that an integrator may replace
        if (path, include) in ALLOWED:
            seen.add((path, include))
        elif layer(include) > layer(path):
            climbs.append(f"{path} includes {include}")
climbs += [f"allowed, but not there: {path} includes {include}"
           for path, include in sorted(ALLOWED - seen)]
print(*climbs or [f"{len(files)} files, no climb"], sep="\n")
sys.exit(1 if climbs or not files else 0)
