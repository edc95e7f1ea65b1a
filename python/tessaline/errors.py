"""What can go wrong, one class a kind. Every message says what happened and what to do next."""

from __future__ import annotations

__all__ = [
    "BufferHeld",
    "BufferReturned",
    "CalibrationError",
    "CallbackError",
    "DeviceGone",
    "LostFrames",
    "RecordingError",
    "RefusedError",
    "StartUpError",
    "StripError",
    "TessalineError",
    "TimeoutError",
    "WriteOnlyError",
]

_TimeoutError = TimeoutError


class TessalineError(Exception):
    """The base of all errors of this package.

    Attributes:
        what: what happened, one sentence.
        advice: what to do next, one sentence; may be empty.
    """

    def __init__(self, what: str, advice: str = "") -> None:
        super().__init__(f"{what}; {advice}" if advice else what)
        self.what = what
        self.advice = advice


class StartUpError(TessalineError):
    """The sensor cannot be opened."""


class RefusedError(TessalineError):
    """The device library refused a call, or the value is out of range.

    Attributes:
        call: the library's function, such as "SetROI1"; empty when it was not called.
        text: what the library said, its own words; may be empty.
    """

    def __init__(self, what: str, advice: str = "", *, call: str = "", text: str = "") -> None:
        super().__init__(what, advice)
        self.call = call
        self.text = text


class WriteOnlyError(TessalineError, AttributeError):
    """A setting was read that the device library can only write."""


class DeviceGone(TessalineError):
    """The sensor is closed, belongs to another process, or its device does not answer."""


class TimeoutError(TessalineError, _TimeoutError):  # noqa: A001
    """No frame came in time."""


class LostFrames(TessalineError):
    """Frames are missing in a series that was to be complete.

    Attributes:
        missing: how many.
        before: id of the first frame after the gap.
    """

    def __init__(self, what: str, advice: str, *, missing: int, before: int) -> None:
        super().__init__(what, advice)
        self.missing = missing
        self.before = before


class BufferReturned(TessalineError):
    """A buffer was used after its turn of the loop, when the driver had it back already."""


class BufferHeld(TessalineError):
    """Arrays still show a driver's buffer, and there is no memory for a copy of it."""


class CallbackError(TessalineError):
    """A callback raised an exception, which is the cause of this one. The sensor is stopped."""


class CalibrationError(TessalineError):
    """A calibration is missing, damaged, or that of another sensor."""


class StripError(TessalineError):
    """Strips that do not fit their bytes: cut off, damaged, or of another point size."""


class RecordingError(TessalineError):
    """A recording is damaged, none at all, of a newer version, being written, or closed."""
