"""The programs that use the cluster: sensors that publish, and a subscriber that stores."""

from __future__ import annotations

import contextlib
import dataclasses
import os
import signal
import subprocess
from pathlib import Path

from server import wait_until

END_SECONDS = 180  # with everything that still waits


@dataclasses.dataclass(frozen=True)
class Programs:
    """Of a build."""
    build: Path

    @property
    def tessaline(self) -> str:
        return str(self.build / "tessaline")

    @property
    def truth(self) -> str:
        return str(self.build / "truth")


def _clean_environment() -> dict[str, str]:
    return {name: value for name, value in os.environ.items()
            if not name.startswith(("TESSALINE_", "NATS_"))}


def _start(command: list[str], output: Path) -> subprocess.Popen:
    with output.open("ab") as file:
        # Ctrl-C is for the proof, which ends them in order.
        return subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=file, stderr=file,
                                env=_clean_environment(), start_new_session=True)


def session(number: int) -> list[int]:
    """The processes that a process started in its session, and itself."""
    found = []
    for entry in Path("/proc").iterdir():
        with contextlib.suppress(OSError, ValueError):
            fields = (entry / "stat").read_text().rpartition(")")[2].split()
            if int(fields[3]) == number and fields[0] != "Z":
                found.append(int(entry.name))
    return found


class Sensor:
    """One head of a line: a publisher, and the application whose frames it sends."""

    def __init__(self, name: str, programs: Programs, urls: str, folder: Path, *,
                 spacing_us: int, images: bool, store: bool):
        self.name = name
        self.logs: list[Path] = []
        self.killed: set[Path] = set()  # of the logs: with their publisher
        self._folder = folder
        self._publish = [programs.tessaline, "publish", "--server", urls, "--name", name,
                         "--virtual", "K3610", "--drain", str(END_SECONDS // 2)]
        if store:
            self._publish += ["--store", str(folder / f"{name}.store")]
        self._application = [programs.truth, "--spacing", str(spacing_us),
                             *(["--images"] if images else [])]
        self._process: subprocess.Popen | None = None
        self._orphans: list[int] = []

    @property
    def stream(self) -> str:
        return "tessaline:" + self.name.replace(".", ":")

    def start(self) -> None:
        log = self._folder / f"{self.name}.{len(self.logs) + 1}.truth"
        self.logs.append(log)
        self._process = _start([*self._publish, "--", *self._application, str(log)],
                               self._folder / f"{self.name}.log")

    def running(self) -> bool:
        return self._process is not None and self._process.poll() is None

    def delivers(self) -> bool:
        """Whether its application has had frames since the start."""
        with contextlib.suppress(OSError):
            return self.logs[-1].stat().st_size > 100
        return False

    def kill(self, application_too: bool) -> None:
        if not self.running():
            raise RuntimeError(f"the publisher of {self.name} has ended by itself")
        self.killed.add(self.logs[-1])
        members = session(self._process.pid)
        for process in members if application_too else [self._process.pid]:
            with contextlib.suppress(ProcessLookupError):
                os.kill(process, signal.SIGKILL)
        status = self._process.wait()
        if status != -signal.SIGKILL:
            raise RuntimeError(f"the publisher of {self.name} has ended with {status}")
        self._orphans = [] if application_too else members

    def kill_orphans(self) -> None:
        """The application whose publisher was killed."""
        for process in self._orphans:
            with contextlib.suppress(ProcessLookupError):
                os.kill(process, signal.SIGKILL)
        self._orphans = []

    def begin_end(self) -> None:
        self._process.send_signal(signal.SIGINT)

    def end(self) -> int:
        """Waits until all is sent; returns the exit status."""
        try:
            return self._process.wait(END_SECONDS)
        finally:
            self.abandon()

    def abandon(self) -> None:
        if self._process is not None and self.running():
            self.kill(application_too=True)
        self._process = None
        self.kill_orphans()


class Subscriber:
    """Stores what all sensors send."""

    def __init__(self, programs: Programs, urls: str, folder: Path, pattern: str = ">"):
        self.recording = folder / "all.db3"
        self._log = folder / "subscriber.log"
        self._command = [programs.tessaline, "subscribe", pattern, "-o", str(self.recording),
                         "--server", urls]
        self._process: subprocess.Popen | None = None

    def start(self) -> None:
        self._process = _start(self._command, self._log)

    def wait_for_start(self) -> None:
        wait_until(lambda: self.recording.exists() or self._process.poll() is not None, 30,
                   "the subscriber's recording")
        self.require_life()

    def require_life(self) -> None:
        """It has to outlive all that befalls the others."""
        if self._process.poll() is not None:
            raise RuntimeError(f"the subscriber has ended: {self._log.read_text()}")

    def pause(self) -> None:
        self._process.send_signal(signal.SIGSTOP)

    def resume(self) -> None:
        self._process.send_signal(signal.SIGCONT)

    def end(self) -> int:
        self.resume()
        self._process.send_signal(signal.SIGINT)
        try:
            return self._process.wait(END_SECONDS)
        finally:
            self.abandon()

    def abandon(self) -> None:
        if self._process is not None and self._process.poll() is None:
            self._process.kill()
            self._process.wait()
