"""Where the servers of a cluster are: in network namespaces of their own on one bridge, or, where
that is not permitted, on ports of this machine."""

from __future__ import annotations

import dataclasses
import os
import socket
import subprocess
from pathlib import Path

from isolated import SHARED


def run(*command: object) -> str:
    done = subprocess.run(list(map(str, command)), capture_output=True, text=True, check=False)
    if done.returncode != 0:
        raise RuntimeError(f"{' '.join(map(str, command))}: {done.stderr.strip()}")
    return done.stdout


@dataclasses.dataclass(frozen=True)
class Place:
    """Of one server."""
    name: str
    address: str
    ports: tuple[int, int, int]   # for clients, other servers, and watchers
    within: tuple[str, ...] = ()  # in front of its command
    store: Path = Path()


class Bridge:
    """Needs isolated.py around the process, which removes all of it."""

    why_no_faults = None

    # The range for tests of networks. No other one here is affected.
    ADDRESS = "198.18.0.{}"

    def __init__(self, folder: Path, store_bytes: int):
        self._folder = folder
        self._store_bytes = store_bytes
        self._places: list[Place] = []
        run("ip", "link", "add", "fleet", "type", "bridge")
        run("ip", "address", "add", self.ADDRESS.format(1) + "/24", "dev", "fleet")
        run("ip", "link", "set", "fleet", "up")

    def place(self, number: int) -> Place:
        name = f"hub{number}"
        address = self.ADDRESS.format(10 + number)
        run("ip", "netns", "add", name)
        run("ip", "link", "add", name, "type", "veth", "peer", "name", "eth0", "netns", name)
        run("ip", "-n", name, "address", "add", address + "/24", "dev", "eth0")
        run("ip", "-n", name, "link", "set", "eth0", "up")
        run("ip", "-n", name, "link", "set", "lo", "up")
        run("ip", "link", "set", name, "master", "fleet", "up")
        store = self._folder / name
        store.mkdir()
        run("mount", "-t", "tmpfs", "-o", f"size={self._store_bytes}", "none", store)
        place = Place(name, address, (4222, 6222, 8222), ("ip", "netns", "exec", name), store)
        self._places.append(place)
        return place

    def end(self) -> None:
        """When no server runs any more."""
        for place in self._places:
            run("ip", "netns", "delete", place.name)
            run("umount", "--lazy", place.store)
        run("ip", "link", "delete", "fleet")

    # As if its cable hung between two switches: nobody is told, packets just do not arrive.
    def cut(self, place: Place) -> None:
        run("ip", "link", "set", place.name, "nomaster")

    def join(self, place: Place) -> None:
        run("ip", "link", "set", place.name, "master", "fleet")


class Loopback:
    """For machines that permit no namespaces. Cuts no cables and fills no disks."""

    def __init__(self, folder: Path, store_bytes: int):
        del store_bytes
        self.why_no_faults = os.environ.get(SHARED, "isolated.py is not around this process")
        self._folder = folder

    def place(self, number: int) -> Place:
        name = f"hub{number}"
        store = self._folder / name
        store.mkdir()
        return Place(name, "127.0.0.1", _free_ports(), (), store)

    def end(self) -> None:
        """Nothing is left of it."""


def _free_ports() -> tuple[int, int, int]:
    sockets = [socket.create_server(("127.0.0.1", 0)) for _ in range(3)]
    ports = tuple(each.getsockname()[1] for each in sockets)
    for each in sockets:
        each.close()
    return ports


def inside() -> bool:
    """Whether isolated.py is around this process: nothing else has only a loopback device, or
    what we have added."""
    return SHARED not in os.environ and {name for _, name in socket.if_nameindex()} <= {
        "lo", "fleet", "hub1", "hub2", "hub3"}
