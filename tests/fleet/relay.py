"""A bad line between a client and a server."""

from __future__ import annotations

import contextlib
import selectors
import socket
import threading
import time

PIECE = 1 << 14


class Relay:
    """Listens on a port of its own. Starts with the block of a with statement."""

    def __init__(self, port: int):
        self._to = port
        self._listener = socket.create_server(("127.0.0.1", 0))
        self.port = self._listener.getsockname()[1]
        self.url = f"nats://127.0.0.1:{self.port}"
        self._pairs: dict[socket.socket, socket.socket] = {}
        self._lock = threading.Lock()
        self._open = True       # whether new connections are taken
        self._stalled = False
        self._swallow = 0       # bytes from clients that are lost before the next cut
        self._stop = threading.Event()
        self._thread = threading.Thread(target=self._run, daemon=True)
        self.bytes = 0

    def __enter__(self) -> "Relay":
        self._thread.start()
        return self

    def __exit__(self, *_) -> None:
        self._stop.set()
        self._thread.join()
        self.cut()
        self._listener.close()

    def cut(self) -> None:
        """Ends all connections with a reset. What is on its way is lost."""
        with self._lock:
            for one in self._pairs:
                with contextlib.suppress(OSError):
                    # Zero seconds to linger: a reset, not an end in order.
                    one.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, b"\1\0\0\0\0\0\0\0")
                one.close()
            self._pairs.clear()
            self._swallow = 0

    def close(self) -> None:
        self._open = False
        self.cut()

    def open(self) -> None:
        self._open = True

    def stall(self, stalled: bool) -> None:
        """Passes nothing on, and tells nobody."""
        self._stalled = stalled

    def swallow(self, size: int) -> None:
        """Loses so many bytes from clients, and cuts then, so that nobody sees half a message."""
        with self._lock:
            self._swallow = size

    def _run(self) -> None:
        while not self._stop.is_set():
            if self._stalled:
                time.sleep(0.01)
                continue
            with self._lock:
                known = list(self._pairs)
            with selectors.DefaultSelector() as selector:
                for one in (self._listener, *known):
                    with contextlib.suppress(ValueError, KeyError):
                        selector.register(one, selectors.EVENT_READ)
                for key, _ in selector.select(0.02):
                    self._serve(key.fileobj)

    def _serve(self, one: socket.socket) -> None:
        if one is self._listener:
            self._accept()
            return
        with self._lock:
            other = self._pairs.get(one)
        if other is None:
            return
        try:
            data = one.recv(PIECE)
            if not data:
                raise ConnectionError
            self.bytes += len(data)
            if self._lost(one, len(data)):
                return
            other.sendall(data)
        except OSError:
            self._drop(one)

    def _lost(self, one: socket.socket, size: int) -> bool:
        with self._lock:
            if self._swallow == 0 or not self._is_client(one):
                return False
            self._swallow = max(0, self._swallow - size)
            over = self._swallow == 0
        if over:
            self.cut()
        return True

    def _is_client(self, one: socket.socket) -> bool:
        return one.getpeername()[1] != self._to

    def _accept(self) -> None:
        client, _ = self._listener.accept()
        if not self._open:
            client.close()
            return
        try:
            server = socket.create_connection(("127.0.0.1", self._to), timeout=2)
        except OSError:
            client.close()
            return
        with self._lock:
            self._pairs |= {client: server, server: client}

    def _drop(self, one: socket.socket) -> None:
        with self._lock:
            other = self._pairs.pop(one, None)
            if other is not None:
                self._pairs.pop(other, None)
                other.close()
        one.close()
