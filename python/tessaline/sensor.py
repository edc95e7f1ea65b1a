"""The sensor: from opening it to its frames."""

from __future__ import annotations

import operator
import os
import weakref
from collections.abc import Callable, Iterable, Iterator, Sequence
from typing import Any

from . import recipes
from ._lifecycle import START_S, Lifecycle
from ._said import log
from .buffers import Image, StripBuffer
from .calibration import Calibration
from .errors import RefusedError
from .events import Event
from .geometry import Geometry
from .profiles import Profiles
from .recipes import Recipe
from .settings import Groups
from .streams import FrameStream, OnLoss
from .virtual import Fault, FrameFault

__all__ = ["Sensor"]

_IMAGES = 1
_STRIPS = 0
_BACKLOG_BYTES = 64 << 20


class Sensor(Lifecycle, Groups):
    """A sensor, started and ready. A context manager: on exit laser and acquisition are off.

    ::

        with tessaline.Sensor("K3610", virtual=True) as s:
            s.configure(spacing_us=4000, exposure_us=150)
            for buf in s.strips(600):
                rows = buf[0].points["row"]

    A process drives one sensor. Its device is started once; a Sensor of the same model that is
    opened later in the process finds it started, and gets back the trigger, collect mode and region
    of a fresh start.

    Ctrl-C stays Python's: KeyboardInterrupt is raised, also in the middle of a call. Whatever ends
    the process in order switches the laser off first: an exception, ``sys.exit``, and, for a sensor
    that was opened in the main thread, SIGTERM and SIGHUP. SIGKILL cannot be caught: a laser that
    was on then stays on.

    Args:
        model: the product's code, such as "K3610". A code that no product has is refused.
        virtual: True for a virtual board in this process. It needs no hardware and no privileges.
        scene: what is in front of a virtual sensor: "belt", "plane", "sawtooth" or "stairs", with
            ",x=MM,z=MM,tilt=DEGREES" behind it. Only with ``virtual``.
        optics: "ideal", "real" or "real:SEED". Only with ``virtual``.
        faults: what shall go wrong on a virtual board. Only with ``virtual``.
        sleep_factor: how long the device library's pauses take on a virtual board: 1 as on hardware,
            0 not at all, which makes tests quick. Only with ``virtual``.
        start_timeout_s: how long the start may take, seconds. The slowest product takes 6.

    Raises:
        StartUpError: a Sensor is open already, this machine is not a sensor's board, the model is
            unknown, or the device does not start. The message says which.

    Threads: any. Calls of several threads are made one after the other.

    Attributes:
        model: the product's code.
        virtual: whether the board is a virtual one.
        board: the virtual board's other side, or None on hardware.
        reopened: whether the device was started by an earlier Sensor of this process.
    """

    def __init__(
        self,
        model: str,
        *,
        virtual: bool = False,
        scene: str | None = None,
        optics: str | None = None,
        faults: Iterable[Fault | FrameFault] = (),
        sleep_factor: float | None = None,
        start_timeout_s: float = START_S,
    ) -> None:
        self._laser: str | None = None
        Lifecycle.__init__(
            self,
            model,
            virtual=virtual,
            scene=scene,
            optics=optics,
            faults=tuple(faults),
            sleep_factor=sleep_factor,
            start_timeout_s=start_timeout_s,
        )
        Groups.__init__(self, self._calls, model)
        self._complete = True

    def __setattr__(self, name: str, value: object) -> None:
        # A setting that is misspelt, or meant for a group, must not be a new attribute.
        if not name.startswith("_") and "_complete" in self.__dict__:
            raise AttributeError(
                f"a Sensor has no setting {name!r}: use configure({name}=...), or a group, such as "
                "sensor.trigger.spacing_us"
            )
        object.__setattr__(self, name, value)

    # --- Frames

    @property
    def point_bytes(self) -> int:
        """Bytes of a point in strips, as the model and the settings have it: 8, 4 or 2."""
        last = self._calls.last
        if (last.get("SetStripWriteMemMode") or (0,))[0] == 1:
            return 4
        if self._product["points_by_mode"]:
            if (last.get("SetContinuousFlag") or (0,))[0]:
                return 8
            if (last.get("SetBrFlag") or (0,))[0]:
                return 4
        return int(self._product["point_bytes"])

    def strips(
        self,
        count: int | None = None,
        *,
        laser: bool | None = None,
        timeout_s: float = 10.0,
        on_loss: OnLoss = "raise",
        backlog_bytes: int = _BACKLOG_BYTES,
    ) -> FrameStream[StripBuffer]:
        """Laser lines, a buffer of some strips at a time. Zero copy.

        Args:
            count: how many strips to take in all; None for no end.
            laser: whether the laser is on meanwhile; None: as configure() says, else on.
            timeout_s: how long to wait for a buffer, seconds.
            on_loss: "raise" raises LostFrames at a gap in the frame ids, "count" counts it.
            backlog_bytes: memory for buffers that wait while a turn of the loop takes its time.

        Returns:
            An iterator of StripBuffer, for ``for`` and ``async for``. The acquisition runs while
            the loop does.

        Raises:
            TimeoutError: no buffer came in time (from the loop).
            LostFrames: strips are missing (from the loop).
            RefusedError: another loop over frames is running.
        """
        return self._stream(
            self._calls.module.strips(),
            _STRIPS,
            lambda frame: StripBuffer(frame, self.point_bytes),
            count,
            laser,
            timeout_s,
            on_loss,
            backlog_bytes,
        )

    def images(
        self,
        count: int | None = None,
        *,
        laser: bool | None = None,
        timeout_s: float = 10.0,
        on_loss: OnLoss = "raise",
        backlog_bytes: int = _BACKLOG_BYTES,
    ) -> FrameStream[Image]:
        """Camera images, one at a time. Zero copy. Arguments and errors as strips().

        Images are large: at a short trigger spacing a loop that does much loses some. Set the
        spacing to what the loop can follow, or count losses.
        """
        return self._stream(
            self._calls.module.images(),
            _IMAGES,
            Image,
            count,
            laser,
            timeout_s,
            on_loss,
            backlog_bytes,
        )

    def image(self, *, laser: bool | None = None, timeout_s: float = 10.0) -> Any:
        """One camera image: grey values, a new array of shape (height, width), dtype uint8."""
        with self.images(1, laser=laser, timeout_s=timeout_s) as images:
            return next(images).pixels.copy()

    def _stream(
        self,
        inbox: Any,
        mode: int,
        wrap: Callable[[Any], Any],
        count: int | None,
        laser: bool | None,
        timeout_s: float,
        on_loss: OnLoss,
        backlog_bytes: int,
    ) -> FrameStream[Any]:
        self._calls.require()
        if not 0 <= operator.index(backlog_bytes) < 1 << 63:
            raise ValueError(f"backlog_bytes must be at least 0, not {backlog_bytes}")

        if laser not in (None, True, False):
            # A text such as "off" would be true.
            raise TypeError(f"laser must be True, False or None, not {laser!r}")
        lit = self._laser != "off" if laser is None else bool(laser)

        def begin(stream: FrameStream[Any]) -> tuple[int, int]:
            self._require_no_loop()
            self._opened.running = weakref.ref(stream)
            try:
                return start()
            except BaseException:
                end()
                inbox.close()
                raise

        def start() -> tuple[int, int]:
            self._calls.set("SetCollectMode", mode)
            self._calls.raw("ResetFrameID")
            if lit:
                self._calls.set("OpenLaser")
            since = int(self._calls.raw("GetTimerCounter"))
            opening = inbox.open(backlog_bytes)
            self._calls.set("SetGlobalControl", 1)
            return opening, since

        def end() -> None:
            self._opened.running = None
            if lit:
                self._opened.switch_off()
            else:
                self._calls.raw("SetGlobalControl", 0)

        return FrameStream(
            inbox,
            count=count,
            wrap=wrap,
            begin=begin,
            end=end,
            check=self._events.raise_failure,
            timeout_s=timeout_s,
            on_loss=on_loss,
        )

    def profiles(
        self,
        count: int,
        *,
        calibration: Calibration | str | os.PathLike[str] | None = "eeprom",
        counts_per_mm: float | None = None,
        speed_mm_s: float | None = None,
        laser: bool | None = None,
        timeout_s: float = 10.0,
        on_loss: OnLoss = "raise",
    ) -> Profiles:
        """Takes laser lines and turns them into profiles, in millimetres with a calibration.

        Args:
            count: how many profiles.
            calibration: of this head: a Calibration, the path of its file, "eeprom" (that of the
                board's EEPROM; without one there, that of a virtual board's ideal optics, or else
                none), or None. Without one the profiles have columns and rows, and asking for
                millimetres raises CalibrationError.
            counts_per_mm: of the encoder, for y; a virtual board's is known when both are None.
            speed_mm_s: of the object, for y without an encoder.
            laser: as in strips().
            timeout_s: as in strips().
            on_loss: as in strips().

        Returns:
            The profiles: ``.xyz`` is one array of shape (points, 3), millimetres.

        Raises:
            CalibrationError: the calibration is damaged, or that of another sensor.
            TimeoutError, LostFrames, RefusedError: as in strips().
        """
        if count is None:
            raise TypeError("profiles() takes a number of profiles; strips() has no end")
        if isinstance(calibration, str) and calibration == "eeprom":
            calibration = self.calibration()
        if self.board is not None and counts_per_mm is None and speed_mm_s is None:
            counts_per_mm = self.board.counts_per_mm
        with self.strips(count, laser=laser, timeout_s=timeout_s, on_loss=on_loss) as stream:
            profiles = Profiles.from_strips(
                stream,
                point_bytes=self.point_bytes,
                geometry=self.geometry,
                calibration=calibration,
                counts_per_mm=counts_per_mm,
                speed_mm_s=speed_mm_s,
            )
        if not profiles.valid.any():
            log.warning(
                "no laser line in %d profiles: look at an image(), and at laser, exposure, region "
                "and threshold; a K38 starts with half of its rows, a K40 without an exposure",
                len(profiles),
            )
        return profiles

    @property
    def geometry(self) -> Geometry:
        """How frames lie on the full sensor, as region, drive mode and direction are set.

        Raises:
            RefusedError: the drive mode was changed after the region, on a K39 or K40, whose sensor
                then has a region that nobody asked for. Set the region again.
        """
        last = self._calls.last
        for name in ("SetROI1", "SetDriveMode", "SetReverseMode"):
            if name in last and last[name] is None:
                raise RefusedError(
                    f"where frames lie on the sensor is not known: {name} was refused",
                    "set drive mode, direction and region again, in this order",
                )
        region = last.get("SetROI1")
        order = list(last)
        if region is not None and "SetDriveMode" in order[order.index("SetROI1") :]:
            if self._product["sensor"] in ("GSPRINT6502BSI", "e2v Flash 4K"):
                raise RefusedError(
                    "where frames lie on the sensor is not known: the drive mode was changed after "
                    "the region",
                    "set the drive mode first, and then the region",
                )
            region = None  # the others' modes bring a region of their own
        return Geometry.of(
            self.model,
            None if region is None else (region[0], region[1], region[2], region[3]),
            drive_mode=last.get("SetDriveMode", (0,))[0],
            direction=last.get("SetReverseMode", (0,))[0],
        )

    def calibration(self) -> Calibration | None:
        """The calibration in the board's EEPROM; else that of a virtual board's ideal optics.

        Returns:
            None when there is neither.

        Raises:
            CalibrationError: the one in the EEPROM is damaged.
            RefusedError: the EEPROM cannot be read.
        """
        stored = Calibration.in_eeprom(self.store.read())
        if stored is None and self.board is not None:
            return self.board.calibration(self.model)
        return stored

    @property
    def interface_version(self) -> int:
        """The version of the device library's interface: 41915."""
        return self._version

    @property
    def collecting(self) -> str:
        """What the sensor's data becomes: "images" or "strips", as the last loop had it."""
        return "images" if self._calls.get("GetCollectMode") == _IMAGES else "strips"

    @property
    def acquiring(self) -> bool:
        """Whether the acquisition runs, as the FPGA has it."""
        return self._calls.get("GetGlobalControl") == 1

    def reset_frame_ids(self) -> None:
        """Lets the next frame have the id 1. Each loop over frames does so at its start.

        Raises:
            RefusedError: a loop over frames is running.
        """
        self._require_no_loop()
        self._calls.set("ResetFrameID")

    def _require_no_loop(self) -> None:
        if self._opened.running is not None and self._opened.running() is not None:
            raise RefusedError(
                "another loop over frames is running", "leave it first, or close() it"
            )

    # --- Settings

    def configure(self, **settings: Any) -> Recipe:
        """Makes settings; what is not given stays as it is. ::

            sensor.configure(spacing_us=4000, exposure_us=150, roi=(0, 0, 1456, 1088))

        All are checked against the product before the first is made.

        Args:
            **settings: as in Recipe: roi, exposure_us, gain, power_percent, laser, trigger,
                spacing_us or spacing_pulses, delay_us, input_filter_us, door, led.

        Returns:
            What was made.

        Raises:
            RefusedError: there is no such setting, or the product has no such value; the message
                has the limits.
            TypeError: a value is nothing that a setting can be.
        """
        made = recipes.configure(self._calls, self.model, **settings)
        self._laser = made.get("laser", self._laser)
        return made

    def apply(self, recipe: Recipe | str | os.PathLike[str]) -> None:
        """Makes the settings of a recipe, or of a recipe's file. Errors as configure()."""
        if not isinstance(recipe, Recipe):
            recipe = Recipe.load(recipe, self.model)
        recipes.apply(self._calls, self.model, recipe)
        self._laser = recipe.get("laser", self._laser)

    # --- Events

    def on_external_trigger(self, callback: Callable[[Event], object] | None) -> None:
        """Calls a function at each change of the external trigger input; None: no longer.

        It runs on the thread "tessaline-events". When it raises, the sensor stops, the laser goes
        off, and the next call of any method raises CallbackError.
        """
        self._notify("trigger", "SetExtTriggerState", callback)

    def on_da_arrived(self, callback: Callable[[Event], object] | None) -> None:
        """Calls a function whenever the hardware has taken over a value of the DA output."""
        self._notify("da", "SetDADelayState", callback)

    def _notify(self, kind: str, switch: str, callback: Callable[[Event], object] | None) -> None:
        self._events.set_callback(kind, callback)
        self._switch(switch, callback is not None)

    def _switch(self, name: str, on: bool) -> None:
        # -2: it is on already.
        self._calls.set(name, int(on), good=(0, -2))

    def events(
        self, kinds: Sequence[str] = ("trigger", "da"), *, timeout_s: float | None = None
    ) -> Iterator[Event]:
        """The events without a callback, one after the other, until none has come for so long.

        Args:
            kinds: what to watch: "trigger", "da".
            timeout_s: seconds without an event after which the iterator ends; None: never.
        """
        switches = {"trigger": "SetExtTriggerState", "da": "SetDADelayState"}
        if isinstance(kinds, str):
            kinds = (kinds,)
        unknown = [kind for kind in kinds if kind not in switches]
        if unknown:
            raise ValueError(f"there is no kind of event {unknown[0]!r}; there are {list(switches)}")
        for kind in kinds:
            self._switch(switches[kind], on=True)
        return self._events.iterate(kinds, timeout_s)
