"""Plain capture of 8-bit grey frames from a Video4Linux2 device.

Independent of Sensor: for hosts that drive a video device themselves. A device that a Sensor has
started belongs to the library's capture threads; open another one here.
"""

from __future__ import annotations

import os
from collections.abc import Iterator
from dataclasses import dataclass
from typing import Any

import numpy
import numpy.typing

from . import _loader, _said
from ._calls import number
from .errors import DeviceGone, RefusedError, StartUpError, TimeoutError

__all__ = ["Channel", "VideoFrame"]

_WORD = 0xFFFF_FFFF
_LONGEST_SIDE = 1 << 15
_MOST_BUFFERS = 32  # of the kernel
_ADVICE = {
    "open": "is the path that of a capture device, and are you in its group (\"video\")?",
    "format": "the device does not give 8-bit grey frames of this size",
    "size": "ask for the size that the driver makes of it",
    "buffers": "is another program capturing from the device? Else ask for fewer buffers",
}


@dataclass(frozen=True, eq=False)
class VideoFrame:
    """One frame.

    Attributes:
        pixels: (height, width) of uint8, in memory of its own. It stays as it is.
        sequence: the driver's number of the frame.
        index: of the driver's buffer that it came in.
        tag: the channel's.
        time: when the driver got it, seconds of its clock (mostly that of time.monotonic()).
    """

    pixels: numpy.typing.NDArray[numpy.uint8]
    sequence: int
    index: int
    tag: int
    time: float


class Channel:
    """An open capture device with its buffers.

    Args:
        device: path, such as "/dev/video0".
        width: pixels of a row.
        height: rows. The driver must support this size exactly.
        buffers: how many to ask for, 1 to 32. The driver decides, see `buffers`.
        tag: any number of 32 bits; every frame carries it.
        virtual: whether the device is that of this process's virtual board.

    Attributes:
        buffers: number of buffers that the driver granted.

    Each frame is copied once, into an array of its own, and its buffer goes back to the driver at
    once: arrays may be kept. Python's lock is free while a frame is waited for and copied, and
    Ctrl-C ends the wait.

    The library's function that sets a channel up ends the process when a step fails. So each step
    is tried first, and a failure is StartUpError. What remains: the device fails between the trial and
    the real set-up, or its memory cannot be mapped; then the process ends with a line on standard
    error. Starting and stopping do not end the process.

    Threads: any; calls for one channel wait for each other, and close() ends a wait.

    Raises:
        StartUpError: the device cannot be opened, does not capture, does not do this size, or has
            no buffers left.
        RefusedError: a number is out of range.

    Example:
        >>> with Channel("/dev/video0", 1456, 1088) as channel:
        ...     for frame in channel.frames(100):
        ...         show(frame.pixels)
    """

    def __init__(
        self,
        device: str | os.PathLike[str],
        width: int,
        height: int,
        buffers: int = 4,
        *,
        tag: int = 0,
        virtual: bool = False,
    ) -> None:
        size = (
            number("width", width, 1, _LONGEST_SIDE, "pixels"),
            number("height", height, 1, _LONGEST_SIDE, "pixels"),
        )
        count = number("buffers", buffers, 1, _MOST_BUFFERS)
        mark = number("tag", tag, 0, _WORD)
        self._path = os.fspath(device)
        if not isinstance(self._path, str):
            raise TypeError(f"device must be a string, not {type(device).__name__} ({device!r})")
        module = _loader.load(virtual)
        module.prepare(_said.library_level())
        self._require(module, size, count)
        self._channel = module.VideoChannel(self._path, *size, count, mark)
        self.buffers: int = self._channel.count
        self._running = False
        self._closed = False

    def start(self) -> None:
        """Starts the stream. frames() does so by itself.

        Raises:
            DeviceGone: the driver refuses, or the channel is closed.
        """
        self._do("start", self._channel.start())
        self._running = True

    def stop(self) -> None:
        """Stops the stream; frames that were not taken are dropped. start() goes on.

        Raises:
            DeviceGone: the driver refuses, or the channel is closed.
        """
        self._do("stop", self._channel.stop())
        self._running = False

    def frame(self, timeout: float | None = None) -> VideoFrame:
        """Waits for the next frame; starts the stream if it does not run.

        Args:
            timeout: seconds, 0 to 2 000 000; None: without a limit.

        Raises:
            TimeoutError: no frame came in time.
            DeviceGone: the driver gives none, or the channel was closed.
        """
        milliseconds = -1
        if timeout is not None:
            if not 0 <= timeout <= 2_000_000:
                raise RefusedError(f"timeout is {timeout}", "it is 0 to 2 000 000 seconds, or None")
            milliseconds = round(timeout * 1000)
        if not self._running:
            self.start()
        seen: Any = self._channel.wait(milliseconds)
        if seen is None:
            raise TimeoutError(
                f"no frame of {self._path} within {timeout:g} s",
                "is something triggering frames? A longer timeout waits longer",
            )
        if isinstance(seen, int):
            self._do("frame", seen)
        return VideoFrame(*seen)

    def frames(
        self, count: int | None = None, timeout: float | None = None
    ) -> Iterator[VideoFrame]:
        """Frames as they come; starts the stream if it does not run.

        Args:
            count: how many; None: without an end.
            timeout: of each frame, as in frame().
        """
        left = None if count is None else number("count", count, 0, _WORD)
        while left is None or left > 0:
            yield self.frame(timeout)
            left = None if left is None else left - 1

    def close(self) -> None:
        """Gives the buffers back and closes the device. A second time it does nothing."""
        self._closed = True
        self._channel.close()

    def __enter__(self) -> Channel:
        return self

    def __exit__(self, *_: object) -> None:
        self.close()

    def _require(self, module: Any, size: tuple[int, int], count: int) -> None:
        _said.forget()
        step, error, width, height = module.video_obstacle(self._path, *size, count)
        if not step:
            return
        what = f"{self._path} cannot be captured from: "
        if step == "size":
            what += f"its driver makes {width} x {height} of {size[0]} x {size[1]} pixels"
        else:
            what += f"{os.strerror(error)} ({step})"
        raise StartUpError(what, _ADVICE[step])

    def _do(self, what: str, error: int) -> None:
        if error == 0:
            return
        if self._closed:
            raise DeviceGone(f"the channel of {self._path} is closed", "open another one")
        raise DeviceGone(
            f"{self._path}: {what} failed: {os.strerror(error)}", "is the device still there?"
        )
