"""A daemon for tests, and requests to it."""

from __future__ import annotations

import contextlib
import dataclasses
import http.client
import json
import os
import pathlib
import resource
import select
import signal
import socket
import ssl
import subprocess
import time
import urllib.parse

PROGRAM = pathlib.Path(
    os.environ.get("TESSALINE_SERVE")
    or pathlib.Path(__file__).parents[2] / "build/dev/tessaline-serve"
)
START_SECONDS = 20
END_SECONDS = 10
ANSWER_SECONDS = 10


def tool(*words: object, **variables: str) -> subprocess.CompletedProcess[str]:
    """Runs the command tessaline, which lies beside the daemon."""
    return subprocess.run(
        [PROGRAM.with_name("tessaline"), *map(str, words)],
        env=clean_environment(**variables), capture_output=True, text=True, timeout=30, check=False,
    )


def clean_environment(**variables: str) -> dict[str, str]:
    """Ours without what would change the daemon."""
    usual = {
        name: value for name, value in os.environ.items()
        if not name.startswith(("TESSALINE_", "NOTIFY_", "WATCHDOG_"))
    }
    return usual | variables


def wait_until(condition, seconds: float = 5, what: str = "what was expected"):
    """The first true value of a condition that comes true in time."""
    end = time.monotonic() + seconds
    while not (value := condition()):
        assert time.monotonic() < end, f"{what} did not happen within {seconds} s"
        time.sleep(0.02)
    return value


@dataclasses.dataclass
class Answer:
    status: int
    headers: http.client.HTTPMessage
    body: bytes

    def json(self):
        return json.loads(self.body)


def _without_core_files() -> None:
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))


class Daemon:
    """`tessaline serve` on a virtual board. Its socket is in `folder`."""

    def __init__(self, folder: pathlib.Path, *options: object, form: tuple[str, ...] = ("--json",),
                 stdout: int = subprocess.PIPE, model: str = "K3610",
                 port: object = 0, **variables: str):
        self.folder = folder
        self.errors = folder / "stderr.txt"
        environment = {"TESSALINE_SOCKET": str(folder / "serve.sock")} | variables
        with self.errors.open("wb") as errors:
            self.process = subprocess.Popen(
                [PROGRAM, "--virtual", model, "--port", str(port), *form, *map(str, options)],
                cwd=folder, env=clean_environment(**environment), stdin=subprocess.DEVNULL,
                stdout=stdout, stderr=errors, preexec_fn=_without_core_files,
            )
        self.first_line = b""
        self.tls: ssl.SSLContext | None = None

    def wait_for_start(self) -> "Daemon":
        self.first_line = self.read_until(b"{")
        facts = json.loads(self.first_line)
        assert "error" not in facts, facts
        self.url: str = facts["url"].rstrip("/")
        self.socket = pathlib.Path(facts["socket"])
        self.token_file = pathlib.Path(facts["token_file"])
        self.token = self.token_file.read_text().strip()
        self.pid: int = facts["pid"]
        place = urllib.parse.urlsplit(self.url)
        self.host, self.port = place.hostname, place.port
        return self

    def read_until(self, text: bytes) -> bytes:
        """What it prints until a line with `text` is complete."""
        said = b""
        end = time.monotonic() + START_SECONDS
        while text not in said or not said.endswith(b"\n"):
            ready, _, _ = select.select([self.process.stdout], [], [], end - time.monotonic())
            assert ready, f"no line with {text!r} within {START_SECONDS} s: {said!r}"
            piece = os.read(self.process.stdout.fileno(), 4096)
            assert piece, f"the daemon ended: {said!r} {self.errors.read_text()}"
            said += piece
        return said

    def output(self) -> str:
        """All that it has printed; for daemons that have ended."""
        rest = self.process.stdout.read()
        return (self.first_line + rest).decode() + self.errors.read_text()

    def end(self, number: int = signal.SIGINT, seconds: float = END_SECONDS) -> int:
        """Sends a signal and returns the exit status; fails if it does not end in time."""
        if self.process.poll() is None:
            self.process.send_signal(number)
        try:
            return self.process.wait(seconds)
        except subprocess.TimeoutExpired:
            raise AssertionError(f"it did not end within {seconds} s") from None
        finally:
            self.process.kill()
            self.process.wait()

    # --- Requests

    def request(self, method: str, path: str, body: object = None, *, token: str | None = None,
                host: str | None = None, timeout: float = ANSWER_SECONDS,
                **headers: str) -> Answer:
        """One request on a connection of its own. Bytes and text are sent as they are, the rest
        as JSON. `host`: where to connect; the header is `Host`."""
        if body is not None and not isinstance(body, (bytes, str)):
            body = json.dumps(body)
        names = {name.replace("_", "-"): value for name, value in headers.items()}
        if token is not None:
            names["Authorization"] = f"Bearer {token}"
        place = (host or self.host, self.port)
        connection = (
            http.client.HTTPSConnection(*place, timeout=timeout, context=self.tls)
            if self.tls else http.client.HTTPConnection(*place, timeout=timeout)
        )
        try:
            connection.request(method, path, body, names)
            answer = connection.getresponse()
            return Answer(answer.status, answer.headers, answer.read())
        finally:
            connection.close()

    def get(self, path: str):
        answer = self.request("GET", f"/api/v1/{path}")
        assert answer.status == 200, answer
        return answer.json()

    def write(self, method: str, path: str, body: object = None, status: int = 200):
        """A request with the token, which must be answered with `status`."""
        answer = self.request(method, f"/api/v1/{path}", body, token=self.token)
        assert answer.status == status, answer
        return answer.json()

    def patch(self, **settings: object):
        return self.write("PATCH", "settings", settings)

    def metrics(self) -> str:
        answer = self.request("GET", "/metrics")
        assert answer.status == 200, answer
        return answer.body.decode()

    def connect(self, receive_buffer: int | None = None) -> socket.socket:
        """A bare connection, for what no library would send."""
        connection = socket.socket()
        if receive_buffer is not None:
            connection.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, receive_buffer)
        connection.settimeout(ANSWER_SECONDS)
        connection.connect((self.host, self.port))
        return connection

    def exchange(self, data: bytes) -> bytes:
        """What comes back until the connection ends, in order or by a reset."""
        with self.connect() as connection:
            with contextlib.suppress(OSError):
                connection.sendall(data)
                connection.shutdown(socket.SHUT_WR)
            return read_to_end(connection)


def read_to_end(connection: socket.socket) -> bytes:
    received = b""
    with contextlib.suppress(ConnectionResetError):
        while piece := connection.recv(65536):
            received += piece
    return received


def children(pid: int) -> list[int]:
    """The processes that a process has started, and that run."""
    return [int(child)
            for task in pathlib.Path(f"/proc/{pid}/task").iterdir()
            for child in (task / "children").read_text().split()]


def runs(pid: int) -> bool:
    try:
        text = pathlib.Path(f"/proc/{pid}/stat").read_text()
    except (FileNotFoundError, ProcessLookupError):
        return False
    return text.rpartition(")")[2].split()[0] not in "ZX"
