"""What scripts/bench --fleet measures: servers, publishers, a subscriber, and what they use."""

from __future__ import annotations

import dataclasses
import json
import os
import pathlib
import signal
import subprocess
import sys
import threading
import time

FLEET_TESTS = pathlib.Path(__file__).resolve().parents[1] / "tests/fleet"
sys.path.insert(0, str(FLEET_TESTS))

from cluster import Cluster  # noqa: E402, F401
from network import Place  # noqa: E402
from server import Server, wait_until  # noqa: E402

TICKS = os.sysconf("SC_CLK_TCK")
POLL_SECONDS = 0.05
LONGEST_SECONDS = 300

# More than a measurement makes.
MEMORY_MB = 1500

CONFIGURATION = """\
server_name: {name}
listen: "{address}:{client}"
http: "{address}:{watch}"
jetstream {{ store_dir: "{store}", max_memory_store: 256MB, max_file_store: 64GB }}
"""


class Alone(Server):
    """A server without others."""

    def __init__(self, folder: pathlib.Path):
        place = Place("alone", "127.0.0.1", (4222, 6222, 8222), store=folder / "alone")
        super().__init__(place, [], folder)
        client, _, watch = place.ports
        self._configuration.write_text(CONFIGURATION.format(
            name=place.name, address=place.address, client=client, watch=watch, store=place.store))

    def __enter__(self) -> "Alone":
        self.start()
        wait_until(self.stores, 20, "the server")
        return self

    def __exit__(self, *_) -> None:
        self.end()

    @property
    def urls(self) -> str:
        return self.url

    @property
    def servers(self) -> list[Server]:
        return [self]


def fields(pid: int) -> list[str]:
    """Of /proc/PID/stat, behind the name; "Z" and nothing else of one that has ended."""
    try:
        return pathlib.Path(f"/proc/{pid}/stat").read_text().rsplit(")", 1)[1].split()
    except OSError:
        return ["Z"]


def processor_seconds(pid: int) -> float:
    """Without its children's."""
    words = fields(pid)
    return (int(words[11]) + int(words[12])) / TICKS if len(words) > 12 else 0.0


def memory(pid: int) -> float:
    """Resident, in MB."""
    for line in pathlib.Path(f"/proc/{pid}/status").read_text().splitlines():
        if line.startswith("VmRSS:"):
            return int(line.split()[1]) / 1024
    raise RuntimeError("no VmRSS")


def children(pid: int) -> list[int]:
    """Those that run."""
    found = []
    for entry in pathlib.Path("/proc").iterdir():
        if entry.name.isdigit() and (words := fields(int(entry.name))) and words[0] != "Z":
            if int(words[1]) == pid:
                found.append(int(entry.name))
    return found


def machine_seconds() -> tuple[float, float]:
    """Of all processors: busy, and in all."""
    words = pathlib.Path("/proc/stat").read_text().split("\n", 1)[0].split()[1:9]
    times = [int(word) / TICKS for word in words]
    return sum(times) - times[3] - times[4], sum(times)


def pid_of(server: Server) -> int:
    """Of its program, also where something runs it in a namespace."""
    pid = server._process.pid  # pylint: disable=protected-access
    while inner := children(pid):
        pid = inner[0]
    return pid


@dataclasses.dataclass
class Kept:
    """Messages of a sensor: the last one that came, the last one that is stored elsewhere, how many
    are on the server, and whether a subscriber is there."""
    last: int = 0
    stored: int = 0
    waiting: int = 0
    subscribed: bool = False


def kept(servers: list[Server], line: str) -> dict[str, Kept]:
    """By stream, of all sensors of a line. A stream and its consumer may have different leaders,
    and only these know everything."""
    found: dict[str, Kept] = {}

    def leads(server: Server, detail: dict) -> bool:
        return detail.get("cluster", {}).get("leader", server.name) == server.name

    for server in servers:
        for stream in server.streams():
            if not stream["name"].startswith(f"tessaline:{line}:"):
                continue
            mine = found.setdefault(stream["name"], Kept())
            if leads(server, stream):
                mine.last = stream["state"]["last_seq"]
                mine.waiting = stream["state"]["messages"]
            for archive in stream.get("consumer_detail", []):
                if archive["name"] == "archive" and leads(server, archive):
                    mine.stored = archive["ack_floor"]["stream_seq"]
                    mine.subscribed = archive.get("push_bound", False)
    return found


class Command:
    """One of ours, whose answer is JSON."""

    def __init__(self, build: pathlib.Path, *words: object, **variables: str):
        self.words = [str(build / "tessaline"), *map(str, words)]
        environment = {name: value for name, value in os.environ.items()
                       if not name.startswith(("TESSALINE_", "NATS_"))}
        # A file, because nobody reads a pipe meanwhile.
        self._output = os.memfd_create("answer")
        self._process = subprocess.Popen(
            self.words, stdin=subprocess.DEVNULL, stdout=self._output, stderr=subprocess.STDOUT,
            env={**environment, **variables}, start_new_session=True)
        self.pid = self._process.pid

    def running(self) -> bool:
        return self._process.poll() is None

    def signal(self, number: int) -> None:
        self._process.send_signal(number)

    def answer(self) -> dict:
        """Waits for its end; what it used last stays in `processor`."""
        try:
            status = self._process.wait(LONGEST_SECONDS)
        except subprocess.TimeoutExpired:
            os.killpg(self.pid, signal.SIGKILL)
            raise
        with os.fdopen(self._output) as file:
            file.seek(0)
            text = file.read()
        # The application's own words may come first.
        at = text.find("\n{\n")
        if status != 0 or (at < 0 and not text.startswith("{")):
            sys.exit(f"{' '.join(self.words)}: {status}\n{text}")
        return json.JSONDecoder().raw_decode(text[at + 1:])[0]

    def interrupt(self) -> dict:
        self.signal(signal.SIGINT)
        return self.answer()


class Progress:
    """How far the stream of a line's only sensor has come, looked at all the time, with the host's
    clock."""

    def __init__(self, servers: list[Server], line: str):
        self._servers, self._line = servers, line
        self._stop = threading.Event()
        self.seen: list[tuple[float, int, int]] = []  # when, last message, last that is stored
        self._thread = threading.Thread(target=self._look)
        self._thread.start()

    def _look(self) -> None:
        while not self._stop.wait(POLL_SECONDS):
            for sensor in kept(self._servers, self._line).values():
                self.seen.append((time.time(), sensor.last, sensor.stored))

    def end(self) -> None:
        self._stop.set()
        self._thread.join()

    def begun(self) -> bool:
        return bool(self.seen) and self.seen[-1][1] > self.seen[0][1]

    def first(self) -> float:
        """When the first message came."""
        base = self.seen[0][1]
        return next(before for (before, *_), (_, last, _) in zip(self.seen, self.seen[1:])
                    if last > base)

    def all_stored(self) -> bool:
        return bool(self.seen) and self.seen[-1][1] == self.seen[-1][2]

    def last(self) -> float:
        """When all was stored."""
        goal = self.seen[-1][1]
        return next(when for when, _, stored in self.seen if stored == goal)
