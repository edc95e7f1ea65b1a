"""How a frame lies on the full sensor."""

from __future__ import annotations

import dataclasses

from . import _profile
from ._calls import number

__all__ = ["Geometry"]

_MOST_PIXELS = 32768
_MOST_STEP = 16


@dataclasses.dataclass(frozen=True)
class Geometry:
    """How a frame lies on the full sensor, at the moment when it is exposed.

    All numbers are pixels of the full sensor, in the order in which it is read: with a flip, column
    or row 0 is the sensor's last one. ``Geometry.of()`` knows them for every model.

    Attributes:
        sensor_width: columns of the full sensor, 1 to 32768.
        sensor_height: rows of the full sensor, 1 to 32768.
        first_column: where column 0 of the frame lies, below sensor_width.
        first_row: where row 0 of the frame lies, below sensor_height.
        column_step: 1; 2 if every other column is left out; at most 16.
        row_step: 1; 2 if every other row is left out; at most 16.
        flip_columns: whether columns are read from the last to the first.
        flip_rows: whether rows are read from the last to the first.

    Raises:
        RefusedError: no frame can lie on a sensor like this.
        TypeError: a number is not a whole one.
    """

    sensor_width: int
    sensor_height: int
    first_column: int = 0
    first_row: int = 0
    column_step: int = 1
    row_step: int = 1
    flip_columns: bool = False
    flip_rows: bool = False

    def __post_init__(self) -> None:
        for name, low, high in (
            ("sensor_width", 1, _MOST_PIXELS),
            ("sensor_height", 1, _MOST_PIXELS),
            ("first_column", 0, _MOST_PIXELS),
            ("first_row", 0, _MOST_PIXELS),
            ("column_step", 1, _MOST_STEP),
            ("row_step", 1, _MOST_STEP),
        ):
            whole = number(name, getattr(self, name), low, high)
            object.__setattr__(self, name, whole)  # plain numbers, also from NumPy
        for name in ("flip_columns", "flip_rows"):
            object.__setattr__(self, name, bool(getattr(self, name)))
        self._native()

    @classmethod
    def full(cls, sensor_width: int, sensor_height: int) -> Geometry:
        """A frame that is the full sensor: no offset, steps of 1, no flip."""
        return cls(sensor_width, sensor_height)

    @classmethod
    def of(
        cls,
        model: str,
        region: tuple[int, int, int, int] | None = None,
        *,
        drive_mode: int = 0x00,
        direction: int = 0,
    ) -> Geometry:
        """How the frames of a model lie on its sensor.

        Args:
            model: code of the product, such as "K3610".
            region: x, y, width and height as SetROI1() gets them; None: that of a start, which is
                also that of a change of the drive mode.
            drive_mode: as SetDriveMode() gets it: 0x00, 0x11 or 0x22.
            direction: as SetReverseMode() gets it: 0 to 3.

        Set these three in this order: drive mode, direction, region. A mode brings a region of its
        own, and on K38.. a direction moves the first row back.

        Raises:
            RefusedError: there is no such model, or its sensor has no such mode, direction or
                place.
        """
        offset = None
        if region is not None:
            x, y, _, _ = region
            offset = (number("x", x, 0, _MOST_PIXELS), number("y", y, 0, _MOST_PIXELS))
        native = _profile.geometry_of(
            str(model),
            offset,
            number("drive_mode", drive_mode, 0, 0xFF),
            number("direction", direction, 0, 3),
        )
        width, height, column, row, column_step, row_step, *flips = native.numbers()
        across, down = map(bool, flips)
        return cls(width, height, column, row, column_step, row_step, across, down)

    def _native(self) -> _profile.Geometry:
        return _profile.Geometry([int(value) for value in dataclasses.astuple(self)])
