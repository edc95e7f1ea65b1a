"""What clients of `tessaline serve` cost, and what stalled ones cost the others. Prints a table in
Markdown.

    python3 bench/serve_clients.py BUILD_FOLDER [SECONDS]
"""

from __future__ import annotations

import asyncio
import json
import os
import pathlib
import signal
import subprocess
import sys
import tempfile
import time

BUILD = pathlib.Path(sys.argv[1]).resolve()
SECONDS = float(sys.argv[2]) if len(sys.argv) > 2 else 10.0
os.environ["TESSALINE_SERVE"] = str(BUILD / "tessaline-serve")
sys.path.insert(0, str(pathlib.Path(__file__).parents[1] / "tests/serve"))

from daemon import Daemon, tool  # noqa: E402
from streams import Message, connect, stalled  # noqa: E402

RATE = 30
TICKS = os.sysconf("SC_CLK_TCK")
FRAMES = 1_000_000


def processor_seconds(pid: int) -> float:
    fields = pathlib.Path(f"/proc/{pid}/stat").read_text().rsplit(")", 1)[1].split()
    return (int(fields[11]) + int(fields[12])) / TICKS


def megabytes(pid: int) -> float:
    for line in pathlib.Path(f"/proc/{pid}/status").read_text().splitlines():
        if line.startswith("VmRSS:"):
            return int(line.split()[1]) / 1024
    raise RuntimeError("no VmRSS")


async def read(daemon: Daemon, name: str, seconds: float) -> int:
    """How many messages come."""
    count = 0
    async with connect(daemon, name, RATE) as stream:
        Message(time.monotonic(), await stream.recv())
        end = time.monotonic() + seconds
        while (left := end - time.monotonic()) > 0:
            try:
                await asyncio.wait_for(stream.recv(), left)
                count += 1
            except asyncio.TimeoutError:
                break
    return count


async def read_all(daemon: Daemon, name: str, clients: int, seconds: float) -> list[int]:
    return await asyncio.gather(*(read(daemon, name, seconds) for _ in range(clients)))


def cost(daemon: Daemon, name: str, clients: int) -> float:
    """Processor seconds a second of the daemon, while so many clients read."""
    before, start = processor_seconds(daemon.pid), time.monotonic()
    if clients:
        asyncio.run(read_all(daemon, name, clients, SECONDS))
    else:
        time.sleep(SECONDS)
    return (processor_seconds(daemon.pid) - before) / (time.monotonic() - start)


def write(daemon: Daemon, method: str, path: str, body: object) -> dict:
    answer = daemon.request(method, path, body, token=daemon.token)
    if answer.status >= 300:
        sys.exit(f"{method} {path}: {answer.status} {answer.body!r}")
    return answer.json()


def clients_cost(daemon: Daemon) -> None:
    for name in ("profile", "image"):
        write(daemon, "PUT", "/api/v1/mode", {"mode": "images" if name == "image" else "strips"})
        time.sleep(1)
        none, one, ten = (cost(daemon, name, clients) for clients in (0, 1, 10))
        print(f"| {name}, {RATE} a second: processor with 0, 1, 10 clients | "
              f"{none:.1%}, {one:.1%}, {ten:.1%}; a client more {(ten - one) / 9:.2%} |")
    write(daemon, "PUT", "/api/v1/mode", {"mode": "strips"})


def stalled_cost(daemon: Daemon, folder: pathlib.Path) -> None:
    # A delivery has ten profiles: a hundred deliveries a second, more than anyone asks for.
    region = {"x": 0, "y": 512, "width": 1456, "height": 128}
    write(daemon, "PATCH", "/api/v1/settings", {"region": region, "spacing": 1000})
    file = folder / "run.db3"
    recorder = subprocess.Popen(
        [BUILD / "tessaline", "record", "-o", file, "--json"], stdout=subprocess.PIPE,
        env={**os.environ, "TESSALINE_SOCKET": str(daemon.socket)},
    )
    time.sleep(0.5)
    rates: dict[str, float] = {}
    held = []
    for what in ("10 clients", "10 clients, 40 more are stalled"):
        counts = asyncio.run(read_all(daemon, "profile", 10, SECONDS))
        rates[what] = min(counts) / SECONDS
        held = held or [stalled(daemon, "profile", RATE) for _ in range(40)]
    recorder.send_signal(signal.SIGINT)
    report = json.loads(recorder.communicate()[0])
    for connection in held:
        connection.close()
    before, after = rates.values()
    print(f"| slowest of 10 clients, alone and with 40 stalled ones | {before:.1f} and {after:.1f} "
          f"a second: {after / before:.2f} |")
    print(f"| the recorder meanwhile | {report['strips']} profiles, {report['lost_by_device']} "
          f"lost, {report['dropped_frames']} dropped |")


def memory(folder: pathlib.Path) -> None:
    """As many frames as the virtual board makes, with a client that looks on."""
    daemon = Daemon(folder, TESSALINE_BOARD_SLEEP="0", TESSALINE_BOARD_PACE="free").wait_for_start()
    try:
        def frames() -> int:
            return daemon.request("GET", "/api/v1/state").json()["counters"]["strips"]

        seen = []
        for _ in range(2):
            goal = frames() + FRAMES / 2
            while frames() < goal:
                asyncio.run(read(daemon, "profile", 1))
            seen.append((frames(), megabytes(daemon.pid)))
        (first, then), (last, now) = seen
        print(f"| memory at {first} and at {last} profiles | {then:.1f} and {now:.1f} MB |")
    finally:
        daemon.end()


def main() -> None:
    print("| what | measured |")
    print("|------|----------|")
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        daemon = Daemon(folder).wait_for_start()
        try:
            clients_cost(daemon)
            stalled_cost(daemon, folder)
        finally:
            daemon.end()
        memory(folder)


if tool("--version").returncode != 0:
    sys.exit(f"there is no command in {BUILD}")
main()
