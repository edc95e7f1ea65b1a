"""How fast a fleet is, beside the client library alone and the server's makers' tool, what it
costs, and how it grows. Prints tables in Markdown. Needs isolated.py around it.

    python3 bench/fleet.py BUILD_FOLDER [transfer] [cost] [heads] [growth] [--quick]
"""

from __future__ import annotations

import contextlib
import os
import pathlib
import statistics
import subprocess
import sys
import tempfile
import time

import fleet_growth
import fleet_transfer
from fleet_processes import Alone, Cluster, Command, children, processor_seconds, wait_until
from recorder_rates import MODELS, SPACING

ORDINARY_US = 4000
NEVER_US = 1_000_000


def load() -> str:
    return " ".join(pathlib.Path("/proc/loadavg").read_text().split()[:3])


def publisher_alone(build: pathlib.Path, server: Alone, spacing_us: int,
                    seconds: float) -> tuple[float, float, int]:
    """Processor seconds a second of the publisher, without its application; its strips a second;
    its strips in all."""
    publisher = Command(build, "publish", "--name", "cost.head1", "--server", server.urls,
                        "--virtual", "K3610", "--strips", "--spacing", spacing_us, "--json")
    wait_until(lambda: children(publisher.pid), 20, "the application")
    time.sleep(2)
    before, start = processor_seconds(publisher.pid), time.monotonic()
    time.sleep(seconds)
    used, took = processor_seconds(publisher.pid) - before, time.monotonic() - start
    sent = publisher.interrupt()
    return used / took, 1e6 / spacing_us, sent["strips"]


def cost(build: pathlib.Path, folder: pathlib.Path, rounds: int, seconds: float) -> None:
    """A publisher's processor time, and the server's disk."""
    place = folder / "cost"
    place.mkdir()
    with Alone(place) as server:
        def disk() -> int:
            return sum(file.stat().st_blocks * 512 for file in (place / "alone").rglob("*"))

        idle, ordinary = [], []
        strips, before = 0, disk()
        for _ in range(rounds):
            idle.append(publisher_alone(build, server, NEVER_US, seconds))
            ordinary.append(publisher_alone(build, server, ORDINARY_US, seconds))
            strips += idle[-1][2] + ordinary[-1][2]
        bytes_each = (disk() - before) / strips
        nothing = statistics.median(used for used, *_ in idle)
        all_of_it = statistics.median(used for used, *_ in ordinary)
        rate = ordinary[0][1]
        # Ten strips make a buffer.
        buffer = 10 * (all_of_it - nothing) / rate
        print("| publisher, without its application | |\n|---|---|")
        print(f"| processor with a strip a second | {nothing:.2%} |")
        print(f"| processor with {rate:.0f} strips a second | {all_of_it:.2%} |")
        print(f"| of that a buffer of ten strips | {1e6 * buffer:.0f} us |")
        print(f"| of that a strip | {1e5 * buffer:.1f} us |")
        print(f"| in all a strip | {1e6 * all_of_it / rate:.0f} us |")
        print(f"| disk of the server that a strip takes until it is stored elsewhere | "
              f"{bytes_each:.0f} bytes |")


def replicas(build: pathlib.Path, folder: pathlib.Path, shared: pathlib.Path, three: Cluster,
             loops: int, seconds: float) -> None:
    """What servers use for a MB, alone and with two others."""
    print("| as fast as it goes | MB/s | servers: ms a MB, all together |\n|---|---|---|")
    transfer = fleet_transfer.Transfer(build, folder, shared, loops, seconds)

    def play(name: str, servers: Alone | Cluster) -> None:
        transfer.make_place(servers)
        rate = transfer.play(servers, True, name)
        print(f"| {name} | {rate:.0f} | {1e3 * transfer.used[f'{name}: server'][0]:.1f} |")

    with Alone(folder) as alone:
        play("one server", alone)
    play("three servers, three copies", three)


def heads(build: pathlib.Path, folder: pathlib.Path, seconds: float) -> None:
    """What a product sends when its triggers come as fast as it reads all rows."""
    print("| | frames /s | kB a frame | Mb/s |\n|---|---|---|---|")
    for model in MODELS:
        for what in ("strips", "images"):
            file = folder / "head.db3"
            made = Command(build, "record", "-o", file, "-t", seconds, f"--{what}", "--memory",
                           4000, "--json", "--virtual", model, "--trigger", "timer", "--spacing",
                           SPACING[model[:3]], TESSALINE_BOARD_SLEEP="0").answer()
            file.unlink()
            each = made["bytes"] / max(made[what], 1)
            rate = 1e6 / SPACING[model[:3]]
            print(f"| {model}, {what} | {rate:.0f} | {each / 1e3:.1f} | "
                  f"{rate * each * 8 / 1e6:.1f} |", flush=True)


def main() -> None:
    words = [word for word in sys.argv[2:] if word != "--quick"]
    quick = "--quick" in sys.argv
    build = pathlib.Path(sys.argv[1]).resolve()
    known = ("transfer", "cost", "heads", "growth")
    wanted = words or known
    if unknown := set(wanted) - set(known):
        sys.exit(f"unknown: {' '.join(sorted(unknown))}\n{__doc__}")
    version = subprocess.run(["nats-server", "--version"], capture_output=True, text=True,
                             check=True).stdout.strip()
    print(f"build \"{build.name}\", {version}, {os.cpu_count()} processors, load {load()}\n")
    # The disks of a cluster end with the namespace, and cannot be removed before.
    with contextlib.ExitStack() as stack:
        folder = pathlib.Path(stack.enter_context(tempfile.TemporaryDirectory(dir=build)))
        shared = pathlib.Path(stack.enter_context(
            tempfile.TemporaryDirectory(dir="/dev/shm", ignore_cleanup_errors=True)))
        three = Cluster(shared)
        if three.why_no_faults:
            print(f"the three servers share one loopback device: {three.why_no_faults}\n")
        loops, seconds = (1, 1.0) if quick else (3, 4.0)
        if "transfer" in wanted:
            place = folder / "transfer"
            place.mkdir()
            fleet_transfer.measure(build, place, shared, 1 if quick else 3, loops, seconds)
            print()
            place = folder / "replicas"
            place.mkdir()
            with three:
                replicas(build, place, shared, three, loops, seconds)
            print()
        if "cost" in wanted:
            cost(build, folder, 1 if quick else 3, 2 if quick else 8)
            print()
        if "heads" in wanted:
            heads(build, folder, 0.5 if quick else 2)
            print()
        if "growth" in wanted:
            with three:
                fleet_growth.measure(build, folder, three, 2 * ORDINARY_US, 3 if quick else 12)
    print(f"\nload at the end: {load()}")


main()
