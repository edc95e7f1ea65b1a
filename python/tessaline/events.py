"""What happens on threads of the library: log lines, trigger pulses, DA values."""

from __future__ import annotations

import logging
import queue
import threading
import time
import traceback
from collections.abc import Callable, Iterator, Sequence
from dataclasses import dataclass
from types import ModuleType
from typing import Literal

from . import _said
from .errors import CallbackError

__all__ = ["Event", "EventQueue"]

_SLICE_MS = 200
_MOST = 4096
_REPEATED_S = 10.0


@dataclass(frozen=True)
class Event:
    """One event.

    Attributes:
        kind: "trigger" (the external trigger input changed) or "da" (the hardware took over a value
            of the DA output).
        level: 0 or 1, the input's level after the change; None for "da".
        time_s: when Python took it, seconds of time.monotonic().
    """

    kind: Literal["trigger", "da"]
    level: int | None
    time_s: float


class EventQueue:
    """Takes what happens, on a thread of its own. Used by Sensor."""

    def __init__(self, module: ModuleType, emergency: Callable[[], None]) -> None:
        self._module = module
        self._emergency = emergency
        self._callbacks: dict[str, Callable[[Event], object]] = {}
        self._queue: queue.Queue[Event] = queue.Queue(_MOST)
        self._failure: BaseException | None = None
        self._stopping = threading.Event()
        self.dropped = 0
        self._logged: dict[tuple[str, str], float] = {}
        self._thread = threading.Thread(target=self._run, name="tessaline-events", daemon=True)
        self._thread.start()

    def set_callback(self, kind: str, callback: Callable[[Event], object] | None) -> None:
        """Sets who is called for a kind of event."""
        if callback is None:
            self._callbacks.pop(kind, None)
        elif callable(callback):
            self._callbacks[kind] = callback
        else:
            raise TypeError(f"a callback must be callable, not {type(callback).__name__}")

    def raise_failure(self) -> None:
        """Raises CallbackError if a callback has failed; once."""
        failure = self._failure
        if failure is None or threading.current_thread() is self._thread:
            return
        self._failure = None
        raise CallbackError(
            f"a callback raised {type(failure).__name__}: {failure}",
            "the acquisition is stopped and the laser is off; mend the callback",
        ) from failure

    def iterate(self, kinds: Sequence[str], timeout_s: float | None) -> Iterator[Event]:
        """The events in turn, until none has come for so long."""
        deadline = None if timeout_s is None else time.monotonic() + timeout_s
        while not self._stopping.is_set():
            self.raise_failure()
            try:
                event = self._queue.get(timeout=_SLICE_MS / 1000)
            except queue.Empty:
                if deadline is not None and time.monotonic() > deadline:
                    return
                continue
            if event.kind not in kinds:
                continue
            if timeout_s is not None:
                deadline = time.monotonic() + timeout_s
            yield event

    def end(self) -> None:
        """Asks the thread to end."""
        self._stopping.set()

    def stop(self) -> None:
        """Ends the thread. A callback in progress is waited for, unless it is the caller."""
        self.end()
        if threading.current_thread() is not self._thread:
            self._thread.join(timeout=5)

    def _run(self) -> None:
        while not self._stopping.is_set():
            happening = self._module.next_happening(_SLICE_MS)
            if happening is None:
                continue
            if happening[0] == "log":
                self._log(*happening[1:])
                continue
            kind, *level = happening
            self._handle(Event(kind, level[0] if level else None, time.monotonic()))

    def _log(self, level: int, where: str, text: str) -> None:
        # A device that is gone repeats itself.
        now = time.monotonic()
        if self._logged.get((where, text), -_REPEATED_S) > now - _REPEATED_S:
            return
        if len(self._logged) > _MOST:
            self._logged.clear()
        self._logged[where, text] = now
        # A handler of the program may raise. The thread goes on.
        try:
            _said.tell(level, where, text)
        except Exception:
            if logging.raiseExceptions:
                traceback.print_exc()

    def _handle(self, event: Event) -> None:
        callback = self._callbacks.get(event.kind)
        if callback is None:
            try:
                self._queue.put_nowait(event)
            except queue.Full:
                self.dropped += 1
            return
        if self._failure is not None:
            return
        try:
            callback(event)
        except BaseException as failure:  # SystemExit, too: it cannot end the process from here
            _said.log.error("a callback failed; the sensor is stopped", exc_info=True)
            try:
                self._emergency()
            finally:
                self._failure = failure
