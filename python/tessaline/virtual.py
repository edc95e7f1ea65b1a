"""The virtual board from its other side: scenes, faults, inputs, and the truth."""

from __future__ import annotations

import errno as _errno
from collections.abc import Iterable
from dataclasses import dataclass
from types import ModuleType
from typing import Literal

from . import _rules
from .calibration import Calibration
from .errors import RefusedError, StartUpError

__all__ = ["Fault", "FrameFault", "VirtualBoard"]

_KINDS = ("lost", "late", "truncated", "corrupt")
_STREAMS = {"images": 0, "strips": 1}


@dataclass(frozen=True)
class Fault:
    """Calls of a device that fail.

    Attributes:
        device: as the transcript names it ("fpga", "i2c-0", "spi1.0", "video1", "gpio", ...), or "*".
        operation: "open", "read", "write", "mmap", "poll", an ioctl's name ("VIDIOC_DQBUF"), or "*".
        error: the number or the name of the errno, such as "EIO".
        skip: matching calls that succeed first.
        count: calls that then fail; 0: all.
    """

    device: str
    operation: str
    error: int | str = "EIO"
    skip: int = 0
    count: int = 0

    def number(self) -> int:
        """The errno as a number."""
        if isinstance(self.error, int):
            return self.error
        number = getattr(_errno, self.error, None)
        if not isinstance(number, int):
            raise ValueError(f'there is no errno "{self.error}"; try "EIO" or errno.EIO')
        return number


@dataclass(frozen=True)
class FrameFault:
    """Frames that go wrong.

    Attributes:
        stream: "images" or "strips" (buffers of strips).
        kind: "lost", "late" (100 ms), "truncated" (half is written) or "corrupt" (a header that
            cannot be).
        skip: frames that are right first.
        count: frames that then go wrong; 0: all.
    """

    stream: Literal["images", "strips"]
    kind: Literal["lost", "late", "truncated", "corrupt"]
    skip: int = 0
    count: int = 1


class VirtualBoard:
    """What only a virtual board can do. ``sensor.board``.

    Threads: any.
    """

    def __init__(self, module: ModuleType) -> None:
        self._module = module
        self._optics = "ideal"

    def _prepare(
        self,
        model: str,
        scene: str,
        optics: str,
        faults: Iterable[Fault | FrameFault],
        sleep_factor: float,
        *,
        select: bool,
    ) -> None:
        if select and self._module.board_select(model) != 0:
            raise StartUpError(
                f'there is no virtual board of a "{model}"',
                'the command "tessaline models" lists the products',
            )
        self.clear_faults()
        self.set_free_run(False)
        self.set_strips_per_buffer(10)
        self.set_sleep_factor(sleep_factor)
        self.set_optics(optics)
        self.set_scene(scene)
        for fault in faults:
            self.plant(fault)

    def set_scene(self, scene: str) -> None:
        """Sets what is in front of the sensor, from the next frame on.

        Args:
            scene: "belt", "plane", "sawtooth" or "stairs"; behind it ",x=MM,z=MM,tilt=DEGREES".

        Raises:
            RefusedError: there is no such scene.
        """
        if self._module.board_set_scene(str(scene)) != 0:
            raise RefusedError(
                f'there is no scene "{scene}"',
                'there are "belt", "plane", "sawtooth" and "stairs", with ",x=5,z=-3,tilt=2"',
            )

    def calibration(self, model: str) -> Calibration | None:
        """The calibration of the ideal optics, which is exact; None with real optics."""
        if self._optics != "ideal":
            return None
        product = _rules.product(model)
        width, height = product["width"], product["height"]
        unit = width / 2
        centre = ((width - 1) / 2, (height - 1) / 2)
        here, right, below = (
            self._truth(centre[0] + across, centre[1] + down)
            for across, down in ((0.0, 0.0), (1.0, 0.0), (0.0, 1.0))
        )
        slope_x, slope_z = unit * (right[0] - here[0]), unit * (below[1] - here[1])
        return Calibration.from_dict(
            {
                "calibration": 1,
                "model": model,
                "sensor": {"width": width, "height": height},
                "centre": list(centre),
                "pixels_per_unit": unit,
                "distortion": [0, 0, 0],
                "plane": [slope_x, 0, here[0], 0, slope_z, here[1], 0, 0, 1],
                "sigma": {"column_pixels": 0, "row_pixels": 0, "x_mm": 0, "z_mm": 0},
            }
        )

    def _truth(self, column: float, row: float) -> tuple[float, float]:
        point = self.point_to_mm(column, row)
        assert point is not None  # ideal optics see all of the plane
        return point

    def set_optics(self, optics: str) -> None:
        """Sets how the camera sees, from the next frame on: "ideal", "real" or "real:SEED"."""
        if self._module.board_set_optics(optics) != 0:
            raise RefusedError(
                f'there are no optics "{optics}"', 'there are "ideal", "real" and "real:SEED"'
            )
        self._optics = optics

    def plant(self, fault: Fault | FrameFault) -> None:
        """Plants a fault. It holds until clear_faults() or the next Sensor."""
        if isinstance(fault, FrameFault):
            if fault.kind not in _KINDS or fault.stream not in _STREAMS:
                raise ValueError(f"there is no such fault: {fault}")
            self._module.board_frame_fault(
                _STREAMS[fault.stream], _KINDS.index(fault.kind), fault.skip, fault.count
            )
        elif isinstance(fault, Fault):
            self._module.board_fault(
                fault.device, fault.operation, fault.skip, fault.count, fault.number()
            )
        else:
            raise TypeError(f"a fault is a Fault or a FrameFault, not {type(fault).__name__}")

    def clear_faults(self) -> None:
        """Forgets all faults."""
        self._module.board_clear_faults()

    def set_free_run(self, free_run: bool) -> None:
        """Timed triggers come whenever a buffer is free, and none is lost (True), or in real time."""
        self._module.board_set_free_run(free_run)

    def set_sleep_factor(self, factor: float) -> None:
        """How long the device library's pauses take: 1 as on hardware, 0 not at all."""
        if not 0 <= factor < float("inf"):
            raise ValueError(f"a sleep factor must be at least 0, not {factor!r}")
        self._module.board_set_sleep_factor(factor)

    def set_strips_per_buffer(self, strips: int) -> None:
        """Strips that the FPGA packs into one buffer; 10 at first. Fewer after 50 ms."""
        self._module.board_set_strips_per_buffer(strips)

    def external_trigger(self, level: bool) -> None:
        """Drives the external trigger input."""
        self._module.board_external_trigger(int(level))

    def da_arrived(self) -> None:
        """Reports that the DA converter has taken over its value."""
        self._module.board_da_arrived()

    def unplug(self) -> None:
        """Takes the board away: open devices fail. It does not come back in this process."""
        self._module.board_unplug()

    def transcript(self) -> str:
        """What crossed the devices since power-up, one line an event."""
        text: str = self._module.board_transcript(False)
        return text

    def clear_transcript(self) -> None:
        """Empties the transcript."""
        self._module.board_transcript_clear()

    def line(self, number: int) -> int | None:
        """Level of a GPIO line: 0 or 1; None when it is not an output."""
        level: int = self._module.board_gpio_level(number)
        return None if level < 0 else level

    def point_to_mm(self, column: float, row: float) -> tuple[float, float] | None:
        """What a pixel of the full sensor sees in the laser plane: x and z in mm. The truth."""
        point: tuple[float, float] | None = self._module.board_point_to_mm(column, row)
        return point

    def height_mm(self, x_mm: float, y_mm: float) -> float:
        """Height of the belt with its objects at a place, mm. The truth of the scene "belt"."""
        height: float = self._module.board_scene_height(x_mm, y_mm)
        return height

    @property
    def counts_per_mm(self) -> float:
        """Encoder counts per mm of movement."""
        counts: float = self._module.board_counts_per_mm()
        return counts
