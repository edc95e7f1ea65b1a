"""A device in use: what must be made safe when its Sensor is closed, forgotten, or the process ends.

It knows nothing of its Sensor, so it works when the garbage collector has taken that.
"""

from __future__ import annotations

import os
import signal
import threading
import weakref
from collections.abc import Callable
from contextlib import suppress
from types import FrameType, ModuleType
from typing import TYPE_CHECKING, Any, ClassVar

from . import _said
from ._calls import Calls
from .errors import TessalineError
from .events import EventQueue

if TYPE_CHECKING:
    from .streams import FrameStream

_Handler = Callable[[int, FrameType | None], Any] | int | None
# By default they end Python at once, with the laser on.
_TERMINATIONS = (signal.SIGTERM, signal.SIGHUP)


class Opened:
    """The device of an open Sensor. A process has at most one."""

    lock: ClassVar[threading.RLock] = threading.RLock()
    current: ClassVar[Opened | None] = None

    def __init__(self, module: ModuleType, model: str) -> None:
        self.model = model
        self.process = os.getpid()
        self.calls = Calls(module)
        self.running: weakref.ref[FrameStream[Any]] | None = None
        self.events = EventQueue(module, self.switch_off)
        self.calls.watch(self.events.raise_failure)
        self._handlers: dict[int, _Handler] = {}
        self._catch_terminations()
        Opened.current = self

    def close(self) -> None:
        """Makes everything safe, once. See Lifecycle.close()."""
        if self.process != os.getpid():
            return
        with Opened.lock:
            if Opened.current is not self:
                return
            try:
                self._quiet()
            except Exception:
                self._finish()
                raise
            # A KeyboardInterrupt on the way leaves it open: the end of the process tries again.
            self._finish()
        # Without the lock: a callback may be about to close, too.
        self.events.stop()
        self.events.raise_failure()

    def close_forgotten(self) -> None:
        """The same when nobody is there to get an error."""
        try:
            self.close()
        except KeyboardInterrupt:
            self.close_forgotten()
        except TessalineError as error:
            _said.log.error("%s", error)

    def switch_off(self) -> None:
        """Laser and acquisition."""
        # The laser first: stopping the acquisition takes a second.
        try:
            self.calls.set("CloseLaser")
        finally:
            self.calls.raw("SetGlobalControl", 0)

    def _quiet(self) -> None:
        self.calls.watch(lambda: None)
        stream = self.running() if self.running is not None else None
        try:
            if stream is not None:
                with suppress(TessalineError):
                    stream.close()
        finally:
            self.switch_off()
        with suppress(TessalineError):
            self.calls.raw("SetExtTriggerState", 0)
            self.calls.raw("SetDADelayState", 0)

    def _finish(self) -> None:
        Opened.current = None
        self.calls.close("the sensor is closed")
        self.events.end()
        self._release_terminations()

    def _catch_terminations(self) -> None:
        if threading.current_thread() is not threading.main_thread():
            return
        for number in _TERMINATIONS:
            if signal.getsignal(number) is signal.SIG_DFL:
                self._handlers[number] = signal.signal(number, _leave)

    def _release_terminations(self) -> None:
        if threading.current_thread() is not threading.main_thread():
            return
        for number, before in self._handlers.items():
            if signal.getsignal(number) is _leave:
                signal.signal(number, before)


def _leave(number: int, _: FrameType | None) -> None:
    raise SystemExit(128 + number)
