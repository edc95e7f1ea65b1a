"""What recordings consist of: messages, each with the moment when the host got it."""

from __future__ import annotations

import dataclasses
import json
from dataclasses import dataclass, field
from typing import Any, ClassVar, Literal

import numpy as np

from . import _recordings
from ._calls import ALL_ONES, ALL_ONES_64, number
from .buffers import POINT_TYPES, Image, StripBuffer, _Bytes
from .errors import RecordingError, RefusedError

__all__ = [
    "KINDS",
    "Kind",
    "RecordedClock",
    "RecordedDevice",
    "RecordedEvent",
    "RecordedGap",
    "RecordedImage",
    "RecordedLog",
    "RecordedLosses",
    "RecordedMessage",
    "RecordedPicture",
    "RecordedPoints",
    "RecordedRegister",
    "RecordedStrips",
]

Kind = Literal[
    "strips", "images", "registers", "events", "losses", "clock", "log", "device", "points",
    "pictures", "gaps",
]
#: What a recording can hold, in the order of its topics.
KINDS: tuple[Kind, ...] = (
    "strips", "images", "registers", "events", "losses", "clock", "log", "device", "points",
    "pictures", "gaps",
)

_IMAGE_HEADER_BYTES = 32
_FLOAT32 = 7  # of sensor_msgs/PointField


class RecordedStrips(StripBuffer):
    """One delivery of strips. All that a StripBuffer of a live sensor has, and stays as it is.

    Attributes:
        stamp_ns: when the host got it, nanoseconds since 1970.
        strip_count: how many strips the driver announced. ``len()`` is less if they do not fit into
            the bytes.
    """

    __slots__ = ("_cdr", "stamp_ns", "strip_count")
    _topic: ClassVar[int] = 0

    def __init__(self, cdr: bytes, stamp_ns: int, fields: tuple[Any, ...]) -> None:
        """Use ``Recording.strips()``."""
        self._cdr = cdr
        self.stamp_ns = stamp_ns
        self.strip_count, point_bytes, (at, length) = fields
        if point_bytes not in POINT_TYPES:
            raise RecordingError(f"strips with points of {point_bytes} bytes, and there are none")
        data = memoryview(cdr)[at : at + length]
        super().__init__(
            _Bytes(data, self.strip_count, length),
            point_bytes,
            kept=True,
            table=_recordings.StripTable(self.strip_count, data, point_bytes),
        )

    def copy(self) -> RecordedStrips:
        """The same: nobody takes its memory back."""
        return self

    def __reduce__(self) -> tuple[Any, ...]:
        return read, (self._topic, self.stamp_ns, self._cdr)


class RecordedImage(Image):
    """One image. All that an Image of a live sensor has, and stays as it is.

    Attributes:
        stamp_ns: when the host got it, nanoseconds since 1970.
    """

    __slots__ = ("_cdr", "stamp_ns")
    _topic: ClassVar[int] = 1

    def __init__(self, cdr: bytes, stamp_ns: int, fields: tuple[Any, ...]) -> None:
        """Use ``Recording.images()``."""
        self._cdr = cdr
        self.stamp_ns = stamp_ns
        width, height, (at, length) = fields
        if width * height + _IMAGE_HEADER_BYTES > length:
            raise RecordingError(f"an image of {width} x {height} pixels in {length} bytes")
        super().__init__(_Bytes(memoryview(cdr)[at : at + length], width, height), kept=True)

    def copy(self) -> RecordedImage:
        """The same: nobody takes its memory back."""
        return self

    def __reduce__(self) -> tuple[Any, ...]:
        return read, (self._topic, self.stamp_ns, self._cdr)


@dataclass(frozen=True)
class _Small:
    """A message without data of its own, which a program may also make. Two of the same fields are
    equal.
    """

    stamp_ns: int
    # As it was read, so that a copy is the same in every byte.
    _cdr: bytes | None = field(default=None, init=False, repr=False, compare=False)

    _topic: ClassVar[int]
    #: The largest of each field that is a number.
    _most: ClassVar[dict[str, int]] = {}
    #: Fields that are true or false.
    _flags: ClassVar[tuple[str, ...]] = ()

    def _fields(self) -> tuple[Any, ...]:
        """All behind the stamp, checked."""
        values = []
        for entry in dataclasses.fields(self):
            name, value = entry.name, getattr(self, entry.name)
            if name in ("stamp_ns", "_cdr"):
                continue
            if name in self._most:
                value = number(name, value, 0, self._most[name])
            elif name in self._flags:
                if not isinstance(value, bool):
                    raise TypeError(f"{name} must be a bool, not {type(value).__name__}")
            elif not isinstance(value, str):
                raise TypeError(f"{name} must be a str, not {type(value).__name__}")
            elif "\0" in value:
                raise RefusedError(f"{name} holds a character 0", "nothing was written")
            values.append(value)
        return tuple(values)


@dataclass(frozen=True)
class RecordedRegister(_Small):
    """The value of an FPGA register: at the start, and whenever it changed.

    Attributes:
        stamp_ns: nanoseconds since 1970.
        address: physical, bytes.
        value: 32 bits.
    """

    address: int
    value: int
    _topic = 2
    _most = {"address": ALL_ONES_64, "value": ALL_ONES}


@dataclass(frozen=True)
class RecordedEvent(_Small):
    """Something that the device reported.

    Attributes:
        stamp_ns: nanoseconds since 1970.
        name: such as "external_trigger".
        value: what came with it, such as the input's level.
    """

    name: str
    value: int
    _topic = 3
    _most = {"value": ALL_ONES_64}


@dataclass(frozen=True)
class RecordedLosses(_Small):
    """What is missing, counted since the start. There is one whenever a number grew.

    Attributes:
        stamp_ns: nanoseconds since 1970.
        frames_by_device: gaps in the frame ids.
        frames_by_recorder: dropped because the disk was too slow.
        messages_by_recorder: others dropped for that reason.
    """

    frames_by_device: int
    frames_by_recorder: int
    messages_by_recorder: int
    _topic = 4
    _most = {
        "frames_by_device": ALL_ONES_64,
        "frames_by_recorder": ALL_ONES_64,
        "messages_by_recorder": ALL_ONES_64,
    }


@dataclass(frozen=True)
class RecordedClock(_Small):
    """The host's clock and the FPGA's counter at the same moment.

    Attributes:
        stamp_ns: nanoseconds since 1970.
        ticks: of 20 ns, as the time stamps of frames.
        uncertainty_ns: how long reading them took.
    """

    ticks: int
    uncertainty_ns: int
    _topic = 5
    _most = {"ticks": ALL_ONES_64, "uncertainty_ns": ALL_ONES}


@dataclass(frozen=True)
class RecordedLog(_Small):
    """A line of the log.

    Attributes:
        stamp_ns: nanoseconds since 1970.
        level: as ``logging`` has them: 10 debug, 20 info, 30 warning, 40 error, 50 critical.
        name: of the program.
        msg: the line.
        file: of the source; may be empty.
        function: likewise.
        line: of the file; may be 0.
    """

    level: int
    name: str
    msg: str
    file: str = ""
    function: str = ""
    line: int = 0
    _topic = 6
    _most = {"level": 0xFF, "line": ALL_ONES}


@dataclass(frozen=True)
class RecordedDevice(_Small):
    """What the device is and how it is set: product, versions, settings, calibration.

    Attributes:
        stamp_ns: nanoseconds since 1970.
        json: an object.
    """

    json: str
    _topic = 7

    @property
    def values(self) -> dict[str, Any]:
        """The object. A new dict.

        Raises:
            RecordingError: it is none.
        """
        try:
            values = json.loads(self.json)
        except (ValueError, RecursionError) as error:
            raise RecordingError(f"what is said about the device is no JSON: {error}") from None
        if not isinstance(values, dict):
            raise RecordingError("what is said about the device is no JSON object")
        return values


@dataclass(frozen=True)
class RecordedGap(_Small):
    """Something that is missing in a file of several sensors, and why. Ids are those of frames.

    Attributes:
        stamp_ns: nanoseconds since 1970.
        reason: where it was lost: "device", "memory", "store", "publisher" or "unknown".
        run: of the publisher whose frames these are.
        end_known: else all from the first ids on may be missing, up to the next frame that is there
            or to the end of the run, and the last ids and counts say nothing.
        strips_first: id of the first strip.
        strips_last: id of the last one.
        strips_count: how many strips; 0: none, whatever their ids are.
        images_first: likewise for images.
        images_last: likewise.
        images_count: likewise.
        others: messages without frames.
    """

    reason: str
    run: str
    end_known: bool
    strips_first: int = 0
    strips_last: int = 0
    strips_count: int = 0
    images_first: int = 0
    images_last: int = 0
    images_count: int = 0
    others: int = 0
    _topic = 10
    _flags = ("end_known",)
    _most = dict.fromkeys(
        (
            "strips_first", "strips_last", "strips_count",
            "images_first", "images_last", "images_count", "others",
        ),
        ALL_ONES_64,
    )


class RecordedPoints:
    """A point cloud that was made of strips for viewers (sensor_msgs/PointCloud2).

    Attributes:
        stamp_ns: that of the strips, nanoseconds since 1970.
        points: read-only array, shape (points,), with the cloud's own fields: "x", "y" and "z" as
            float32, and "intensity" where strips have peaks. Millimetres with a calibration, else
            columns, encoder counts and minus rows.
    """

    __slots__ = ("_cdr", "points", "stamp_ns")
    _topic: ClassVar[int] = 8

    def __init__(self, cdr: bytes, stamp_ns: int, fields: tuple[Any, ...]) -> None:
        """Use ``Recording.points()``."""
        self._cdr = cdr
        self.stamp_ns = stamp_ns
        _frame, height, width, entries, _big, step, _row, (at, length), _dense = fields
        if any(datatype != _FLOAT32 or count != 1 for _, _, datatype, count in entries):
            raise RecordingError("a point cloud with other fields than float32")
        try:
            of_point = np.dtype({
                "names": [name for name, _, _, _ in entries],
                "formats": ["<f4"] * len(entries),
                "offsets": [offset for _, offset, _, _ in entries],
                "itemsize": step,
            })
            self.points: np.ndarray[Any, np.dtype[Any]] = np.ndarray(
                height * width, of_point, memoryview(cdr)[at : at + length]
            )
        except (TypeError, ValueError) as error:
            raise RecordingError(f"a point cloud that does not fit its bytes: {error}") from None

    def __reduce__(self) -> tuple[Any, ...]:
        return read, (self._topic, self.stamp_ns, self._cdr)


class RecordedPicture:
    """An image as viewers know it (sensor_msgs/Image), made of an image of the camera.

    Attributes:
        stamp_ns: that of the image, nanoseconds since 1970.
        pixels: read-only uint8 array, shape (height, width).
    """

    __slots__ = ("_cdr", "pixels", "stamp_ns")
    _topic: ClassVar[int] = 9

    def __init__(self, cdr: bytes, stamp_ns: int, fields: tuple[Any, ...]) -> None:
        """Use ``Recording.pictures()``."""
        self._cdr = cdr
        self.stamp_ns = stamp_ns
        _frame, height, width, encoding, _big, step, (at, length) = fields
        if encoding != "mono8" or step != width or height * width != length:
            raise RecordingError(f"a picture of {width} x {height} {encoding} in {length} bytes")
        self.pixels = np.frombuffer(cdr, np.uint8, length, at).reshape(height, width)

    def __reduce__(self) -> tuple[Any, ...]:
        return read, (self._topic, self.stamp_ns, self._cdr)


RecordedMessage = (
    RecordedStrips
    | RecordedImage
    | RecordedRegister
    | RecordedEvent
    | RecordedLosses
    | RecordedClock
    | RecordedLog
    | RecordedDevice
    | RecordedPoints
    | RecordedPicture
    | RecordedGap
)
_KINDS_OF_SMALL: tuple[type[_Small], ...] = (
    RecordedRegister, RecordedEvent, RecordedLosses, RecordedClock, RecordedLog, RecordedDevice,
    RecordedGap,
)
_SMALL = {kind._topic: kind for kind in _KINDS_OF_SMALL}


def read(topic: int, stamp_ns: int, cdr: bytes) -> Any:
    """The message in the bytes of a row.

    Raises:
        RecordingError: there is no such message in them.
    """
    fields = _recordings.decode(topic, cdr)
    if topic == RecordedStrips._topic:
        return RecordedStrips(cdr, stamp_ns, fields)
    if topic == RecordedImage._topic:
        return RecordedImage(cdr, stamp_ns, fields)
    if topic == RecordedPoints._topic:
        return RecordedPoints(cdr, stamp_ns, fields)
    if topic == RecordedPicture._topic:
        return RecordedPicture(cdr, stamp_ns, fields)
    message = _SMALL[topic](stamp_ns, *fields)
    object.__setattr__(message, "_cdr", cdr)
    return message
