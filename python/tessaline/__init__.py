"""Laser line-profile sensors from Python: NumPy arrays over the driver's own buffers.

::

    import tessaline

    with tessaline.Sensor("K3610", virtual=True) as s:
        for buf in s.strips(600):
            for strip in buf:
                print(strip.frame_id, strip.rows.mean())

docs/python.md is the tutorial.
"""

from .buffers import POINT_TYPES, TICK_S, Image, Strip, StripBuffer
from .errors import (
    BufferHeld,
    BufferReturned,
    CalibrationError,
    CallbackError,
    DeviceGone,
    LostFrames,
    RefusedError,
    StartUpError,
    TessalineError,
    TimeoutError,
)
from .events import Event
from .sensor import Sensor
from .streams import FrameStream
from .virtual import Fault, FrameFault, VirtualBoard

__all__ = [
    "POINT_TYPES",
    "TICK_S",
    "BufferHeld",
    "BufferReturned",
    "CalibrationError",
    "CallbackError",
    "DeviceGone",
    "Event",
    "Fault",
    "FrameFault",
    "FrameStream",
    "Image",
    "LostFrames",
    "RefusedError",
    "Sensor",
    "StartUpError",
    "Strip",
    "StripBuffer",
    "TessalineError",
    "TimeoutError",
    "VirtualBoard",
]
