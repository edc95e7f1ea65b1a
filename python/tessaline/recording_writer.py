"""Recordings, written."""

from __future__ import annotations

import json
import os
import threading
import time
import weakref
from collections.abc import Mapping
from typing import Any

import numpy as np
import numpy.typing as npt

from . import _recordings, _rules
from ._calls import ALL_ONES, ALL_ONES_64, number
from .buffers import _HEADER_BYTES, Image, StripBuffer
from .errors import RecordingError, RefusedError, StripError
from .recorded import (
    RecordedDevice,
    RecordedImage,
    RecordedMessage,
    RecordedPicture,
    RecordedPoints,
    RecordedStrips,
    _Small,
)

__all__ = ["RecordingWriter"]

BytesLike = bytes | bytearray | memoryview | npt.NDArray[Any]

_SYNC_S = 1.0
# Seconds of a message's stamp have 31 bits.
_MOST_STAMP = (1 << 31) * 1_000_000_000 - 1
# What a message has around its data.
_AROUND = 128


class RecordingWriter:
    """A new recording, made by ``Recording.create()``. Leaving the ``with`` block ends it properly.

    ::

        with tessaline.Recording("run.db3") as run, tessaline.Recording.create("cut.db3") as cut:
            for message in run.messages(start=10, end=20):
                cut.write(message)

    What was written is on the disk a second later, and when ``sync()`` or ``close()`` has returned:
    it then survives the end of the process and a power cut. A recording that nobody closed is read
    like any other, and ``Recording.closed`` tells.

    When writing fails, as on a full disk, so does all that follows, for the same reason. The file
    then ends where it was synced last.

    While SQLite works, other threads run. Threads: any; calls wait for each other. A forked child
    cannot write, and does the recording no harm.
    """

    def __init__(
        self,
        path: str | os.PathLike[str],
        *,
        model: str | None = None,
        device: Mapping[str, Any] | None = None,
    ) -> None:
        """Use ``Recording.create()``."""
        about = dict(device or {})
        if model is not None:
            if not isinstance(model, str):
                raise TypeError(f"model must be a str such as 'K3610', not {type(model).__name__}")
            _rules.product(model)
            about["model"] = model
        text = json.dumps(about, allow_nan=False)
        self._path = os.path.abspath(path)
        self._native = _recordings.Writer(os.fsencode(path))
        self._failed = False
        stop = threading.Event()
        # Also when it is forgotten, and at the end of Python.
        self._end = weakref.finalize(self, _end, self._native, stop)
        threading.Thread(
            target=_sync_each_second,
            args=(self._native, stop),
            name="tessaline-recording",
            daemon=True,
        ).start()
        if about:
            self.write(RecordedDevice(time.time_ns(), text))

    @property
    def path(self) -> str:
        """Of the file, absolute."""
        return self._path

    @property
    def closed(self) -> bool:
        """Whether ``close()`` was called."""
        return not self._end.alive

    def __repr__(self) -> str:
        return f"<RecordingWriter {os.path.basename(self._path)!r}>"

    def write(self, message: RecordedMessage | StripBuffer | Image) -> None:
        """Appends a message.

        Args:
            message: one of a recording, which is copied byte for byte with its stamp; or one made
                by the program, such as ``RecordedEvent(time.time_ns(), "door", 1)``; or a frame of
                a live sensor, which gets the stamp of now.

        Raises:
            OSError: it cannot be written; the disk is full, for one.
            RefusedError: a field is out of range.
            RecordingError: the recording is closed, or belongs to another process.
        """
        if isinstance(
            message, (RecordedStrips, RecordedImage, RecordedPoints, RecordedPicture)
        ):
            self._do("put_coded", message._topic, message.stamp_ns, message._cdr)
        elif isinstance(message, StripBuffer):
            self.write_strips(message)
        elif isinstance(message, Image):
            self.write_image(message)
        elif not isinstance(message, _Small):
            raise TypeError(f"a {type(message).__name__} is no message of a recording")
        elif message._cdr is not None:
            self._do("put_coded", message._topic, message.stamp_ns, message._cdr)
        else:
            self._put(message._topic, message.stamp_ns, message._fields())

    def write_strips(
        self,
        strips: StripBuffer | BytesLike,
        count: int | None = None,
        point_bytes: int | None = None,
        *,
        stamp_ns: int | None = None,
    ) -> None:
        """Appends strips.

        Args:
            strips: a buffer of ``Sensor.strips()`` during its turn; or bytes, in which strips lie
                one behind the other.
            count: of the strips, for bytes.
            point_bytes: of a point, for bytes: 8, 4 or 2.
            stamp_ns: when they came, nanoseconds since 1970; None: now.

        Raises:
            StripError: so many strips do not fit the bytes.
            BufferReturned: the buffer's turn is over.
            Else as ``write()``.
        """
        if isinstance(strips, StripBuffer):
            data: BytesLike = strips.raw
            count, point_bytes = len(strips), strips.point_bytes
        else:
            data = strips
            count = number("count", count, 0, ALL_ONES)
            point_bytes = number("point_bytes", point_bytes, 2, 8)
            if point_bytes not in (8, 4, 2):
                raise RefusedError(f"there are no points of {point_bytes} bytes", "8, 4 or 2")
            _require_strips(data, count, point_bytes)
        self._put(RecordedStrips._topic, stamp_ns, (count, point_bytes, data), data)

    def write_image(
        self,
        image: Image | npt.NDArray[np.uint8],
        *,
        frame_id: int = 0,
        time_stamp: int = 0,
        encoder_stamp: int = 0,
        stamp_ns: int | None = None,
    ) -> None:
        """Appends an image.

        Args:
            image: one of ``Sensor.images()`` during its turn, which brings its stamps; or grey
                values of shape (height, width), uint8.
            frame_id: for grey values: counted from 1.
            time_stamp: for grey values: of the exposure, ticks of 20 ns.
            encoder_stamp: for grey values: counts.
            stamp_ns: when it came, nanoseconds since 1970; None: now.

        Raises:
            BufferReturned: the image's turn is over.
            TypeError: these are no grey values.
            Else as ``write()``.
        """
        if isinstance(image, Image):
            width, height, data = image.width, image.height, image.raw
        else:
            pixels = np.asarray(image)
            if pixels.ndim != 2 or pixels.dtype != np.uint8:
                raise TypeError(
                    f"an image has two dimensions of uint8, not {pixels.ndim} of {pixels.dtype}"
                )
            height, width = pixels.shape
            stamps = (("frame_id", frame_id), ("time_stamp", time_stamp),
                      ("encoder_stamp", encoder_stamp))
            header = [number(name, value, 0, ALL_ONES_64) for name, value in stamps]
            data = np.concatenate(
                [pixels.ravel(), np.array([*header, 0], dtype="<u8").view(np.uint8)]
            )
        self._put(RecordedImage._topic, stamp_ns, (width, height, data), data)

    def sync(self) -> None:
        """When it returns, what was written survives a power cut. Errors as of ``write()``."""
        self._do("sync")

    def close(self) -> None:
        """Ends the recording properly. A second time it does nothing.

        Raises:
            OSError: what was left could not be written.
        """
        ending = self._end.detach()
        if ending is None:
            return
        _, end, arguments, _ = ending
        try:
            end(*arguments)
        except (OSError, RecordingError):
            # A failure is told once.
            if not self._failed:
                raise

    def __enter__(self) -> RecordingWriter:
        return self

    def __exit__(self, *_: object) -> None:
        self.close()

    def _put(
        self,
        topic: int,
        stamp_ns: int | None,
        fields: tuple[Any, ...],
        data: BytesLike = b"",
    ) -> None:
        stamp = time.time_ns() if stamp_ns is None else number(
            "stamp_ns", stamp_ns, 0, _MOST_STAMP
        )
        size = _bytes_of(data) + sum(
            4 * len(field) for field in fields if isinstance(field, str)
        )
        if size > _recordings.MOST_BYTES - _AROUND:
            raise RefusedError(f"a message of {size} bytes", "a recording takes at most 64 MiB")
        self._do("put", topic, stamp, fields)

    def _do(self, name: str, *arguments: Any) -> None:
        try:
            getattr(self._native, name)(*arguments)
        except (OSError, RecordingError):
            self._failed = True
            raise


def _bytes_of(data: Any) -> int:
    return memoryview(data).nbytes


def _require_strips(data: BytesLike, count: int, point_bytes: int) -> None:
    table = _recordings.StripTable(count, data, point_bytes)
    at, points, *_ = table[-1] if len(table) else (-_HEADER_BYTES, 0)
    if len(table) == count and at + _HEADER_BYTES + points * point_bytes == _bytes_of(data):
        return
    raise StripError(
        f"{count} strips do not fit into {_bytes_of(data)} bytes",
        "give the bytes and the number of strips as they were received, and their point_bytes",
    )


def _sync_each_second(native: _recordings.Writer, stop: threading.Event) -> None:
    while not stop.wait(_SYNC_S):
        try:
            native.sync()
        except (OSError, RecordingError):
            return  # the next call of the program tells


def _end(native: _recordings.Writer, stop: threading.Event) -> None:
    stop.set()
    native.close()
