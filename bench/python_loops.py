"""Compares loops over strips: the package's, a C++ handler, and ctypes written by hand.

All three take what the free-running virtual board delivers, look at one point of each buffer, and
take turns, so that a busy machine treats them alike. Prints a table of ratios.

    python_loops.py FOLDER [--seconds S] [--rounds N]    FOLDER: a build folder
"""

from __future__ import annotations

import argparse
import os
import statistics
import subprocess
import sys
from pathlib import Path

PACKAGE = """
import sys, time, tracemalloc
import tessaline
seconds = float(sys.argv[1])
with tessaline.Sensor("K3610", virtual=True) as sensor:
    sensor.board.set_free_run(True)
    sensor._calls.module.board_transcript_enable(False)
    stream = sensor.strips(timeout_s=30)
    buf = next(stream)
    before = dict(sensor._calls.module.strips().counters)
    used, begin = time.process_time(), time.monotonic()
    buffers = strips = rows = 0
    for buf in stream:
        rows += int(buf[0].points["row"][0])
        buffers += 1
        strips += len(buf)
        if time.monotonic() - begin > seconds:
            break
    took, used = time.monotonic() - begin, time.process_time() - used
    after = sensor._calls.module.strips().counters
    copies = sum(after[key] - before[key] for key in ("copied", "detached"))
    # Python's own allocations, in a run that is not timed.
    stream = sensor.strips(2000, timeout_s=30)
    next(stream)
    tracemalloc.start()
    base = tracemalloc.get_traced_memory()[0]
    tracemalloc.reset_peak()
    for buf in stream:
        rows += int(buf[0].points["row"][0])
    peak = tracemalloc.get_traced_memory()[1] - base
    print("result", buffers, strips, took, used, copies, peak, file=sys.stderr)
"""

BY_HAND = """
import ctypes, struct, sys, time
lib = ctypes.CDLL(sys.argv[2])
board = ctypes.CDLL(None)
seconds = float(sys.argv[1])
board.tessaline_board_select(b"K3610")
board.tessaline_board_set_pace(1)
board.tessaline_board_transcript_enable(0)
lib.GetLibVersion(b"K3610")
buffers = strips = rows = 0
@ctypes.CFUNCTYPE(None, ctypes.c_uint, ctypes.c_uint, ctypes.c_void_p)
def handler(count, size, data):
    global buffers, strips, rows
    points = (ctypes.c_char * size).from_address(data)
    rows += struct.unpack_from("<I", points, 36)[0]
    buffers += 1
    strips += count
lib.RegisterEventHandler(1, handler)
lib.RegisterHardwareInit()
lib.SetCollectMode(0)
lib.OpenLaser()
used, begin = time.process_time(), time.monotonic()
lib.SetGlobalControl(1)
time.sleep(seconds)
seen = buffers, strips
took, used = time.monotonic() - begin, time.process_time() - used
lib.SetGlobalControl(0)
lib.CloseLaser()
print("result", *seen, took, used, file=sys.stderr)
"""


def measure(command: list[str], **environment: str) -> list[float]:
    done = subprocess.run(
        command,
        env=dict(os.environ, **environment),
        stdout=subprocess.DEVNULL,
        stderr=subprocess.PIPE,
        text=True,
        timeout=300,
        check=False,
    )
    for line in done.stderr.splitlines():
        if line.startswith("result "):
            return [float(word) for word in line.split()[1:]]
    raise SystemExit(f"{command[0]} failed:\n{done.stderr}")


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("folder", type=Path)
    parser.add_argument("--seconds", type=float, default=3)
    parser.add_argument("--rounds", type=int, default=5)
    options = parser.parse_args()
    folder = options.folder.resolve()
    seconds = str(options.seconds)
    library = str(folder / "libtessaline.so")
    board = str(folder / "libtessaline-board.so")
    runs: dict[str, list[list[float]]] = {"C++": [], "package": [], "ctypes": []}
    for _ in range(options.rounds):
        runs["C++"].append(measure([str(folder / "bench_strip_loop"), seconds]))
        runs["package"].append(
            measure([sys.executable, "-c", PACKAGE, seconds], PYTHONPATH=str(folder / "python"))
        )
        runs["ctypes"].append(
            measure([sys.executable, "-c", BY_HAND, seconds, library], LD_PRELOAD=board)
        )

    def median(name: str, value) -> float:
        return statistics.median(value(run) for run in runs[name])

    rate = {name: median(name, lambda run: run[0] / run[2]) for name in runs}
    cost = {name: median(name, lambda run: 1e6 * run[3] / run[0]) for name in runs}
    print("| loop over strip buffers | deliveries, of C++ | processor time a buffer, of C++ |")
    print("|---|---|---|")
    for name in runs:
        print(f"| {name} | {rate[name] / rate['C++']:.2f} | {cost[name] / cost['C++']:.2f} |")
    above = {name: cost[name] - cost["C++"] for name in ("package", "ctypes")}
    print(f"\nbuffers a second with C++: {rate['C++']:.0f}; processor time a buffer: "
          f"{cost['C++']:.0f} us, of which most is the virtual board")
    print(f"above C++: package {above['package']:.0f} us, ctypes {above['ctypes']:.0f} us a buffer")
    copies = sum(run[4] for run in runs["package"])
    buffers = sum(run[0] for run in runs["package"])
    growth = max(run[5] for run in runs["package"]) / 1024
    print(f"package: {copies:.0f} of {buffers:.0f} buffers copied; Python's memory grows by at "
          f"most {growth:.0f} KiB in a loop")


if __name__ == "__main__":
    main()
