"""How fast frames go from a board to a subscriber's file, beside the client library alone and the
server's makers' own tool."""

from __future__ import annotations

import pathlib
import resource
import signal
import sqlite3
import statistics
import subprocess
import sys
import time

from fleet_processes import (FLEET_TESTS, LONGEST_SECONDS, MEMORY_MB, Alone, Command, Progress,
                             children, kept, machine_seconds, pid_of, processor_seconds,
                             wait_until)

LINE = "transfer"
SENSOR = f"{LINE}.head1"
STRIP_BUFFER = 116_800  # bytes: ten strips of 1456 points
TOOL_MESSAGES = 5000


def record(build: pathlib.Path, file: pathlib.Path, seconds: float) -> int:
    """Frames to play; returns their bytes."""
    made = Command(build, "record", "-o", file, "--strips", "--virtual", "K3610", "--memory",
                   MEMORY_MB, "--json", "-t", seconds, TESSALINE_BOARD_SLEEP="0",
                   TESSALINE_BOARD_PACE="free").answer()
    if made["dropped_frames"] or made["lost_by_device"]:
        sys.exit(f"not all was recorded: {made}")
    return made["bytes"]


class Transfer:
    """Frames of a recording through one server, as fast as they go."""

    def __init__(self, build: pathlib.Path, folder: pathlib.Path, shared: pathlib.Path, loops: int,
                 seconds: float):
        self._build = build
        self._folder = folder
        self._shared = shared
        self._loops = loops
        self._source = folder / "source.db3"
        self._bytes = record(build, self._source, seconds)
        self.used: dict[str, list[float]] = {}  # processor seconds a MB, of each program

    def application(self) -> list[object]:
        return [self._build / "tessaline", "replay", self._source, "--fast", "--stop", "--loop",
                self._loops, "--", self._build / "examples/strips", "K3610"]

    def replay_alone(self) -> float:
        """How fast the frames come, in MB/s."""
        words = self.application()
        words.insert(words.index("--"), "--json")
        played = Command(self._build, *words[1:]).answer()
        return self._bytes * self._loops / played["seconds"] / 1e6

    def _publish(self, server: Alone) -> Command:
        return Command(self._build, "publish", "--name", SENSOR, "--server", server.urls,
                       "--memory", MEMORY_MB, "--drain", LONGEST_SECONDS, "--json", "--",
                       *self.application())

    def _subscribe(self, server: Alone, file: pathlib.Path) -> Command:
        """Once the sensor has a place on the server."""
        file.unlink(missing_ok=True)
        subscriber = Command(self._build, "subscribe", SENSOR, "-o", file, "--server",
                             server.urls, "--json")
        self._wait_for(server)
        return subscriber

    @staticmethod
    def _wait_for(server: Alone) -> None:
        """For the subscriber."""
        wait_until(lambda: any(sensor.subscribed
                               for sensor in kept(server.servers, LINE).values()),
                   30, "the subscriber")

    def make_place(self, server: Alone) -> None:
        Command(self._build, "publish", "--name", SENSOR, "--server", server.urls, "--virtual",
                "K3610", "-t", 0.2, "--json").answer()
        Command(self._build, "subscribe", SENSOR, "-o", self._folder / "first.db3", "--server",
                server.urls, "--once", "--json").answer()

    def _end(self, publisher: Command, subscriber: Command, progress: Progress,
             from_backlog: bool, file: pathlib.Path, programs: dict[str, list[int]],
             what: str) -> float:
        """The rate until all was stored, in MB/s. Nothing may be missing."""
        def used() -> dict[str, float]:
            return {name: sum(map(processor_seconds, pids)) for name, pids in programs.items()}

        wait_until(progress.begun, LONGEST_SECONDS, "a message")
        before = used()
        busy, all_time = machine_seconds()
        last = before
        while publisher.running():
            last = {name: max(now, last[name]) for name, now in used().items()}
            time.sleep(0.05)
        sent = publisher.answer()
        wait_until(progress.all_stored, LONGEST_SECONDS, "everything stored")
        busy_now, all_now = machine_seconds()
        last = {name: max(now, last[name]) for name, now in used().items()}
        progress.end()
        stored = subscriber.interrupt()
        start = progress.first() if from_backlog else first_stamp(file)
        file.unlink()
        lost = sent["dropped_frames"] + sent["missing_frames"] + stored["unexplained"]
        if lost or sent["strips"] != stored["strips"]:
            sys.exit(f"not all has come: {sent}\n{stored}")
        megabytes = stored["bytes"] / 1e6
        for name, seconds in last.items():
            self.used.setdefault(f"{what}: {name}", []).append(
                (seconds - before[name]) / megabytes)
        self.used.setdefault(f"{what}: both processors busy", []).append(
            (busy_now - busy) / (all_now - all_time))
        return megabytes / (progress.last() - start)

    def play(self, server: Alone, on_tmpfs: bool, what: str) -> float:
        """From the first frame that the application has to the last one stored."""
        file = (self._shared if on_tmpfs else self._folder) / "stored.db3"
        subscriber = self._subscribe(server, file)
        progress = Progress(server.servers, LINE)
        publisher = self._publish(server)
        programs = {"publish": [publisher.pid], "subscribe": [subscriber.pid],
                    "server": [pid_of(each) for each in server.servers]}
        return self._end(publisher, subscriber, progress, False, file, programs, what)

    def drain(self, server: Alone, on_tmpfs: bool, what: str) -> float:
        """What a publisher has held while the server was down: the application has ended."""
        file = (self._shared if on_tmpfs else self._folder) / "stored.db3"
        subscriber = self._subscribe(server, file)
        server.end(gently=True)
        publisher = self._publish(server)
        wait_until(lambda: children(publisher.pid), 20, "the application")
        wait_until(lambda: not children(publisher.pid), LONGEST_SECONDS, "the application's end")
        time.sleep(0.5)
        publisher.signal(signal.SIGSTOP)
        server.start()
        self._wait_for(server)
        programs = {"publish": [publisher.pid], "subscribe": [subscriber.pid],
                    "server": [pid_of(server)]}
        progress = Progress(server.servers, LINE)
        wait_until(lambda: progress.seen, 20, "the stream")
        publisher.signal(signal.SIGCONT)
        return self._end(publisher, subscriber, progress, True, file, programs, what)

    def plain(self, server: Alone) -> float:
        """Messages of the same size and number, with the client library alone."""
        count = self._bytes * self._loops // STRIP_BUFFER
        megabytes = count * STRIP_BUFFER / 1e6
        server_before, own_before = processor_seconds(pid_of(server)), own_children()
        done = subprocess.run(
            [self._build / "bench_nats_plain", server.urls, str(STRIP_BUFFER), str(count)],
            capture_output=True, text=True, check=True, timeout=LONGEST_SECONDS)
        for name, seconds in (("both clients", own_children() - own_before),
                              ("server", processor_seconds(pid_of(server)) - server_before)):
            self.used.setdefault(f"client library alone: {name}", []).append(seconds / megabytes)
        return megabytes / float(done.stdout)

    def makers(self) -> float:
        done = subprocess.run(
            [FLEET_TESTS / "bench_tool.sh", str(STRIP_BUFFER), str(TOOL_MESSAGES),
             self._folder / "bench_tool"],
            capture_output=True, text=True, check=True, timeout=LONGEST_SECONDS)
        line = next(line for line in done.stdout.splitlines() if line.startswith(" Sub"))
        return float(line.split()[2].replace(",", "")) * STRIP_BUFFER / 1e6


def own_children() -> float:
    """Processor seconds of programs that have ended."""
    used = resource.getrusage(resource.RUSAGE_CHILDREN)
    return used.ru_utime + used.ru_stime


def first_stamp(file: pathlib.Path) -> float:
    """When the first strips of a recording came to the application."""
    database = sqlite3.connect(f"file:{file}?mode=ro", uri=True)
    try:
        (stamp,) = database.execute(
            "SELECT min(timestamp) FROM messages JOIN topics ON topics.id = topic_id"
            " WHERE name LIKE '%/strips'").fetchone()
    finally:
        database.close()
    return stamp / 1e9


def measure(build: pathlib.Path, folder: pathlib.Path, shared: pathlib.Path, rounds: int,
            loops: int, seconds: float) -> None:
    transfer = Transfer(build, folder, shared, loops, seconds)
    ways = {
        "application runs, file on disk": lambda: transfer.play(server, False, "runs"),
        "application runs, file on tmpfs": lambda: transfer.play(server, True, "runs, tmpfs"),
        "backlog in memory, file on disk": lambda: transfer.drain(server, False, "backlog"),
        "backlog in memory, file on tmpfs": lambda: transfer.drain(server, True, "backlog, tmpfs"),
        "client library alone": lambda: transfer.plain(server),
        "makers' tool, nothing stored": transfer.makers,
    }
    rates: dict[str, list[float]] = {name: [] for name in ways}
    with Alone(folder) as server:
        transfer.make_place(server)
        order = list(ways)
        for number in range(rounds):
            for name in order[number % len(order):] + order[:number % len(order)]:
                rates[name].append(ways[name]())
                print(f"  {name}: {rates[name][-1]:.0f} MB/s", file=sys.stderr, flush=True)
    print(f"replay alone: {transfer.replay_alone():.0f} MB/s\n")
    print("| | MB/s | of the client library alone (least .. most) | of the makers' tool |\n"
          "|---|---|---|---|")
    plain, tool = rates["client library alone"], rates["makers' tool, nothing stored"]
    for name, values in rates.items():
        of_plain = [value / other for value, other in zip(values, plain)]
        of_tool = [value / other for value, other in zip(values, tool)]
        print(f"| {name} | {statistics.median(values):.0f} | {statistics.median(of_plain):.2f} "
              f"({min(of_plain):.2f} .. {max(of_plain):.2f}) | {statistics.median(of_tool):.2f} |")
    print("\n| processor time | ms a MB |\n|---|---|")
    for name, shares in transfer.used.items():
        share = statistics.median(shares)
        text = f"{share:.0%}" if "busy" in name else f"{1e3 * share:.2f}"
        print(f"| {name} | {text} |")
