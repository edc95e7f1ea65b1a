"""Fleets of virtual boards at an ordinary rate: what is stored, what it takes, and how long frames
are under way."""

from __future__ import annotations

import dataclasses
import pathlib
import time

from fleet_processes import (Alone, Cluster, Command, Kept, children, kept, machine_seconds, memory,
                             pid_of, processor_seconds, wait_until)

SETTLED_SECONDS = 2
START_SECONDS = 60


@dataclasses.dataclass
class Figures:
    """Of a fleet, over the seconds in which all of it ran."""
    rate: float = 0  # MB stored a second
    strips: float = 0  # likewise
    on_servers: int = 0  # messages that were not stored yet; the most that was seen
    waiting: int = 0  # messages at the publishers, at the end
    lost: int = 0  # frames, wherever
    latency: dict = dataclasses.field(default_factory=dict)
    processor: dict[str, float] = dataclasses.field(default_factory=dict)  # shares of one
    busy: float = 0  # share of all processors
    megabytes: dict[str, float] = dataclasses.field(default_factory=dict)  # of memory, each


class Fleet:
    def __init__(self, build: pathlib.Path, servers: Alone | Cluster, count: int,
                 spacing_us: int, file: pathlib.Path):
        self._servers = servers
        self._line = f"line{count}"
        self._publishers = [
            Command(build, "publish", "--name", f"{self._line}.head{number}", "--server",
                    servers.urls, "--virtual", "K3610", "--strips", "--spacing", spacing_us,
                    "--json")
            for number in range(1, count + 1)]
        wait_until(lambda: len(self._known()) == count, START_SECONDS, "all publishers")
        self._subscriber = Command(build, "subscribe", f"{self._line}.*", "-o", file, "--server",
                                   servers.urls, "--json")
        wait_until(lambda: all(sensor.subscribed for sensor in self._known()), START_SECONDS,
                   "the subscriber")

    def _known(self) -> list[Kept]:
        return list(kept(self._servers.servers, self._line).values())

    def _programs(self) -> dict[str, list[int]]:
        publishers = [publisher.pid for publisher in self._publishers]
        return {"boards": [child for pid in publishers for child in children(pid)],
                "publishers": publishers,
                "servers": [pid_of(server) for server in self._servers.servers],
                "subscriber": [self._subscriber.pid]}

    def measure(self, seconds: float) -> Figures:
        figures = Figures()
        time.sleep(SETTLED_SECONDS)
        programs = self._programs()

        def snapshot() -> tuple[float, int, dict[str, float]]:
            stored = sum(sensor.stored for sensor in self._known())
            return time.monotonic(), stored, {name: sum(map(processor_seconds, pids))
                                              for name, pids in programs.items()}

        start, first, before = snapshot()
        busy, all_time = machine_seconds()
        while (now := snapshot())[0] < start + seconds:
            figures.on_servers = max(figures.on_servers,
                                     sum(sensor.waiting for sensor in self._known()))
            time.sleep(0.5)
        end, last, after = now
        busy_now, all_now = machine_seconds()
        figures.megabytes = {name: sum(map(memory, pids)) / len(pids)
                             for name, pids in programs.items()}
        publishers = [publisher.interrupt() for publisher in self._publishers]
        wait_until(lambda: all(sensor.waiting == 0 for sensor in self._known()), START_SECONDS,
                   "everything stored")
        messages = sum(sensor.last for sensor in self._known())
        stored = self._subscriber.interrupt()
        share = (last - first) / messages / (end - start)
        figures.rate = stored["bytes"] / 1e6 * share
        figures.strips = stored["strips"] * share
        figures.waiting = sum(publisher["waiting"] for publisher in publishers)
        figures.lost = stored["unexplained"] + sum(
            publisher["dropped_frames"] + publisher["missing_frames"] for publisher in publishers)
        figures.latency = stored["latency_ms"]
        figures.processor = {name: (after[name] - before[name]) / (end - start) for name in after}
        figures.busy = (busy_now - busy) / (all_now - all_time)
        return figures


def run(build: pathlib.Path, folder: pathlib.Path, servers: Alone | Cluster, count: int,
        spacing_us: int, seconds: float) -> Figures:
    file = folder / f"{count}.db3"
    figures = Fleet(build, servers, count, spacing_us, file).measure(seconds)
    file.unlink()
    return figures


HEAD = """\
| sensors | servers | every us | strips /s | MB/s stored | not stored yet | dropped, lost | \
p50, p99 ms | boards | publishers | servers | subscriber | machine |
|---|---|---|---|---|---|---|---|---|---|---|---|---|"""


def row(count: int, servers: int, spacing_us: int, figures: Figures) -> str:
    processor = " | ".join(f"{figures.processor[name]:.0%}"
                           for name in ("boards", "publishers", "servers", "subscriber"))
    return (f"| {count} | {servers} | {spacing_us} | {figures.strips:.0f} | {figures.rate:.1f} | "
            f"{figures.on_servers + figures.waiting} | {figures.lost} | "
            f"{figures.latency['p50']:.1f}, {figures.latency['p99']:.1f} | {processor} | "
            f"{figures.busy:.0%} |")


def measure(build: pathlib.Path, folder: pathlib.Path, three: Cluster, spacing_us: int,
            seconds: float) -> None:
    print(f"Processor time: shares of one; \"machine\" of all.\n\n{HEAD}")
    memories: dict[str, dict[str, float]] = {}
    for count in (1, 2, 4, 8, 16):
        place = folder / str(count)
        place.mkdir()
        with Alone(place) as server:
            figures = run(build, folder, server, count, spacing_us, seconds)
        memories[f"{count}, one server"] = figures.megabytes
        print(row(count, 1, spacing_us, figures), flush=True)
    # Three servers and 16 boards are too much for two processors at this rate.
    for count in (1, 16):
        figures = run(build, folder, three, count, 2 * spacing_us, seconds)
        memories[f"{count}, three servers"] = figures.megabytes
        print(row(count, 3, 2 * spacing_us, figures), flush=True)
    print("\n| sensors; resident memory of each in MB | server | publish | its application | "
          "subscribe |\n|---|---|---|---|---|")
    for name, each in memories.items():
        print(f"| {name} | {each['servers']:.0f} | {each['publishers']:.0f} | "
              f"{each['boards']:.0f} | {each['subscriber']:.0f} |")
