"""Frames as NumPy arrays over the driver's own memory."""

from __future__ import annotations

import operator
from collections.abc import Iterator, Sequence
from typing import Any, Protocol, SupportsIndex, overload

import numpy as np
import numpy.typing as npt

from .errors import BufferReturned, TessalineError

__all__ = ["Image", "POINT_TYPES", "Strip", "StripBuffer", "TICK_S"]

#: Seconds of a tick, the unit of time stamps.
TICK_S = 20e-9

#: Points in memory, by their size in bytes. ``row`` is in steps: 1/65536 pixels in points of 8
#: bytes, 1/32 pixels in the others, where 0xFFFF means that a column has no line.
POINT_TYPES: dict[int, np.dtype[Any]] = {
    8: np.dtype([("column", "<u2"), ("peak", "u1"), ("width", "u1"), ("row", "<u4")]),
    4: np.dtype([("column", "<u2"), ("row", "<u2")]),
    2: np.dtype([("row", "<u2")]),
}
_STEPS = {8: 65536.0, 4: 32.0, 2: 32.0}
_NO_LINE = 0xFFFF
_HEADER_BYTES = 32


class _Table(Protocol):
    """Offset, points, frame id, time stamp and encoder stamp of each strip."""

    def __len__(self) -> int: ...
    def __getitem__(self, index: int, /) -> tuple[int, ...]: ...
    def keep(self, since: int, most: int) -> None: ...


class FrameMemory(Protocol):
    """What a frame is made of: the extension's Frame, or bytes that were pickled."""

    @property
    def first(self) -> int: ...
    @property
    def second(self) -> int: ...
    @property
    def bytes(self) -> int: ...
    @property
    def borrowed(self) -> bool: ...
    @property
    def released(self) -> bool: ...
    def view(
        self, dtype: np.dtype[Any], shape: Sequence[int], offset: int
    ) -> npt.NDArray[Any]: ...
    def copy(self) -> FrameMemory: ...
    def release(self) -> None: ...
    def strips(self, point_bytes: int) -> _Table: ...


class _Frame:
    """What strips and images have in common: memory that goes back to the driver."""

    __slots__ = ("_frame", "_kept")

    def __init__(self, frame: FrameMemory, kept: bool) -> None:
        self._frame = frame
        self._kept = kept

    def _memory(self) -> FrameMemory:
        if self._frame.released:
            raise BufferReturned(
                "this buffer went back to the driver when its turn of the loop ended",
                "keep what you need: an array taken from it during its turn, or buf.copy()",
            )
        return self._frame

    @property
    def zero_copy(self) -> bool:
        """Whether the arrays show the driver's own buffer, and not a copy of it."""
        return self._memory().borrowed

    @property
    def raw(self) -> npt.NDArray[np.uint8]:
        """All bytes as the driver delivered them, shape (bytes,), read-only."""
        frame = self._memory()
        return frame.view(np.dtype(np.uint8), [frame.bytes], 0)

    def _give_back(self) -> None:
        """Called when the turn ends. A copy stays."""
        if not self._kept:
            self._frame.release()


class Strip:
    """One laser line: what the FPGA found in one camera frame.

    Attributes:
        frame_id: counted by the FPGA; 1 is the first of an acquisition.
        time_stamp: of the exposure, ticks of 20 ns.
        encoder_stamp: counts of the encoder.
    """

    __slots__ = ("_at", "_buffer", "_count", "encoder_stamp", "frame_id", "time_stamp")

    def __init__(self, buffer: StripBuffer, row: Sequence[int]) -> None:
        self._buffer = buffer
        self._at, self._count, self.frame_id, self.time_stamp, self.encoder_stamp = row

    def __len__(self) -> int:
        return self._count

    def __repr__(self) -> str:
        return f"<Strip {self.frame_id}: {self._count} points>"

    @property
    def points(self) -> npt.NDArray[Any]:
        """The points as they are in memory: a structured array of shape (points,), read-only.

        Its fields are those of POINT_TYPES. Nothing is copied.

        Raises:
            BufferReturned: the buffer's turn is over.
        """
        buffer = self._buffer
        return buffer._memory().view(buffer._point_type, [self._count], self._at + _HEADER_BYTES)

    @property
    def columns(self) -> npt.NDArray[np.float64]:
        """Columns of the region of interest in pixels, shape (points,). A new array."""
        points = self.points
        if "column" in (points.dtype.names or ()):
            return points["column"].astype(np.float64)
        return np.arange(len(points), dtype=np.float64)

    @property
    def rows(self) -> npt.NDArray[np.float64]:
        """Rows of the region of interest in pixels, with a fraction, shape (points,). A new array.

        NaN where a column has no line.
        """
        steps = self.points["row"]
        rows = steps / _STEPS[self._buffer.point_bytes]
        if self._buffer.point_bytes != 8:
            rows[steps == _NO_LINE] = np.nan
        return rows

    def __array__(self, dtype: npt.DTypeLike | None = None) -> npt.NDArray[Any]:
        return self.points if dtype is None else self.points.astype(dtype)

    def __eq__(self, other: object) -> bool:
        """Whether both have the same frame id, stamps and points.

        Raises:
            BufferReturned: the turn of one's buffer is over.
        """
        if not isinstance(other, Strip):
            return NotImplemented
        return (
            (self.frame_id, self.time_stamp, self.encoder_stamp)
            == (other.frame_id, other.time_stamp, other.encoder_stamp)
            and self.points.dtype == other.points.dtype
            and np.array_equal(self.points, other.points)
        )

    __hash__ = None  # type: ignore[assignment]


class StripBuffer(_Frame, Sequence[Strip]):
    """One delivery of the driver: a few strips, one behind the other. A sequence of Strip.

    It is valid during its turn of the loop. Arrays taken from it stay valid: those that are still
    in use when the turn ends get a copy of the memory in place, at the same address. They never
    show what the driver writes later.

    Attributes:
        point_bytes: of a point: 8, 4 or 2. See POINT_TYPES.
    """

    __slots__ = ("_point_type", "_table", "point_bytes")

    def __init__(
        self,
        frame: FrameMemory,
        point_bytes: int,
        *,
        kept: bool = False,
        table: _Table | None = None,
    ) -> None:
        super().__init__(frame, kept)
        self.point_bytes = point_bytes
        self._point_type = POINT_TYPES[point_bytes]
        self._table: _Table = frame.strips(point_bytes) if table is None else table

    def __len__(self) -> int:
        return len(self._table)

    def __repr__(self) -> str:
        if len(self) == 0:
            return "<StripBuffer, empty>"
        return f"<StripBuffer, strips {self._table[0][2]} to {self._table[-1][2]}>"

    @overload
    def __getitem__(self, index: SupportsIndex) -> Strip: ...
    @overload
    def __getitem__(self, index: slice) -> list[Strip]: ...
    def __getitem__(self, index: SupportsIndex | slice) -> Strip | list[Strip]:
        if isinstance(index, slice):
            return [Strip(self, self._table[i]) for i in range(*index.indices(len(self)))]
        return Strip(self, self._table[operator.index(index)])

    def __iter__(self) -> Iterator[Strip]:
        return (Strip(self, self._table[i]) for i in range(len(self)))

    def __array__(self, dtype: npt.DTypeLike | None = None) -> npt.NDArray[Any]:
        raise TypeError(
            "a buffer is no array, because its strips can have different lengths; take "
            "buf[0].points, buf.raw, or sensor.profiles() for all points in one array"
        )

    @property
    def raw(self) -> npt.NDArray[np.uint8]:
        """All bytes of the strips, headers included, shape (bytes,), read-only."""
        if len(self) == 0:
            return self._memory().view(np.dtype(np.uint8), [0], 0)
        first, (last, points, *_) = self._table[0][0], self._table[-1]
        length = last + _HEADER_BYTES + points * self.point_bytes - first
        return self._memory().view(np.dtype(np.uint8), [length], first)

    @property
    def frame_ids(self) -> npt.NDArray[np.uint64]:
        """The id of each strip, shape (strips,). A new array."""
        return np.array([strip.frame_id for strip in self], dtype=np.uint64)

    def copy(self) -> StripBuffer:
        """The same strips in memory of their own, which stays as long as the copy does."""
        return StripBuffer(
            self._memory().copy(), self.point_bytes, kept=True, table=self._table
        )

    def __reduce__(self) -> tuple[Any, ...]:
        rows = [self._table[i] for i in range(len(self))]
        start = rows[0][0] if rows else 0
        return _rebuild_strips, (
            self.raw.tobytes(),
            self.point_bytes,
            [(at - start, *others) for at, *others in rows],
        )


class Image(_Frame):
    """One camera image over the driver's own memory. Valid during its turn, as a StripBuffer.

    Attributes:
        width: pixels of a row.
        height: rows.
        frame_id: counted by the FPGA; 1 is the first of an acquisition.
        time_stamp: of the exposure, ticks of 20 ns.
        encoder_stamp: counts of the encoder.
    """

    __slots__ = ("encoder_stamp", "frame_id", "height", "time_stamp", "width")

    def __init__(self, frame: FrameMemory, *, kept: bool = False) -> None:
        super().__init__(frame, kept)
        self.width = frame.first
        self.height = frame.second
        header = frame.view(np.dtype("<u8"), [3], self.width * self.height)
        self.frame_id, self.time_stamp, self.encoder_stamp = header.tolist()

    def __repr__(self) -> str:
        return f"<Image {self.frame_id}: {self.width} x {self.height}>"

    @property
    def pixels(self) -> npt.NDArray[np.uint8]:
        """The grey values, shape (height, width), read-only. Nothing is copied.

        Raises:
            BufferReturned: the image's turn is over.
        """
        return self._memory().view(np.dtype(np.uint8), [self.height, self.width], 0)

    def __array__(self, dtype: npt.DTypeLike | None = None) -> npt.NDArray[Any]:
        return self.pixels if dtype is None else self.pixels.astype(dtype)

    def copy(self) -> Image:
        """The same image in memory of its own, which stays as long as the copy does."""
        return Image(self._memory().copy(), kept=True)

    def __reduce__(self) -> tuple[Any, ...]:
        return _rebuild_image, (self.raw.tobytes(), self.width, self.height)


class _Rows(list[tuple[int, ...]]):
    """The table of a buffer that was pickled."""

    def keep(self, since: int, most: int) -> None:
        self[:] = [row for row in self if row[3] >= since][:most]

    def __getitem__(self, index: Any, /) -> Any:
        return super().__getitem__(index)


class _Bytes:
    """A frame in memory of its own, as one that was pickled: what the extension's Frame offers."""

    borrowed = False
    released = False

    def __init__(self, data: bytes | memoryview, first: int, second: int) -> None:
        self._data = data
        self.first = first
        self.second = second
        self.bytes = len(data)

    def view(self, dtype: np.dtype[Any], shape: Sequence[int], offset: int) -> npt.NDArray[Any]:
        count = int(np.prod(shape))
        return np.frombuffer(self._data, dtype, count, offset).reshape(shape)

    def copy(self) -> _Bytes:
        return self

    def release(self) -> None:
        raise TessalineError("a frame in memory of its own has nothing to give back")

    def strips(self, point_bytes: int) -> _Table:
        raise TessalineError("a buffer in memory of its own brings the table of its strips")


def _rebuild_strips(
    data: bytes, point_bytes: int, rows: list[tuple[int, ...]]
) -> StripBuffer:
    frame = _Bytes(data, len(rows), len(data))
    return StripBuffer(frame, point_bytes, kept=True, table=_Rows(rows))


def _rebuild_image(data: bytes, width: int, height: int) -> Image:
    return Image(_Bytes(data, width, height), kept=True)
