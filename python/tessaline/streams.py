"""Loops over frames: for, and async for."""

from __future__ import annotations

import asyncio
import operator
import time
import weakref
from collections.abc import Callable
from contextlib import suppress
from typing import TYPE_CHECKING, Any, Generic, Literal, Self, TypeVar

from .buffers import Image, StripBuffer
from .errors import BufferHeld, DeviceGone, LostFrames, TessalineError, TimeoutError

if TYPE_CHECKING:
    from ._device import Frame, Inbox

__all__ = ["FrameStream"]

OnLoss = Literal["raise", "count"]
_F = TypeVar("_F", StripBuffer, Image)
_SLICE_MS = 200
_ALL = 1 << 32


class FrameStream(Generic[_F]):
    """A series of frames. The acquisition runs while the loop does.

    It starts with the first turn of the loop. It stops when all frames have come, ``close()`` is
    called, or nobody holds the stream any more, as when a loop over ``sensor.strips()`` is left by
    ``break``, ``return`` or an exception. The laser goes with it. A stream with a name goes on when
    its loop is left; use ``with`` for those.

    ::

        for buf in sensor.strips(600):
            ...
        async for buf in sensor.strips(600):   # other tasks run while it waits for frames
            ...
        with sensor.strips() as stream:
            first = next(stream)

    Starting takes 50 ms and stopping a second, in which an event loop of asyncio stands still, too.

    The driver goes on while a turn takes its time. When its buffers become few, the capture thread
    copies them into a backlog; when that is full, frames are lost. A loss is never silent:
    LostFrames is raised before the first frame after it, or ``lost`` counts it.

    Threads: one thread at a time.

    Attributes:
        lost: frames that are missing among those seen so far.
    """

    def __init__(
        self,
        inbox: Inbox,
        *,
        count: int | None,
        wrap: Callable[[Frame], _F],
        begin: Callable[[FrameStream[_F]], tuple[int, int]],
        end: Callable[[], None],
        check: Callable[[], None],
        timeout_s: float,
        on_loss: OnLoss,
    ) -> None:
        if on_loss not in ("raise", "count"):
            raise ValueError(f'on_loss must be "raise" or "count", not {on_loss!r}')
        if isinstance(timeout_s, (str, bytes)) or not float(timeout_s) > 0:
            raise ValueError(f"timeout_s must be a number above 0, not {timeout_s!r}")
        if count is not None:
            if isinstance(count, bool):
                raise TypeError("the number of frames must be a whole number, not bool")
            count = operator.index(count)
            if not 1 <= count < _ALL:
                raise ValueError(f"the number of frames must be 1 to 2^32 - 1, not {count}")
        self.lost = 0
        self._inbox = inbox
        self._left = count
        self._wrap: Callable[[Frame], _F] = wrap
        self._begin: Callable[[FrameStream[_F]], tuple[int, int]] = begin
        self._check = check
        self._since = 0
        self._timeout_s = timeout_s
        self._on_loss = on_loss
        self._last_id = 0  # ids begin anew with the loop, at 1
        self._current: _F | None = None
        self._state: Literal["new", "running", "over"] = "new"
        self._end = end
        self._opening = 0
        self._finish: weakref.finalize | None = None

    # --- for

    def __iter__(self) -> Self:
        return self

    def __next__(self) -> _F:
        # An interrupt may come anywhere, and its traceback keeps the stream.
        try:
            if not self._turn():
                raise StopIteration
            deadline = time.monotonic() + self._timeout_s
            while True:
                frame = self._inbox.wait(self._opening, _SLICE_MS)
                item = self._accept(frame) if frame is not None else None
                if item is not None:
                    return item
                self._check()
                self._require_open()
                if time.monotonic() > deadline:
                    raise self._too_late()
        except BaseException:
            self.close()
            raise

    # --- async for

    def __aiter__(self) -> Self:
        return self

    async def __anext__(self) -> _F:
        try:
            if not self._turn():
                raise StopAsyncIteration
            loop = asyncio.get_running_loop()
            deadline = loop.time() + self._timeout_s
            # Other tasks run at every turn, also when frames wait already.
            await asyncio.sleep(0)
            while True:
                frame = self._inbox.wait(self._opening, 0)
                item = self._accept(frame) if frame is not None else None
                if item is not None:
                    return item
                self._check()
                self._require_open()
                if loop.time() > deadline:
                    raise self._too_late()
                if frame is None:
                    await self._readable(loop, deadline - loop.time())
        except BaseException:
            self.close()
            raise

    async def _readable(self, loop: asyncio.AbstractEventLoop, seconds: float) -> None:
        # Not wait_for(): it may swallow a cancellation that comes together with a frame.
        ready = asyncio.Event()
        timer = loop.call_later(min(max(seconds, 0.001), _SLICE_MS / 1000), ready.set)
        loop.add_reader(self._inbox.fileno, ready.set)
        try:
            await ready.wait()
        finally:
            timer.cancel()
            loop.remove_reader(self._inbox.fileno)

    # --- either

    def close(self) -> None:
        """Stops the acquisition. The loop ends; a buffer whose turn it is goes back."""
        if self._state == "over":
            return
        self._state = "over"
        finish, self._finish = self._finish, None
        if finish is None:  # it did not begin
            return
        finish.detach()
        try:
            self._release()
        finally:
            _finish(self._inbox, self._end)

    def __enter__(self) -> Self:
        return self

    def __exit__(self, *_: object) -> None:
        self.close()

    def _release(self) -> None:
        current: _F | None = self._current
        self._current = None
        if current is not None:
            current._give_back()
        try:
            self._inbox.give_back()
        except MemoryError:
            raise BufferHeld(
                f"arrays still show {current!r}, and there is no memory for a copy of it",
                "del them, or keep copies of less: rows = buf[0].points['row'].copy()",
            ) from None

    def _turn(self) -> bool:
        """Ends the last turn. Whether there is another one."""
        if self._state == "over":
            return False
        if self._state == "new":
            try:
                self._opening, self._since = self._begin(self)
            except BaseException:
                self.close()
                raise
            self._state = "running"
            # Also when the loop is left in the middle and nobody keeps the stream.
            self._finish = weakref.finalize(self, _finish_quietly, self._inbox, self._end)
            self._finish.atexit = False
            return True
        try:
            self._release()
        except BufferHeld:
            self._abandon()
            raise
        if self._left == 0:
            self.close()
            return False
        return True

    def _abandon(self) -> None:
        # The capture thread waits with its buffer until the arrays go.
        self._state = "over"
        if self._finish is not None:
            self._finish.detach()
            self._finish = None
        self._end()

    def _accept(self, frame: Frame) -> _F | None:
        item: _F = self._wrap(frame)
        # Frames that were on their way when the last acquisition ended may come in front.
        if isinstance(item, StripBuffer):
            item._table.keep(self._since, _ALL if self._left is None else self._left)
            count = len(item)
            ids = (item._table[0][2], item._table[-1][2]) if count else (0, 0)
        else:
            count = int(item.time_stamp >= self._since)
            ids = (item.frame_id, item.frame_id)
        if count == 0:
            item._give_back()
            self._inbox.give_back()
            return None
        self._current = item
        missing = self._missing(ids, count)
        if missing:
            self.lost += missing
            if self._on_loss == "raise":
                raise LostFrames(
                    f"{missing} {'frame is' if missing == 1 else 'frames are'} missing before or in "
                    f"those from {ids[0]} to {ids[1]}",
                    "do less in the loop, trigger more slowly or allow a longer backlog; "
                    'on_loss="count" goes on and counts them in stream.lost',
                    missing=missing,
                    before=ids[0],
                )
        if self._left is not None:
            self._left -= count
        return item

    def _missing(self, ids: tuple[int, int], count: int) -> int:
        first, last = ids
        before = self._last_id
        self._last_id = last
        if first <= before:
            before = first - 1
        return max(0, last - before - count)

    def _require_open(self) -> None:
        if self._state == "over" or not self._inbox.is_open(self._opening):
            raise DeviceGone(
                "the sensor or its loop was closed while the loop waited for a frame",
                "let one thread own the loop and close it",
            )

    def _too_late(self) -> TessalineError:
        return TimeoutError(
            f"no frame came for {self._timeout_s:g} s",
            "look at the trigger (an encoder that stands still triggers nothing), at the log (a "
            "capture device that could not be set up says so at the start), at sensor.statistics, "
            "and with tessaline.check(); timeout_s waits longer",
        )


def _finish_quietly(inbox: Inbox, end: Callable[[], None]) -> None:
    # In a child of the process, or after the sensor was closed, there is nothing to end.
    with suppress(DeviceGone):
        _finish(inbox, end)


def _finish(inbox: Inbox, end: Callable[[], None]) -> None:
    # First the inbox: stopping the acquisition waits for a capture thread that offers a frame.
    try:
        inbox.close()
    finally:
        end()
