"""Recordings, read."""

from __future__ import annotations

import math
import os
import weakref
from collections.abc import Iterator, Mapping
from functools import cached_property
from typing import Any, Generic, TypeVar

from . import _recordings
from .errors import RecordingError, RefusedError
from .recorded import (
    KINDS,
    Kind,
    RecordedClock,
    RecordedDevice,
    RecordedEvent,
    RecordedGap,
    RecordedImage,
    RecordedLog,
    RecordedLosses,
    RecordedMessage,
    RecordedPicture,
    RecordedPoints,
    RecordedRegister,
    RecordedStrips,
    read,
)
from .recording_writer import RecordingWriter

__all__ = ["Recording"]

_M = TypeVar("_M")
_NS = 1_000_000_000
_LEAST, _MOST = -(1 << 63), (1 << 63) - 1
#: Of JSON about the device. An honest recording has some kilobytes.
_MOST_DEVICE = 8 << 20


class _Messages(Iterator[_M], Generic[_M]):
    """The messages of some kinds. It has the file open for itself."""

    def __init__(
        self, path: str, sensor: str, kinds: tuple[Kind, ...], first_ns: int, last_ns: int
    ) -> None:
        self._path = path
        self._cursor: _recordings.Cursor | None = _recordings.Cursor(os.fsencode(path), sensor)
        self._cursor.select([KINDS.index(kind) for kind in kinds], first_ns, last_ns)

    def __next__(self) -> _M:
        if self._cursor is None:
            raise _closed(self._path)
        row = self._cursor.next()
        if row is None:
            raise StopIteration
        number, topic, stamp_ns, cdr = row
        try:
            message: _M = read(topic, stamp_ns, cdr)
        except RecordingError as error:
            raise RecordingError(
                f"{self._path}: message {number}: {error.what}",
                error.advice or "next() goes on behind it",
            ) from None
        return message

    def close(self) -> None:
        """Lets go of the file."""
        self._cursor = None


class Recording:
    """A recording of ``tessaline record`` or of ``Recording.create()``, open for reading.

    ::

        with tessaline.Recording("run.db3") as recording:
            for buf in recording.strips(start=10, end=20):
                print(buf.stamp_ns, buf[0].frame_id, buf[0].rows.mean())

    Iterating over it gives all messages in the order in which they came. ``strips()`` and the
    others give one kind. Each loop goes its own way through the file, so there may be several at
    the same time. A message is in memory when its turn comes, and stays as long as it is held; its
    arrays show these bytes and are read-only.

    It needs no device, and loads neither the device library nor the virtual board. While SQLite
    works, other threads run; Ctrl-C ends also a long search.

    Args:
        path: of the file. A recording whose writer was interrupted is tidied up first, which needs
            the right to write.
        sensor: whose messages are read, in a file of several sensors, such as "line3.left"; see
            ``Recording.sensors()``. None: the only one.

    Raises:
        OSError: the file cannot be read; FileNotFoundError, PermissionError and so on.
        RecordingError: it is no recording, damaged, of a newer version, or being written; there is
            no such sensor in it, or there are several and none is named.

    Threads: any. Loops run beside each other; calls of one wait for each other. A forked child
    opens the file anew.
    """

    def __init__(self, path: str | os.PathLike[str], sensor: str | None = None) -> None:
        self._path = os.path.abspath(path)
        self._cursor: _recordings.Cursor | None = _recordings.Cursor(
            os.fsencode(path), sensor or ""
        )
        self._sensor = self._cursor.sensor
        self._loops: weakref.WeakSet[_Messages[Any]] = weakref.WeakSet()
        self._closed_properly = self._cursor.closed
        self._synced_ns = self._cursor.synced_ns
        self._stamps = self._cursor.stamps()

    @staticmethod
    def create(
        path: str | os.PathLike[str],
        *,
        model: str | None = None,
        device: Mapping[str, Any] | None = None,
    ) -> RecordingWriter:
        """Begins a new recording.

        Args:
            path: of the file, which must not exist. Its name should end in ".db3".
            model: code of the product, such as "K3710".
            device: what else is known of the device, for ``Recording.device``.

        Raises:
            FileExistsError: there is such a file. It stays as it is.
            OSError: it cannot be created.
            RefusedError: there is no such product.

        Example::

            with tessaline.Recording.create("new.db3", model="K3710") as writer:
                for buf in sensor.strips(600):
                    writer.write_strips(buf)
        """
        return RecordingWriter(path, model=model, device=device)

    @staticmethod
    def sensors(path: str | os.PathLike[str]) -> list[str]:
        """Names of the sensors in a file; none if it is of one sensor without a name.

        Raises:
            OSError: the file cannot be read.
            RecordingError: it is no recording, damaged, or being written.

        Example::

            for name in tessaline.Recording.sensors("all.db3"):
                print(name, tessaline.Recording("all.db3", name).counts["strips"])
        """
        return _recordings.sensors(os.fsencode(path))

    # --- About it ----------------------------------------------------------------------------

    @property
    def path(self) -> str:
        """Of the file, absolute."""
        return self._path

    @property
    def sensor(self) -> str | None:
        """Whose messages these are, in a file of several sensors; None: it has no name."""
        return self._sensor or None

    @property
    def model(self) -> str:
        """Code of the product; empty if not known. Errors as of ``device``."""
        return str(self.device.get("model", ""))

    @property
    def device(self) -> dict[str, Any]:
        """What is known of the device. Later messages replace what earlier ones said. A new dict.

        Raises:
            RecordingError: a message about it is damaged, or there is more than 8 MiB of it.
        """
        return dict(self._device)

    @cached_property
    def _device(self) -> dict[str, Any]:
        values: dict[str, Any] = {}
        length = 0
        message: RecordedDevice
        for message in self._messages("device"):
            length += len(message.json)
            if length > _MOST_DEVICE:
                raise RecordingError(f"{self._path}: there is too much about the device")
            values.update(message.values)
        return values

    @property
    def closed(self) -> bool:
        """Whether its writer ended it properly. Else what came behind ``synced`` may be missing."""
        return self._closed_properly

    @property
    def synced(self) -> float | None:
        """Stamp of the last message known to be on the disk, seconds since 1970; None: none is."""
        return self._synced_ns / _NS if self._synced_ns else None

    @property
    def start_ns(self) -> int | None:
        """Stamp of the first message, nanoseconds since 1970; None if there is no message."""
        return self._stamps[0] if self._stamps else None

    @property
    def start(self) -> float | None:
        """The same in seconds, as ``time.time()`` has them."""
        return self._stamps[0] / _NS if self._stamps else None

    @property
    def end(self) -> float | None:
        """Stamp of the last message, seconds since 1970; None if there is no message."""
        return self._stamps[1] / _NS if self._stamps else None

    @property
    def duration(self) -> float:
        """Seconds from the first message to the last."""
        return (self._stamps[1] - self._stamps[0]) / _NS if self._stamps else 0.0

    @property
    def counts(self) -> dict[Kind, int]:
        """How many messages of each kind there are. Goes once through the file. A new dict.

        Raises:
            RecordingError: the file is damaged.
        """
        return dict(self._counts)

    @cached_property
    def _counts(self) -> dict[Kind, int]:
        if self._cursor is None:
            raise _closed(self._path)
        return dict(zip(KINDS, self._cursor.counts(), strict=True))

    def seconds_of(self, message: RecordedMessage) -> float:
        """When a message came, seconds since the start: what ``start=`` and ``end=`` mean."""
        return (message.stamp_ns - (self.start_ns or 0)) / _NS

    def __repr__(self) -> str:
        return f"<Recording {os.path.basename(self._path)!r}, {self.duration:.3f} s>"

    # --- Messages ----------------------------------------------------------------------------

    def __iter__(self) -> Iterator[RecordedMessage]:
        return self.messages()

    def messages(
        self, *kinds: Kind, start: float | None = None, end: float | None = None
    ) -> Iterator[RecordedMessage]:
        """Messages in the order in which they came.

        Args:
            kinds: of KINDS, such as "strips", "log"; none: all of them.
            start: the first to take, seconds since the start of the recording.
            end: the first to leave out, likewise.

        Raises:
            RecordingError: in the loop, a message is damaged; ``next()`` goes on behind it. Damage
                of the file's structure ends the loop.
            OSError: the file cannot be read.
            ValueError: there is no such kind.
        """
        for kind in kinds:
            if kind not in KINDS:
                raise ValueError(f"there is no kind {kind!r}, but {', '.join(KINDS)}")
        return self._messages(*(kinds or KINDS), start=start, end=end)

    def strips(
        self, *, start: float | None = None, end: float | None = None
    ) -> Iterator[RecordedStrips]:
        """Deliveries of strips. Arguments and errors as of ``messages()``."""
        return self._messages("strips", start=start, end=end)

    def images(
        self, *, start: float | None = None, end: float | None = None
    ) -> Iterator[RecordedImage]:
        """Images. Arguments and errors as of ``messages()``."""
        return self._messages("images", start=start, end=end)

    def registers(
        self, *, start: float | None = None, end: float | None = None
    ) -> Iterator[RecordedRegister]:
        """Values of registers. Arguments and errors as of ``messages()``."""
        return self._messages("registers", start=start, end=end)

    def events(
        self, *, start: float | None = None, end: float | None = None
    ) -> Iterator[RecordedEvent]:
        """Events. Arguments and errors as of ``messages()``."""
        return self._messages("events", start=start, end=end)

    def losses(
        self, *, start: float | None = None, end: float | None = None
    ) -> Iterator[RecordedLosses]:
        """Counts of what is missing. Arguments and errors as of ``messages()``."""
        return self._messages("losses", start=start, end=end)

    def clock(
        self, *, start: float | None = None, end: float | None = None
    ) -> Iterator[RecordedClock]:
        """Pairs of host clock and FPGA ticks. Arguments and errors as of ``messages()``."""
        return self._messages("clock", start=start, end=end)

    def log(
        self, *, start: float | None = None, end: float | None = None
    ) -> Iterator[RecordedLog]:
        """Lines of the log. Arguments and errors as of ``messages()``."""
        return self._messages("log", start=start, end=end)

    def points(
        self, *, start: float | None = None, end: float | None = None
    ) -> Iterator[RecordedPoints]:
        """Point clouds for viewers. Arguments and errors as of ``messages()``."""
        return self._messages("points", start=start, end=end)

    def pictures(
        self, *, start: float | None = None, end: float | None = None
    ) -> Iterator[RecordedPicture]:
        """Images for viewers. Arguments and errors as of ``messages()``."""
        return self._messages("pictures", start=start, end=end)

    def gaps(
        self, *, start: float | None = None, end: float | None = None
    ) -> Iterator[RecordedGap]:
        """What is missing, and why. Arguments and errors as of ``messages()``."""
        return self._messages("gaps", start=start, end=end)

    def _messages(
        self, *kinds: Kind, start: float | None = None, end: float | None = None
    ) -> _Messages[Any]:
        if self._cursor is None:
            raise _closed(self._path)
        first_ns = _LEAST if start is None else self._stamp("start", start)
        last_ns = _MOST if end is None else self._stamp("end", end) - 1
        loop: _Messages[Any] = _Messages(
            self._path, self._sensor, kinds, first_ns, last_ns
        )
        self._loops.add(loop)
        return loop

    def _stamp(self, name: str, seconds: float) -> int:
        if not math.isfinite(seconds):
            raise RefusedError(f"{name} is {seconds}", "it is a number of seconds")
        # Beyond what a stamp can be, everything or nothing is meant.
        near = min(max(float(seconds), -1e10), 1e10)
        return min(max((self.start_ns or 0) + round(near * _NS), _LEAST + 1), _MOST)

    def close(self) -> None:
        """Lets go of the file, also in loops. Messages stay. A second time it does nothing."""
        self._cursor = None
        for loop in list(self._loops):
            loop.close()

    def __enter__(self) -> Recording:
        return self

    def __exit__(self, *_: object) -> None:
        self.close()


def _closed(path: str) -> RecordingError:
    return RecordingError(f"{path} is closed", "open it anew with tessaline.Recording(...)")
