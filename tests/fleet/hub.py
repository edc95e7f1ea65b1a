"""One nats-server, as a small fleet has it."""

from __future__ import annotations

import json
import os
import socket
import subprocess
from pathlib import Path

from nats_client import NatsClient
from server import wait_until

START_SECONDS = 10


def free_port() -> int:
    with socket.create_server(("127.0.0.1", 0)) as one:
        return one.getsockname()[1]


def stream_of(sensor: str) -> str:
    return f"tessaline:{sensor.replace('.', ':')}"


class Hub:
    """`more` goes into the configuration. `store`: where it keeps messages; none: nowhere."""

    def __init__(self, folder: Path, more: str = "", *, store: Path | None = None,
                 streams: bool = True):
        self.port = free_port()
        self.url = f"nats://127.0.0.1:{self.port}"
        self.log = folder / "hub.log"
        self._configuration = folder / "hub.conf"
        place = store or folder / "hub"
        self._streams = f'jetstream {{ store_dir: "{place}" }}\n' if streams else ""
        self._process: subprocess.Popen | None = None
        self.configure(more)

    def configure(self, more: str) -> None:
        """For the next start."""
        self._configuration.write_text(
            f'listen: "127.0.0.1:{self.port}"\n{self._streams}{more}\n')

    def start(self) -> "Hub":
        with self.log.open("ab") as log:
            self._process = subprocess.Popen(
                ["nats-server", "-c", str(self._configuration)],
                stdin=subprocess.DEVNULL, stdout=log, stderr=log)
        wait_until(self._answers, START_SECONDS, "the server's first word")
        return self

    def _answers(self) -> bool:
        assert self._process.poll() is None, self.log.read_text()
        try:
            with socket.create_connection(("127.0.0.1", self.port), timeout=1) as one:
                return one.recv(5) == b"INFO "
        except OSError:
            return False

    def kill(self) -> None:
        if self._process is not None:
            self._process.kill()
            self._process.wait()

    def stop(self) -> None:
        """In order."""
        self._process.terminate()
        self._process.wait()

    def unstored(self, sensor: str, subscriber: str = "archive") -> int:
        """How many messages a subscriber has not stored yet."""
        with NatsClient(self.port) as client:
            answer = client.request(f"$JS.API.CONSUMER.INFO.{stream_of(sensor)}.{subscriber}")
        place = json.loads(answer)
        return place.get("num_pending", 0) + place.get("num_ack_pending", 0)

    def pass_over(self, sensor: str, subscriber: str) -> None:
        """Lets a subscriber's place begin behind what is kept now."""
        stream = stream_of(sensor)
        with NatsClient(self.port) as client:
            def ask(request: str, data: dict) -> dict:
                answer = json.loads(client.request(f"$JS.API.{request}", json.dumps(data).encode()))
                assert "error" not in answer, answer
                return answer

            last = ask(f"STREAM.INFO.{stream}", {})["state"]["last_seq"]
            place = ask(f"CONSUMER.INFO.{stream}.{subscriber}", {})["config"]
            ask(f"CONSUMER.DELETE.{stream}.{subscriber}", {})
            place |= {"deliver_policy": "by_start_sequence", "opt_start_seq": last + 1}
            ask(f"CONSUMER.DURABLE.CREATE.{stream}.{subscriber}",
                {"stream_name": stream, "config": place})


def clean_environment(**variables: str) -> dict[str, str]:
    """Ours without what would change the programs."""
    usual = {name: value for name, value in os.environ.items()
             if not name.startswith(("TESSALINE_", "NATS_"))}
    return usual | variables
