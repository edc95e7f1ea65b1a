"""One profile of a series."""

from __future__ import annotations

from typing import TYPE_CHECKING, Any

import numpy as np
import numpy.typing as npt

if TYPE_CHECKING:
    from .profiles import Profiles

__all__ = ["Profile"]

SECONDS_PER_TICK = 20e-9

_Floats = npt.NDArray[np.float32]
_Doubles = npt.NDArray[np.float64]


class Profile:
    """One laser line. It shows the arrays of the Profiles it was taken from, and keeps them."""

    __slots__ = ("_at", "_index", "_of")

    def __init__(self, of: Profiles, index: int) -> None:
        """Use an index: ``profiles[i]``."""
        self._of = of
        self._index = index
        self._at = slice(int(of.starts[index]), int(of.starts[index + 1]))

    def __len__(self) -> int:
        return int(self._at.stop - self._at.start)

    def __repr__(self) -> str:
        return f"<Profile {self.frame_id}: {len(self)} points>"

    def __reduce__(self) -> tuple[Any, ...]:
        return _only, (self._of[self._index : self._index + 1],)

    @property
    def frame_id(self) -> int:
        """Counted by the FPGA."""
        return int(self._of.frame_id[self._index])

    @property
    def time_stamp(self) -> int:
        """Of the exposure, ticks of 20 ns."""
        return int(self._of.time_stamp[self._index])

    @property
    def time_s(self) -> float:
        """The time stamp in seconds."""
        return self.time_stamp * SECONDS_PER_TICK

    @property
    def encoder_stamp(self) -> int:
        """Counts."""
        return int(self._of.encoder_stamp[self._index])

    @property
    def y(self) -> float:
        """Along the movement, mm. Errors as of Profiles.y."""
        return float(self._of[self._index : self._index + 1].y[0])

    @property
    def column(self) -> _Floats:
        """Columns of the full sensor, shape (points,)."""
        return self._of.column[self._at]

    @property
    def row(self) -> _Floats:
        """Rows of the full sensor; NaN where there is no point; shape (points,)."""
        return self._of.row[self._at]

    @property
    def peak(self) -> npt.NDArray[np.uint8]:
        """Grey values of the line, shape (points,)."""
        return self._of.peak[self._at]

    @property
    def width(self) -> npt.NDArray[np.uint8]:
        """Widths of the line in pixels, shape (points,)."""
        return self._of.width[self._at]

    @property
    def valid(self) -> npt.NDArray[np.bool_]:
        """Whether there is a point of the line, shape (points,)."""
        return self._of.valid[self._at]

    @property
    def x(self) -> _Floats:
        """Across in mm, shape (points,). Errors as of Profiles.x."""
        return self._of.x[self._at]

    @property
    def z(self) -> _Floats:
        """Height in mm, shape (points,). Errors as of Profiles.x."""
        return self._of.z[self._at]

    @property
    def x_sigma(self) -> _Floats:
        """1-sigma uncertainty of x in mm, shape (points,)."""
        return self._of.x_sigma[self._at]

    @property
    def z_sigma(self) -> _Floats:
        """1-sigma uncertainty of z in mm, shape (points,)."""
        return self._of.z_sigma[self._at]

    @property
    def xyz(self) -> _Doubles:
        """Valid points in mm, shape (valid points, 3). Errors as of Profiles.xyz."""
        return self._of[self._index : self._index + 1].xyz


def _only(profiles: Profiles) -> Profile:
    return profiles[0]
