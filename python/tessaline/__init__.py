"""Laser line-profile sensors from Python: NumPy arrays over the driver's own buffers.

::

    import tessaline

    with tessaline.Sensor("K3610", virtual=True) as s:
        for buf in s.strips(600):
            for strip in buf:
                print(strip.frame_id, strip.rows.mean())

docs/python.md is the tutorial.
"""

from . import video
from .buffers import POINT_TYPES, TICK_S, Image, Strip, StripBuffer
from .calibration import Calibration, Millimetres, calibrate
from .checking import CheckResult, CheckStep, Verdict, check
from .errors import (
    BufferHeld,
    BufferReturned,
    CalibrationError,
    CallbackError,
    DeviceGone,
    LostFrames,
    RecordingError,
    RefusedError,
    StartUpError,
    StripError,
    TessalineError,
    TimeoutError,
    WriteOnlyError,
)
from .events import Event
from .geometry import Geometry
from .profile import Profile
from .profiles import Profiles
from .recipes import Recipe
from .recorded import (
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
)
from .recording import Recording
from .recording_writer import RecordingWriter
from .sensor import Sensor
from .settings import CaptureStatistics, Colour, Direction, DriveMode, TriggerMode
from .streams import FrameStream
from .virtual import Fault, FrameFault, VirtualBoard

__all__ = [
    "POINT_TYPES",
    "TICK_S",
    "BufferHeld",
    "BufferReturned",
    "Calibration",
    "CalibrationError",
    "CallbackError",
    "CaptureStatistics",
    "CheckResult",
    "CheckStep",
    "Colour",
    "DeviceGone",
    "Direction",
    "DriveMode",
    "Event",
    "Fault",
    "FrameFault",
    "FrameStream",
    "Geometry",
    "Image",
    "LostFrames",
    "Millimetres",
    "Profile",
    "Profiles",
    "Recipe",
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
    "Recording",
    "RecordingError",
    "RecordingWriter",
    "RefusedError",
    "Sensor",
    "StartUpError",
    "Strip",
    "StripBuffer",
    "StripError",
    "TessalineError",
    "TimeoutError",
    "TriggerMode",
    "Verdict",
    "VirtualBoard",
    "WriteOnlyError",
    "calibrate",
    "check",
    "video",
]
