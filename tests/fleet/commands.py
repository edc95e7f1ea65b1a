"""The commands of a fleet, as a user gives them."""

from __future__ import annotations

import contextlib
import json
import os
import signal
import subprocess
from pathlib import Path

from hub import clean_environment
from members import session
from server import wait_until

BUILD = Path(os.environ.get("TESSALINE_BUILD") or Path(__file__).parents[2] / "build/dev")
TESSALINE = str(BUILD / "tessaline")
TRUTH = str(BUILD / "truth")
SECONDS = 60


def tool(*words: object, url: str = "", seconds: float = SECONDS,
         **variables: str) -> subprocess.CompletedProcess[str]:
    """Runs a command to its end."""
    if url:
        variables["NATS_URL"] = url
    return subprocess.run([TESSALINE, *map(str, words)], env=clean_environment(**variables),
                          stdin=subprocess.DEVNULL, capture_output=True, text=True,
                          timeout=seconds, check=False)


def _json_in(text: str) -> dict:
    """Behind what the library or the application has printed."""
    return json.loads(text[text.index("{\n"):]) if "{\n" in text else {}


def json_of(*words: object, url: str = "", status: int | None = 0, **variables: str) -> dict:
    done = tool(*words, "--json", url=url, **variables)
    assert status in (None, done.returncode), done.stdout + done.stderr
    return _json_in(done.stdout)


class Running:
    """A command that runs until it is ended."""

    def __init__(self, log: Path, *words: object, url: str = "", **variables: str):
        if url:
            variables["NATS_URL"] = url
        self.log = log
        self.status: int | None = None
        self._out = log.with_suffix(".out")
        with log.open("ab") as errors, self._out.open("wb") as output:
            self.process = subprocess.Popen(
                [TESSALINE, "--json", *map(str, words)], env=clean_environment(**variables),
                stdin=subprocess.DEVNULL, stdout=output, stderr=errors, start_new_session=True)

    def running(self) -> bool:
        return self.process.poll() is None

    def send(self, number: int) -> None:
        self.process.send_signal(number)

    def wait(self, seconds: float = SECONDS) -> int:
        try:
            return self.process.wait(seconds)
        finally:
            self.kill()

    def end(self, number: int = signal.SIGINT, seconds: float = SECONDS) -> dict:
        """Ends it in order; returns what it has said."""
        self.send(number)
        return self.result(seconds)

    def result(self, seconds: float = SECONDS) -> dict:
        self.status = self.wait(seconds)
        return _json_in(self._out.read_text())

    def stop(self) -> dict:
        """Ctrl-C, as for a publisher whose application also ends by it; it must send all."""
        said = self.end(signal.SIGINT)
        assert self.status in (0, -signal.SIGINT), self.log.read_text()
        assert said["waiting"] == 0, said
        return said

    def kill(self) -> None:
        """Also what it has started."""
        for process in session(self.process.pid):
            with contextlib.suppress(ProcessLookupError):
                os.kill(process, signal.SIGKILL)
        self.process.wait()

    def kill_alone(self) -> None:
        """As when its memory runs out. What it has started lives on."""
        self.process.kill()
        self.process.wait()


class Publisher(Running):
    """A sensor whose application notes what it was handed."""

    def __init__(self, folder: Path, name: str, url: str, number: int, *options: object,
                 spacing: int = 5000, images: bool = False, **variables: str):
        self.name = name
        self.truth = folder / f"{name}.{number}.truth"
        super().__init__(folder / f"{name}.{number}.log", "publish", "--name", name, "--virtual",
                         "K3610", *options, "--", TRUTH, self.truth, "--spacing", spacing,
                         *(["--images"] if images else []), url=url, **variables)

    def wait_for_frames(self, size: int = 500) -> "Publisher":
        def there():
            assert self.running(), self.log.read_text()
            return self.truth.exists() and self.truth.stat().st_size > size
        wait_until(there, 20, "an application with frames")
        return self
