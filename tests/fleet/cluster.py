"""Three servers that keep every message three times, and what happens to them in years of use."""

from __future__ import annotations

import time
from pathlib import Path

import network
from server import Server, wait_until

SERVERS = 3
START_SECONDS = 60
HEALTH_SECONDS = 120
SETTLED_SECONDS = 2  # what they know of each other is that old at most


class Cluster:
    """Starts with the block of a with statement, and ends with it."""

    def __init__(self, folder: Path, store_bytes: int = 2 << 30):
        make = network.Bridge if network.inside() else network.Loopback
        self._network = make(folder, store_bytes)
        # Why cables cannot be cut and disks not be filled here; none if they can.
        self.why_no_faults: str | None = self._network.why_no_faults
        places = [self._network.place(number) for number in range(1, SERVERS + 1)]
        routes = [f"nats://{place.address}:{place.ports[1]}" for place in places]
        self.servers = [Server(place, routes, folder) for place in places]

    def __enter__(self) -> "Cluster":
        try:
            for server in self.servers:
                server.start()
            wait_until(self.healthy, START_SECONDS, "a cluster with a leader")
        except BaseException:
            self.end()
            raise
        return self

    def __exit__(self, *_) -> None:
        self.end()

    def end(self) -> None:
        for server in self.servers:
            server.end()
        self._network.end()

    @property
    def urls(self) -> str:
        """For the option --server."""
        return ",".join(server.url for server in self.servers)

    def leader(self, stream: str | None = None) -> Server | None:
        """Who leads the cluster, or the copies of a stream; none while nobody does."""
        for server in self.servers:
            name = self._leader_by(server, stream)
            for candidate in self.servers:
                if candidate.name == name and candidate.running():
                    return candidate
        return None

    @staticmethod
    def _leader_by(server: Server, stream: str | None) -> str | None:
        if stream is None:
            return server.ask("jsz").get("meta_cluster", {}).get("leader")
        return next((detail.get("cluster", {}).get("leader") for detail in server.streams()
                     if detail["name"] == stream), None)

    def wait_for_leader(self, stream: str | None = None) -> Server:
        return wait_until(lambda: self.leader(stream), HEALTH_SECONDS, "a leader")

    def followers(self) -> list[Server]:
        leader = self.wait_for_leader()
        return [server for server in self.servers if server is not leader]

    def healthy(self) -> bool:
        """Whether all three store, and the leader of every stream finds both others up to date.

        /healthz would not do: a server that came back says for ever that an idle consumer is not
        current, until the consumer's next message.
        """
        if self.leader() is None or not all(server.stores() for server in self.servers):
            return False
        streams = set()
        whole = set()
        for server in self.servers:
            for detail in server.streams():
                streams.add(detail["name"])
                cluster = detail.get("cluster", {})
                replicas = cluster.get("replicas", [])
                if cluster.get("leader") == server.name and all(
                        replica["current"] and not replica.get("offline") for replica in replicas):
                    whole.add(detail["name"])
        return streams == whole

    def wait_for_health(self) -> None:
        """Until every server has everything again, and not only for a moment."""
        wait_until(lambda: self.healthy() and not time.sleep(SETTLED_SECONDS) and self.healthy(),
                   HEALTH_SECONDS, "three servers that have the same")

    def cut(self, server: Server) -> None:
        self._network.cut(server.place)

    def join(self, server: Server) -> None:
        self._network.join(server.place)

    def replace(self, server: Server) -> bool:
        """Starts it again with an empty store; returns whether it had given up storing.

        What it wrote to a full disk may be torn. With a torn copy of what the cluster knows it may
        become the leader, and then knows only some of the streams.
        """
        gave_up = not server.stores()
        server.end(gently=True)
        server.empty()
        server.start()
        return gave_up
