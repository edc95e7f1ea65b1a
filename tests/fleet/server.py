"""One nats-server of a cluster."""

from __future__ import annotations

import contextlib
import errno
import json
import os
import shutil
import subprocess
import time
import urllib.request
from pathlib import Path

from network import Place

CONFIGURATION = """\
server_name: {name}
listen: "{address}:{client}"
http: "{address}:{watch}"
jetstream {{ store_dir: "{store}", max_memory_store: 256MB, max_file_store: 64GB }}
cluster {{ name: fleet, listen: "{address}:{route}", routes: [{routes}] }}
"""
ANSWER_SECONDS = 2
END_SECONDS = 3
FILLER = "filler"


def wait_until(condition, seconds: float, what: str):
    """The first true value of a condition that comes true in time."""
    end = time.monotonic() + seconds
    while not (value := condition()):
        if time.monotonic() > end:
            raise TimeoutError(f"{what}: not within {seconds} s")
        time.sleep(0.1)
    return value


class Server:
    def __init__(self, place: Place, routes: list[str], folder: Path):
        self.place = place
        self.name = place.name
        self.url = f"nats://{place.address}:{place.ports[0]}"
        self._process: subprocess.Popen | None = None
        self._log = folder / f"{self.name}.log"
        self._configuration = folder / f"{self.name}.conf"
        client, route, watch = place.ports
        self._configuration.write_text(CONFIGURATION.format(
            name=self.name, address=place.address, client=client, route=route, watch=watch,
            store=place.store, routes=", ".join(f'"{other}"' for other in routes)))

    def start(self) -> None:
        with self._log.open("ab") as log:
            self._process = subprocess.Popen(
                [*self.place.within, "nats-server", "-c", str(self._configuration)],
                stdin=subprocess.DEVNULL, stdout=log, stderr=log, start_new_session=True)

    def running(self) -> bool:
        return self._process is not None and self._process.poll() is None

    def end(self, gently: bool = False) -> None:
        """Kills it; gently, it is asked first. One whose disk was full may wait for itself then,
        for ever."""
        if self._process is None:
            return
        if gently:
            self._process.terminate()
            with contextlib.suppress(subprocess.TimeoutExpired):
                self._process.wait(END_SECONDS)
        self._process.kill()
        self._process.wait()
        self._process = None

    def ask(self, path: str) -> dict:
        """What it tells watchers; empty if it does not answer."""
        url = f"http://{self.place.address}:{self.place.ports[2]}/{path}"
        try:
            with urllib.request.urlopen(url, timeout=ANSWER_SECONDS) as answer:
                return json.load(answer)
        except (OSError, ValueError):
            return {}

    def stores(self) -> bool:
        """Whether it keeps messages: it stops to for good when its disk was full."""
        facts = self.ask("jsz")
        return bool(facts) and not facts.get("disabled", False)

    def streams(self) -> list[dict]:
        """What it knows about each."""
        accounts = self.ask("jsz?consumers=1").get("account_details", [])
        return [detail for account in accounts for detail in account.get("stream_detail", [])]

    def fill(self) -> int:
        """Leaves no page free on its disk; returns how many bytes were. It goes on to write and to
        remove, so this is to be repeated."""
        filled = 0
        with (self.place.store / FILLER).open("ab") as file:
            disk = os.statvfs(self.place.store)
            step = disk.f_bavail * disk.f_frsize
            while step >= disk.f_frsize:
                try:
                    os.posix_fallocate(file.fileno(), file.tell(), step)
                    file.seek(step, os.SEEK_CUR)
                    filled += step
                except OSError as error:
                    if error.errno != errno.ENOSPC:
                        raise
                    step //= 2
        return filled

    def empty(self) -> None:
        """Removes all that it has stored. It gets everything from the others."""
        for entry in self.place.store.iterdir():
            shutil.rmtree(entry) if entry.is_dir() else entry.unlink()
