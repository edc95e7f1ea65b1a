"""Streams: a client for tests, and the messages."""

from __future__ import annotations

import array
import asyncio
import base64
import dataclasses
import os
import socket
import struct
import sys
import time

import websockets
from daemon import Daemon

HEADER = struct.Struct("<4sHHQQQdIIHHHHII")
# 1000 profiles a second, in buffers of ten.
FAST = {"spacing": 1000, "region": {"x": 0, "y": 700, "width": 1456, "height": 200}}
WHOLE = {"spacing": 4000, "region": {"x": 0, "y": 0, "width": 1456, "height": 1088}}
assert HEADER.size == 64 and sys.byteorder == "little"


@dataclasses.dataclass
class Message:
    """A profile or an image, taken apart by the description of the format alone."""

    arrived: float
    data: bytes

    def __post_init__(self):
        (self.magic, self.version, self.header_bytes, self.frame_id, self.time_stamp,
         self.encoder_stamp, self.host_seconds, self.first, self.second, *region, self.step,
         self.generation) = HEADER.unpack_from(self.data)
        self.region = dict(zip(("x", "y", "width", "height"), region))
        self.payload = self.data[HEADER.size:]

    def points(self) -> tuple[array.array, array.array, bytes]:
        """x, z and peak."""
        count = self.first
        assert len(self.payload) == 9 * count
        x, z = array.array("f"), array.array("f")
        x.frombytes(self.payload[:4 * count])
        z.frombytes(self.payload[4 * count:8 * count])
        return x, z, self.payload[8 * count:]


def address(daemon: Daemon, name: str, rate: object = None) -> str:
    query = "" if rate is None else f"?rate={rate}"
    return f"{daemon.url.replace('http', 'ws', 1)}/api/v1/stream/{name}{query}"


def connect(daemon: Daemon, name: str, rate: object = None):
    return websockets.connect(address(daemon, name, rate), max_size=None, compression=None,
                              ssl=daemon.tls, open_timeout=10, close_timeout=5)


@dataclasses.dataclass
class Text:
    """A message of the stream of states."""

    arrived: float
    data: str


async def collect(daemon: Daemon, name: str, seconds: float, rate: object = None) -> list:
    """What comes in so many seconds, from the first message on."""
    kind = Text if name == "state" else Message
    messages = []
    async with connect(daemon, name, rate) as stream:
        messages.append(kind(time.monotonic(), await asyncio.wait_for(stream.recv(), 10)))
        end = messages[0].arrived + seconds
        while (left := end - time.monotonic()) > 0:
            try:
                data = await asyncio.wait_for(stream.recv(), left)
            except asyncio.TimeoutError:
                break
            messages.append(kind(time.monotonic(), data))
    return messages


def upgrade(name: str, rate: object) -> bytes:
    key = base64.b64encode(os.urandom(16)).decode()
    return (f"GET /api/v1/stream/{name}?rate={rate} HTTP/1.1\r\nHost: 127.0.0.1\r\n"
            "Connection: Upgrade\r\nUpgrade: websocket\r\nSec-WebSocket-Version: 13\r\n"
            f"Sec-WebSocket-Key: {key}\r\n\r\n").encode()


def stalled(daemon: Daemon, name: str, rate: object) -> socket.socket:
    """A client that opens a stream and then reads nothing."""
    connection = daemon.connect(receive_buffer=2048)
    connection.sendall(upgrade(name, rate))
    assert connection.recv(12) == b"HTTP/1.1 101"
    return connection
