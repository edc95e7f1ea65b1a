"""What befalls a fleet, in random order.

Faults of servers come one after the other, since three copies outlive the loss of one; so do those
of the programs. One of each kind may come together.
"""

from __future__ import annotations

import collections
import random
import threading
import time
from collections.abc import Callable

from cluster import Cluster
from members import Sensor, Subscriber


class Lane(threading.Thread):
    """Faults one after the other, each healed before the next."""

    def __init__(self, name: str, faults: dict[str, Callable[[], None]],
                 check: Callable[[], None], seed: int, deadline: float,
                 pause: tuple[float, float]):
        super().__init__(name=name, daemon=True)
        self.done: collections.Counter[str] = collections.Counter()
        self.error: BaseException | None = None
        self._faults = faults
        self._check = check
        self._random = random.Random(f"{seed} {name}")
        self._deadline = deadline
        self._pause = pause

    def run(self) -> None:
        try:
            while time.monotonic() < self._deadline or len(self.done) < len(self._faults):
                kinds = list(self._faults)
                self._random.shuffle(kinds)
                for kind in kinds:
                    if time.monotonic() > self._deadline and self.done[kind] > 0:
                        continue
                    time.sleep(self._random.uniform(*self._pause))
                    self._check()
                    self._faults[kind]()
                    self.done[kind] += 1
        except BaseException as error:  # pylint: disable=broad-except
            self.error = error


class Faults:
    def __init__(self, cluster: Cluster, sensors: list[Sensor], subscriber: Subscriber, *,
                 seed: int, seconds: float, short: bool):
        self._cluster = cluster
        self._sensors = sensors
        self._subscriber = subscriber
        self._random = random.Random(seed)
        self._start = time.monotonic()
        # How long a fault lasts.
        self._lasts = (4.0, 8.0) if short else (8.0, 20.0)
        self._consumer_stops = 12.0 if short else 60.0
        of_servers = {"leader killed": self.kill_leader}
        self.skipped: dict[str, str] = {}
        for kind, fault in {"follower cut off": self.cut_follower,
                            "disk full": self.fill_disk}.items():
            if cluster.why_no_faults:
                self.skipped[kind] = cluster.why_no_faults
            else:
                of_servers[kind] = fault
        of_programs = {
            "consumer stopped": self.stop_consumer,
            "publisher and application killed": lambda: self.kill_publisher(True),
            "publisher killed": lambda: self.kill_publisher(False),
        }
        pause = (0.5, 2.0) if short else (2.0, 10.0)
        deadline = self._start + seconds
        self._lanes = [Lane(name, faults, subscriber.require_life, seed, deadline, pause)
                       for name, faults in (("servers", of_servers), ("programs", of_programs))]

    def run(self) -> dict[str, int]:
        """How often each kind happened. Raises what went wrong with a fault itself."""
        for lane in self._lanes:
            lane.start()
        for lane in self._lanes:
            lane.join()
            if lane.error is not None:
                raise lane.error
        return {kind: count for lane in self._lanes for kind, count in lane.done.items()}

    def _say(self, text: str) -> None:
        print(f"{time.monotonic() - self._start:7.1f} s  {text}", flush=True)

    def _last(self) -> None:
        time.sleep(self._random.uniform(*self._lasts))

    def _heal_servers(self) -> None:
        begin = time.monotonic()
        try:
            self._cluster.wait_for_health()
        except TimeoutError:
            # A copy of this version's server may stop to catch up after a full disk; whoever runs
            # it starts it again.
            for server in self._cluster.servers:
                server.end()
                server.start()
                self._cluster.wait_for_leader()
                self._say(f"  {server.name} is started again, because copies do not catch up")
            self._cluster.wait_for_health()
        self._say(f"  all servers have everything after {time.monotonic() - begin:.1f} s")

    def kill_leader(self) -> None:
        stream = None
        if self._random.random() < 0.5:
            stream = self._random.choice(self._sensors).stream
        leader = self._cluster.wait_for_leader(stream)
        leader.end()
        self._say(f"{leader.name}, which leads {stream or 'the cluster'}, is killed")
        self._last()
        leader.start()
        self._heal_servers()

    def cut_follower(self) -> None:
        follower = self._random.choice(self._cluster.followers())
        self._cluster.cut(follower)
        self._say(f"{follower.name} is cut off")
        self._last()
        self._cluster.join(follower)
        self._heal_servers()

    def fill_disk(self) -> None:
        server = self._random.choice(self._cluster.servers)
        free = server.fill()
        self._say(f"the disk of {server.name} is full; {free >> 20} MB were free")
        end = time.monotonic() + self._random.uniform(*self._lasts)
        while time.monotonic() < end:
            time.sleep(0.5)
            server.fill()
        gave_up = self._cluster.replace(server)
        self._say(f"  {server.name} {'had stopped to store, and ' if gave_up else ''}is started "
                  "again with an empty store")
        self._heal_servers()

    def stop_consumer(self) -> None:
        self._subscriber.pause()
        self._say(f"the subscriber is stopped for {self._consumer_stops:.0f} s")
        time.sleep(self._consumer_stops)
        self._subscriber.resume()

    def kill_publisher(self, application_too: bool) -> None:
        sensor = self._random.choice(self._sensors)
        sensor.kill(application_too)
        self._say(f"the publisher of {sensor.name} is killed" +
                  (", and its application" if application_too else ""))
        self._last()
        sensor.kill_orphans()
        sensor.start()
