"""A process that takes all frames, as a recorder does, but never reads them."""

from __future__ import annotations

import contextlib
import os
import socket
import urllib.parse

from daemon import Daemon


def ask(daemon: Daemon, **query: object) -> tuple[socket.socket, bytes, list[int]]:
    """The connection, the answer and the descriptors that came with it."""
    connection = socket.socket(socket.AF_UNIX)
    connection.settimeout(10)
    connection.connect(str(daemon.socket))
    connection.sendall(f"GET /api/v1/frames?{urllib.parse.urlencode(query)} HTTP/1.1\r\n"
                       "Host: tessaline\r\nConnection: Upgrade\r\n"
                       "Upgrade: tessaline-ring\r\n\r\n".encode())
    answer, descriptors, _, _ = socket.recv_fds(connection, 4096, 4)
    return connection, answer, list(descriptors)


@contextlib.contextmanager
def opened(daemon: Daemon, **query: object):
    """The ring's descriptor, while the connection lasts."""
    connection, answer, descriptors = ask(daemon, **query)
    try:
        assert answer.startswith(b"HTTP/1.1 101"), answer
        assert len(descriptors) == 1
        yield descriptors[0]
    finally:
        for descriptor in descriptors:
            os.close(descriptor)
        connection.close()
