"""What the device library says: to ``logging``, and to the error of the call it was said in."""

from __future__ import annotations

import logging
import threading

Said = tuple[int, str, str]

PRINTED = -1
_ERROR = 4
# By the library's numbers of levels: trace, debug, info, warn, error, fatal. What it prints is
# about how it gets on.
_LEVELS = {PRINTED: logging.DEBUG, 0: 5, 1: 10, 2: 20, 3: 30, _ERROR: 40, 5: 50}

log = logging.getLogger("tessaline")
# The library tries the format at every change of the image's size, and the driver refuses it while
# it has buffers. Nothing is wrong then.
_HARMLESS = "v4l2 VIDIOC_S_FMT failed: Device or resource busy"
_library = logging.getLogger("tessaline.library")
_thread = threading.local()


def library_level() -> int:
    """The lowest of the library's levels that ``logging`` wants at this moment."""
    wanted = _library.getEffectiveLevel()
    return next((level for level in range(5) if _LEVELS[level] >= wanted), _ERROR)


def tell(level: int, where: str, text: str) -> None:
    """Logs one thing that the library said."""
    number = logging.DEBUG if text.startswith(_HARMLESS) else _LEVELS.get(level, logging.ERROR)
    if _library.isEnabledFor(number):
        _library.log(number, "%s", f"{where}: {text}" if where else text.strip())


def take(lines: list[Said]) -> None:
    """Called with what was said during a call on this thread."""
    _thread.lines = lines
    for line in lines:
        tell(*line)


def forget() -> None:
    """A call begins."""
    _thread.lines = []


def refusal() -> str:
    """What the last call of this thread said about its failure; may be empty."""
    lines: list[Said] = getattr(_thread, "lines", [])
    texts = [text.strip() for level, _, text in lines if level in (PRINTED, _ERROR)]
    return "; ".join(dict.fromkeys(filter(None, texts)))
