"""How a sensor is opened and closed, and how it stays safe in between."""

from __future__ import annotations

import atexit
import os
import signal
import threading
import weakref
from collections.abc import Callable, Iterable
from contextlib import suppress
from types import FrameType, ModuleType, TracebackType
from typing import Any, ClassVar, Self

from . import _loader, _rules, _said
from ._calls import Calls
from .errors import RefusedError, StartUpError, TessalineError
from .events import EventQueue
from .virtual import Fault, FrameFault, VirtualBoard

#: How long a start may take, seconds.
START_S = 20.0


class Lifecycle:
    """The part of Sensor that opens and closes."""

    _lock: ClassVar[threading.RLock] = threading.RLock()
    _open: ClassVar[weakref.ref[Lifecycle] | None] = None
    _version: ClassVar[int] = 0
    _started: ClassVar[tuple[str, bool] | None] = None
    _start_size: ClassVar[tuple[int, int]]

    def __init__(
        self,
        model: str,
        *,
        virtual: bool,
        scene: str | None,
        optics: str | None,
        faults: Iterable[Fault | FrameFault],
        sleep_factor: float | None,
        start_timeout_s: float,
    ) -> None:
        if not isinstance(model, str):
            raise TypeError(f"model must be a str such as 'K3610', not {type(model).__name__}")
        only_virtual = (scene, optics, sleep_factor) != (None, None, None) or faults
        if only_virtual and not virtual:
            raise StartUpError(
                "scene, optics, faults and sleep_factor are those of a virtual board",
                "say virtual=True",
            )
        try:
            # The library takes any code that begins like a product's; here that is a typing error.
            self._product = _rules.product(model)
        except RefusedError as error:
            raise StartUpError(error.what, error.advice) from None
        self.model = model
        self.virtual = bool(virtual)
        self.board: VirtualBoard | None = None
        with Lifecycle._lock:
            self._require_free()
            module = _loader.load(self.virtual)
            self.reopened = Lifecycle._started is not None
            if self.virtual:
                self.board = VirtualBoard(module)
                self.board._prepare(
                    model,
                    scene or "belt",
                    optics or "ideal",
                    faults,
                    1 if sleep_factor is None else sleep_factor,
                    select=not self.reopened,
                )
            self._calls = Calls(module)
            self._terminate: Callable[[int, FrameType | None], Any] | int | None = None
            if not self.reopened:
                self._start(module, start_timeout_s)
            Lifecycle._open = weakref.ref(self)
        # Neither the thread of the events nor the end of the process keeps a sensor that nobody
        # holds any more.
        switch_off = weakref.WeakMethod(self._switch_off)
        self._events = EventQueue(module, lambda: _call(switch_off))
        self._calls.watch(self._events.raise_failure)
        at_exit = weakref.WeakMethod(self._at_exit)
        self._exit = lambda: _call(at_exit)
        atexit.register(self._exit)
        self._catch_termination()
        try:
            self._bring_to_start()
        except BaseException:
            self.close()
            raise

    # --- Opening and closing

    def _require_free(self) -> None:
        other = self._of_process()
        if other is not None and other._calls._process == os.getpid():
            raise StartUpError(
                f"a Sensor of this process is open already, a {other.model}",
                "close it first (a with block does so), or use another process for a second sensor",
            )
        started = Lifecycle._started
        if started is not None and started != (self.model, self.virtual):
            raise StartUpError(
                f"this process has started a {started[0]}, and a process can start one device, once",
                f"open the {self.model} in a new process (in a notebook: restart the kernel)",
            )

    @staticmethod
    def _of_process() -> Lifecycle | None:
        return Lifecycle._open() if Lifecycle._open is not None else None

    def _start(self, module: ModuleType, timeout_s: float) -> None:
        if not self.virtual:
            _require_board()
        module.prepare(_said.library_level())
        Lifecycle._version = module.GetLibVersion(self.model)
        # Whatever comes of it, the library does not start twice.
        Lifecycle._started = (self.model, self.virtual)
        result = module.start(int(timeout_s * 1000))
        if result != 0:
            raise StartUpError(
                f"the device cannot be started: {_said.refusal() or 'the library does not say why'}",
                "tessaline.check() shows what is wrong with the hardware",
            )

    def _bring_to_start(self) -> None:
        self._calls.raw("SetGlobalControl", 0)
        if self.reopened:
            self._calls.raw("CloseLaser")
            width, height = self._product["width"], self._product["height"]
            # A K40's drive modes keep the place of the region, and refuse what lies beyond.
            self._calls.raw("SetROI1", 0, 0, width // 2, height // 16 * 8)
            for name, *arguments in (
                ("SetDriveMode", 0),
                ("SetReverseMode", 0),
                ("SetExposureNum", 1),
                ("SetTriMode", 3),
                ("SetTriSpacing", 4000),
                ("SetLaserMode", 0),
            ):
                self._calls.raw(name, *arguments)
            if self._size() != self._start_size:
                # The drive mode of a K38 brings twice the rows of a start.
                self._calls.raw("SetROI1", 0, 0, *self._start_size)
        else:
            Lifecycle._start_size = self._size()
        self._calls.last.clear()

    def _size(self) -> tuple[int, int]:
        return self._calls.raw("GetImageWidth"), self._calls.raw("GetImageHeight")

    def close(self) -> None:
        """Stops the acquisition, switches the laser off, and lets another Sensor be opened.

        May be called more than once. Does nothing in a child process.

        Raises:
            RefusedError: the laser cannot be switched off. Everything else is done.
            CallbackError: a callback failed since the last call.
        """
        if self._calls._process != os.getpid():
            return
        with Lifecycle._lock:
            if self._of_process() is not self:
                return
            try:
                self._quiet()
            except Exception:
                self._finish()
                raise
            # A KeyboardInterrupt on the way leaves it open: the end of the process tries again.
            self._finish()
        self._events.raise_failure()

    def _finish(self) -> None:
        Lifecycle._open = None
        atexit.unregister(self._exit)
        self._calls.close("the sensor is closed")
        self._release_termination()
        self._events.stop()

    def _quiet(self) -> None:
        self._calls.watch(lambda: None)
        try:
            with suppress(TessalineError):
                self._end_loops()
        finally:
            self._switch_off()
        with suppress(TessalineError):
            self._calls.raw("SetExtTriggerState", 0)
            self._calls.raw("SetDADelayState", 0)

    def _end_loops(self) -> None:
        """Ends a loop over frames."""

    def _switch_off(self) -> None:
        # The laser first: stopping the acquisition takes a second.
        try:
            self._calls.set("CloseLaser")
        finally:
            self._calls.raw("SetGlobalControl", 0)

    def _at_exit(self) -> None:
        try:
            self.close()
        except TessalineError as error:
            _said.log.error("%s", error)

    def _catch_termination(self) -> None:
        # By default SIGTERM ends Python at once, with the laser on.
        if threading.current_thread() is not threading.main_thread():
            return
        if signal.getsignal(signal.SIGTERM) is signal.SIG_DFL:
            self._terminate = signal.signal(signal.SIGTERM, _leave)

    def _release_termination(self) -> None:
        if self._terminate is None or signal.getsignal(signal.SIGTERM) is not _leave:
            return
        if threading.current_thread() is threading.main_thread():
            signal.signal(signal.SIGTERM, self._terminate)

    def __enter__(self) -> Self:
        self._calls.require()
        return self

    def __exit__(
        self,
        kind: type[BaseException] | None,
        error: BaseException | None,
        traceback: TracebackType | None,
    ) -> None:
        if error is None:
            self.close()
            return
        try:
            self.close()
        except TessalineError as second:
            error.add_note(f"and on closing: {second}")

    def __del__(self) -> None:
        # A sensor that nobody holds any more can take no frames.
        with suppress(Exception):
            self.close()

    def __repr__(self) -> str:
        kind = "virtual " if self.virtual else ""
        state = "" if self._of_process() is self else ", closed"
        return f"<Sensor {kind}{self.model}{state}>"

    def __reduce__(self) -> Any:
        raise TypeError("a Sensor cannot be pickled: open it in the process that uses it")


def _call(method: weakref.WeakMethod[Callable[[], None]]) -> None:
    if (bound := method()) is not None:
        bound()


def _leave(number: int, _: FrameType | None) -> None:
    raise SystemExit(128 + number)


def _require_board() -> None:
    for path in ("/dev/mem", "/dev/video0", "/dev/video1"):
        try:
            os.close(os.open(path, os.O_RDWR | os.O_CLOEXEC | os.O_NONBLOCK))
        except OSError as error:
            missing = isinstance(error, FileNotFoundError)
            raise StartUpError(
                f"cannot open {path}: {error.strerror}",
                "this machine is not a sensor's board: try it with virtual=True"
                if missing
                else "run as root or as a member of the group tessaline; "
                '"tessaline check" looks at everything',
            ) from None


