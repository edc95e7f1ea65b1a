"""How a sensor is opened and closed, and how it stays safe in between."""

from __future__ import annotations

import os
import weakref
from collections.abc import Iterable
from types import ModuleType, TracebackType
from typing import Any, ClassVar, Self

from . import _loader, _rules, _said
from ._opened import Opened
from .errors import DeviceGone, RefusedError, StartUpError, TessalineError
from .virtual import Fault, FrameFault, VirtualBoard

#: How long a start may take, seconds.
START_S = 20.0


class Lifecycle:
    """The part of Sensor that opens and closes."""

    _version: ClassVar[int] = 0
    # The model, whether it is virtual, and the process: a child by fork has no threads of a device.
    _started: ClassVar[tuple[str, bool, int] | None] = None
    # Why a start did not succeed. The library does not start twice.
    _failed: ClassVar[str] = ""
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
        start_ms = int(1000 * float(start_timeout_s))
        if sleep_factor is not None and not 0 <= float(sleep_factor) < float("inf"):
            raise ValueError(f"sleep_factor must be at least 0, not {sleep_factor!r}")
        with Opened.lock:
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
            if not self.reopened:
                self._start(module, start_ms)
            self._opened = Opened(module, model)
        self._calls = self._opened.calls
        self._events = self._opened.events
        # Also when nobody holds the sensor any more, and at the end of the process.
        self._forgotten = weakref.finalize(self, self._opened.close_forgotten)
        try:
            self._bring_to_start()
        except BaseException:
            self.close()
            raise

    # --- Opening and closing

    def _require_free(self) -> None:
        other = Opened.current
        if other is not None and other.process == os.getpid():
            raise StartUpError(
                f"a Sensor of this process is open already, a {other.model}",
                "close it first (a with block does so), or use another process for a second sensor",
            )
        started = Lifecycle._started
        if started is None:
            return
        if started[2] != os.getpid():
            raise StartUpError(
                f"the process that this one was forked from has started a {started[0]}",
                'use the start method "spawn" of multiprocessing',
            )
        if started[:2] != (self.model, self.virtual):
            raise StartUpError(
                f"this process has started a {started[0]}, and a process can start one device, once",
                f"open the {self.model} in a new process (in a notebook: restart the kernel)",
            )
        if Lifecycle._failed:
            raise StartUpError(
                f"an earlier start in this process failed: {Lifecycle._failed}",
                "mend that, and use a new process (in a notebook: restart the kernel)",
            )

    def _start(self, module: ModuleType, milliseconds: int) -> None:
        if not self.virtual:
            _require_board()
        module.prepare(_said.library_level())
        Lifecycle._version = module.GetLibVersion(self.model)
        Lifecycle._started = (self.model, self.virtual, os.getpid())
        Lifecycle._failed = "it was interrupted"
        try:
            result = module.start(milliseconds)
        except DeviceGone as error:
            Lifecycle._failed = error.what
            raise StartUpError(error.what, error.advice) from None
        Lifecycle._failed = "" if result == 0 else _said.refusal() or "no reason was said"
        if Lifecycle._failed:
            raise StartUpError(
                f"the device cannot be started: {Lifecycle._failed}",
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
                ("SetStripWriteMemMode", 0),
                ("SetContinuousFlag", 0),
                ("SetBrFlag", 0),
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
        self._opened.close()

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

    def __repr__(self) -> str:
        kind = "virtual " if self.virtual else ""
        state = "" if Opened.current is self._opened else ", closed"
        return f"<Sensor {kind}{self.model}{state}>"

    def __reduce__(self) -> Any:
        raise TypeError("a Sensor cannot be pickled: open it in the process that uses it")


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


