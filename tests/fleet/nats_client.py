"""A client of our own that does what no command of ours would: for attacks, and for garbage."""

from __future__ import annotations

import base64
import dataclasses
import json
import os
import socket
import time

from cryptography.hazmat.primitives.asymmetric.ed25519 import Ed25519PrivateKey

ANSWER_SECONDS = 3


@dataclasses.dataclass
class NatsMessage:
    subject: str
    reply: str
    headers: dict[str, str]
    data: bytes


class Refused(Exception):
    """The server has said -ERR."""


def _secret_half(seed: str) -> bytes:
    raw = base64.b32decode(seed + "=" * (-len(seed) % 8))
    return raw[2:34]


def _headers_in(data: bytes) -> dict[str, str]:
    lines = data.decode().split("\r\n")[1:]
    return dict(line.split(": ", 1) for line in lines if ": " in line)


class NatsClient:
    """`seed`: the secret half of an NKey, as `tessaline fleet key` writes it."""

    def __init__(self, port: int, *, seed: str | None = None, public_key: str | None = None,
                 inbox: str = "_INBOX.test"):
        self._inbox = inbox
        self._buffer = b""
        self._subscriptions = 0
        self._socket = socket.create_connection(("127.0.0.1", port), timeout=ANSWER_SECONDS)
        self.info = json.loads(self._line().removeprefix(b"INFO "))
        connect = {"verbose": False, "pedantic": False, "headers": True, "no_responders": True,
                   "lang": "python", "version": "1", "protocol": 1}
        if seed is not None:
            signature = Ed25519PrivateKey.from_private_bytes(_secret_half(seed)).sign(
                self.info["nonce"].encode())
            connect |= {"nkey": public_key,
                        "sig": base64.urlsafe_b64encode(signature).decode().rstrip("=")}
        self._socket.sendall(b"CONNECT " + json.dumps(connect).encode() + b"\r\n")
        self.flush()

    def __enter__(self) -> "NatsClient":
        return self

    def __exit__(self, *_) -> None:
        self._socket.close()

    def _line(self) -> bytes:
        while b"\r\n" not in self._buffer:
            self._fill()
        line, self._buffer = self._buffer.split(b"\r\n", 1)
        return line

    def _fill(self) -> None:
        piece = self._socket.recv(1 << 16)
        if not piece:
            raise ConnectionError("the server has hung up")
        self._buffer += piece

    def _take(self, size: int) -> bytes:
        while len(self._buffer) < size + 2:
            self._fill()
        data, self._buffer = self._buffer[:size], self._buffer[size + 2:]
        return data

    def _next(self) -> NatsMessage | None:
        """None: not a message, but the answer to a ping."""
        while True:
            words = self._line().decode().split(" ")
            match words[0]:
                case "PING":
                    self._socket.sendall(b"PONG\r\n")
                case "PONG":
                    return None
                case "-ERR":
                    raise Refused(" ".join(words[1:]))
                case "MSG":
                    data = self._take(int(words[-1]))
                    return NatsMessage(words[1], words[3] if len(words) == 5 else "", {}, data)
                case "HMSG":
                    head = int(words[-2])
                    data = self._take(int(words[-1]))
                    return NatsMessage(words[1], words[3] if len(words) == 6 else "",
                                       _headers_in(data[:head]), data[head:])

    def flush(self) -> None:
        """Until the server has seen everything; raises Refused if it did not like something."""
        self._socket.sendall(b"PING\r\n")
        refused = None
        while True:
            try:
                if self._next() is None:
                    break
            except Refused as now:
                refused = now
        if refused is not None:
            raise refused

    def publish(self, subject: str, data: bytes = b"", headers: dict[str, str] | None = None,
                reply: str = "") -> None:
        words = f"{subject} {reply} ".replace("  ", " ")
        if headers is None:
            self._socket.sendall(f"PUB {words}{len(data)}\r\n".encode() + data + b"\r\n")
            return
        head = "NATS/1.0\r\n" + "".join(f"{name}: {text}\r\n" for name, text in headers.items())
        head = (head + "\r\n").encode()
        self._socket.sendall(f"HPUB {words}{len(head)} {len(head) + len(data)}\r\n".encode() +
                             head + data + b"\r\n")

    def subscribe(self, subject: str) -> None:
        self._subscriptions += 1
        self._socket.sendall(f"SUB {subject} {self._subscriptions}\r\n".encode())

    def receive(self, seconds: float = ANSWER_SECONDS) -> NatsMessage | None:
        """The next message; none if there is none in that time."""
        self._socket.settimeout(seconds)
        try:
            while (message := self._next()) is None:
                pass
            return message
        except TimeoutError:
            return None
        finally:
            self._socket.settimeout(ANSWER_SECONDS)

    def request(self, subject: str, data: bytes = b"", seconds: float = ANSWER_SECONDS) -> bytes:
        """The answer; empty if nobody listens."""
        reply = f"{self._inbox}.{os.urandom(6).hex()}"
        self.subscribe(reply)
        self.publish(subject, data, reply=reply)
        end = time.monotonic() + seconds
        while time.monotonic() < end:
            message = self.receive(max(0.01, end - time.monotonic()))
            if message is not None and message.subject == reply:
                return message.data
        return b""
