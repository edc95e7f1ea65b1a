"""Strips as profiles: columns and rows, and with a calibration millimetres."""

from __future__ import annotations

import math
import operator
import os
from collections.abc import Iterable, Iterator
from typing import Any, Literal, Protocol, overload

import numpy as np
import numpy.typing as npt

from . import _profile
from ._calls import number
from .calibration import Calibration
from .errors import CalibrationError, RefusedError
from .geometry import Geometry
from .profile import SECONDS_PER_TICK, Profile

__all__ = ["Profile", "Profiles"]

_MOST_STRIPS = 0xFFFF_FFFF
_PER_STRIP = ("frame_id", "time_stamp", "encoder_stamp")
_PER_POINT = ("column", "row", "peak", "width", "valid")
_MILLIMETRES = ("x", "z", "x_sigma", "z_sigma")
_GRIDS = ("row", "peak", "width", *_MILLIMETRES)

GridOf = Literal["row", "peak", "width", "x", "z", "x_sigma", "z_sigma"]
BytesLike = bytes | bytearray | memoryview | npt.NDArray[Any]
_Floats = npt.NDArray[np.float32]
_Doubles = npt.NDArray[np.float64]


class _Buffer(Protocol):
    """A buffer of ``Sensor.strips()``."""

    @property
    def raw(self) -> npt.NDArray[np.uint8]: ...
    def __len__(self) -> int: ...


class Profiles:
    """Laser lines of one or more frames, all points of all frames in one array for each thing.

    ``Sensor.profiles()`` takes them; ``from_strips()`` makes them of recorded strips. The points of
    profile i are those from ``starts[i]`` to ``starts[i + 1]``. ``len()`` is the number of
    profiles; an index gives one Profile, a slice, a mask or a list of indices gives Profiles.
    Consecutive profiles share the memory of those they were taken from, others are copies. Pickle
    works. Threads: any number may read.

    Attributes:
        frame_id: counted by the FPGA, shape (profiles,).
        time_stamp: of the exposure, ticks of 20 ns, shape (profiles,).
        encoder_stamp: counts, shape (profiles,).
        starts: where the points of each profile start, and the last one's end; shape
            (profiles + 1,).
        column: columns of the full sensor, 0 is the centre of the first; shape (points,).
        row: rows of the full sensor, with a fraction; NaN where there is no point; shape (points,).
        peak: grey values of the line; 0 if points of this size have none; shape (points,).
        width: of the line in pixels; 0 if points of this size have none; shape (points,).
        valid: whether there is a point of the line; shape (points,).
        geometry: how the frames lie on the sensor.
        calibration: of the head, or None.
        counts_per_mm: of the encoder, or None.
        speed_mm_s: of the object, or None.
    """

    frame_id: npt.NDArray[np.uint64]
    time_stamp: npt.NDArray[np.uint64]
    encoder_stamp: npt.NDArray[np.uint64]
    starts: npt.NDArray[np.int64]
    column: _Floats
    row: _Floats
    peak: npt.NDArray[np.uint8]
    width: npt.NDArray[np.uint8]
    valid: npt.NDArray[np.bool_]
    geometry: Geometry
    calibration: Calibration | None
    counts_per_mm: float | None
    speed_mm_s: float | None
    # Stamps at which y is 0; empty if there are no profiles.
    _origin: tuple[npt.NDArray[np.uint64], npt.NDArray[np.uint64]]
    # x, z and their uncertainties, once they have been asked for.
    _mm: dict[str, _Floats] | None

    def __init__(self) -> None:
        """Use ``from_strips()``."""
        raise TypeError("profiles are made by Profiles.from_strips() and Sensor.profiles()")

    @classmethod
    def from_strips(
        cls,
        chunks: Iterable[tuple[BytesLike, int] | _Buffer],
        *,
        point_bytes: int,
        geometry: Geometry,
        calibration: Calibration | str | os.PathLike[str] | None = None,
        counts_per_mm: float | None = None,
        speed_mm_s: float | None = None,
    ) -> Profiles:
        """Reads strips. Without the GIL, and with no work in Python for a single profile.

        Args:
            chunks: buffers of ``Sensor.strips()``, or pairs of bytes and the number of strips in
                them. Each is read when it comes, and no longer used when the next one is asked for.
            point_bytes: of a point: 8, 4 or 2.
            geometry: how the frames lie on the sensor, see ``Geometry.of()``.
            calibration: of the head, or the path of its file. Without one there are columns and
                rows only.
            counts_per_mm: of the encoder, for y; below 0 if it counts backwards.
            speed_mm_s: of the object, for y without an encoder; below 0 if it moves towards
                negative y.

        Raises:
            StripError: strips do not fit their bytes.
            CalibrationError: the calibration cannot be read, or is that of another sensor.
            RefusedError: a number is out of range, or both scales of y are given.
            TypeError: a chunk is not such a pair, or not of bytes.
        """
        if not isinstance(geometry, Geometry):
            raise TypeError(f"geometry must be a Geometry, not {type(geometry).__name__}")
        made = cls.__new__(cls)
        made.geometry = geometry
        made._measure_with(calibration, counts_per_mm, speed_mm_s)
        reader = _profile.StripReader(geometry._native(), number("point_bytes", point_bytes, 2, 8))
        for chunk in chunks:
            reader.add(*_bytes_and_count(chunk))
        *arrays, valid = reader.take()
        made.__dict__.update(zip((*_PER_STRIP, "starts", *_PER_POINT), arrays))
        made.valid = valid.view(np.bool_)
        made._origin = (made.time_stamp[:1].copy(), made.encoder_stamp[:1].copy())
        return made

    def with_calibration(
        self,
        calibration: Calibration | str | os.PathLike[str] | None,
        *,
        counts_per_mm: float | None = None,
        speed_mm_s: float | None = None,
    ) -> Profiles:
        """The same points, measured otherwise. Arguments and errors as of ``from_strips()``.

        Without a scale, that of these profiles remains.
        """
        if counts_per_mm is None and speed_mm_s is None:
            counts_per_mm, speed_mm_s = self.counts_per_mm, self.speed_mm_s
        other = self[:]
        other._measure_with(calibration, counts_per_mm, speed_mm_s)
        return other

    def _measure_with(
        self,
        calibration: Calibration | str | os.PathLike[str] | None,
        counts_per_mm: float | None,
        speed_mm_s: float | None,
    ) -> None:
        if counts_per_mm is not None and speed_mm_s is not None:
            raise RefusedError(
                "y is measured by the encoder or by time, not by both",
                "give counts_per_mm or speed_mm_s",
            )
        self.counts_per_mm = _scale("counts_per_mm", counts_per_mm)
        self.speed_mm_s = _scale("speed_mm_s", speed_mm_s)
        if calibration is not None and not isinstance(calibration, Calibration):
            calibration = Calibration.load(calibration)
        self.calibration = calibration
        self._mm = None
        if calibration is None:
            return
        g = self.geometry
        sizes = (calibration.sensor_width, calibration.sensor_height)
        if sizes != (g.sensor_width, g.sensor_height):
            raise CalibrationError(
                f"the calibration is that of a sensor of {sizes[0]} x {sizes[1]} pixels, and the "
                f"strips come from one of {g.sensor_width} x {g.sensor_height}",
                "give the calibration of this head",
            )

    # --- Sizes, indexing ---------------------------------------------------------------------

    def __len__(self) -> int:
        return len(self.frame_id)

    @overload
    def __getitem__(self, key: int | np.integer[Any]) -> Profile: ...
    @overload
    def __getitem__(self, key: slice | npt.NDArray[Any] | list[Any]) -> Profiles: ...
    def __getitem__(
        self, key: int | np.integer[Any] | slice | npt.NDArray[Any] | list[Any]
    ) -> Profile | Profiles:
        if isinstance(key, (slice, list, np.ndarray)):
            return self._some(key)
        i = operator.index(key)
        if not -len(self) <= i < len(self):
            raise IndexError(f"there are {len(self)} profiles, and no profile {i}")
        return Profile(self, i % len(self))

    def __iter__(self) -> Iterator[Profile]:
        return (Profile(self, i) for i in range(len(self)))

    def _some(self, key: slice | npt.NDArray[Any] | list[Any]) -> Profiles:
        order = np.atleast_1d(np.arange(len(self))[key]).ravel()
        some = type(self).__new__(type(self))
        some.__dict__.update(self.__dict__)
        some._mm = None
        points: slice | npt.NDArray[np.int64]
        if isinstance(key, slice) and (key.step is None or operator.index(key.step) == 1):
            first = int(order[0]) if len(order) else 0
            bounds = self.starts[first : first + len(order) + 1]
            points = slice(int(bounds[0]), int(bounds[-1]))
            some.starts = bounds - bounds[0]
            strips: slice | npt.NDArray[np.int64] = slice(first, first + len(order))
        else:
            counts = np.diff(self.starts)[order]
            some.starts = np.concatenate(([0], np.cumsum(counts))).astype(np.int64)
            shift = np.repeat(self.starts[order] - some.starts[:-1], counts)
            points = np.arange(some.starts[-1]) + shift
            strips = order
        for name in _PER_STRIP:
            setattr(some, name, getattr(self, name)[strips])
        for name in _PER_POINT:
            setattr(some, name, getattr(self, name)[points])
        return some

    def __repr__(self) -> str:
        unit = "pixels" if self.calibration is None else "mm"
        return f"<Profiles: {len(self)} profiles, {len(self.row)} points, {unit}>"

    def __getstate__(self) -> dict[str, Any]:
        return {**self.__dict__, "_mm": None}

    # --- Positions ---------------------------------------------------------------------------

    @property
    def time_s(self) -> _Doubles:
        """Time stamps in seconds of the FPGA's timer, shape (profiles,)."""
        return self.time_stamp * SECONDS_PER_TICK

    @property
    def y(self) -> _Doubles:
        """Along the movement in mm, shape (profiles,): 0 at the first profile that was taken.

        By the encoder or by time. A slice keeps the zero of the series it was taken from.

        Raises:
            CalibrationError: neither counts_per_mm nor speed_mm_s is known.
        """
        if self.counts_per_mm is None and self.speed_mm_s is None:
            raise CalibrationError(
                "y in mm is not known: the profiles have no scale along the movement",
                "give counts_per_mm=... of the encoder, or speed_mm_s=...",
            )
        time_stamp, encoder_stamp = self._origin
        if self.counts_per_mm is not None:
            # Differences below 0 count, too.
            counts = (self.encoder_stamp - encoder_stamp).view(np.int64)
            return np.divide(counts, self.counts_per_mm)
        ticks = (self.time_stamp - time_stamp).view(np.int64)
        return np.multiply(ticks, SECONDS_PER_TICK * (self.speed_mm_s or 0.0))

    def _millimetres(self, name: str) -> _Floats:
        if self.calibration is None:
            raise CalibrationError(
                f"{name} in mm is not known: the profiles have no calibration",
                "give calibration=... when they are taken, or use with_calibration(); columns and "
                "rows need none",
            )
        if self._mm is None:
            g = self.geometry
            arrays = self.calibration._native.measure(
                self.column, self.row, g.sensor_width, g.sensor_height
            )
            self._mm = dict(zip(_MILLIMETRES, arrays))
        return self._mm[name]

    @property
    def x(self) -> _Floats:
        """Across, along the laser line, in mm; NaN where there is no point. Shape (points,).

        x, z and their uncertainties are computed together at the first use of one of them.

        Raises:
            CalibrationError: there is no calibration.
        """
        return self._millimetres("x")

    @property
    def z(self) -> _Floats:
        """Height in mm; NaN where there is no point. Shape (points,). Errors as of x."""
        return self._millimetres("z")

    @property
    def x_sigma(self) -> _Floats:
        """1-sigma uncertainty of x in mm; NaN where it is not known. Shape (points,)."""
        return self._millimetres("x_sigma")

    @property
    def z_sigma(self) -> _Floats:
        """1-sigma uncertainty of z in mm; NaN where it is not known. Shape (points,)."""
        return self._millimetres("z_sigma")

    @property
    def xyz(self) -> _Doubles:
        """All valid points in mm, shape (valid points, 3): a point cloud. A new array.

        Raises:
            CalibrationError: there is no calibration, or no scale along the movement.
        """
        keep = self.valid
        xyz = np.empty((np.count_nonzero(keep), 3))
        xyz[:, 0] = self.x[keep]
        xyz[:, 1] = np.repeat(self.y, np.diff(self.starts))[keep]
        xyz[:, 2] = self.z[keep]
        return xyz

    # --- Grids -------------------------------------------------------------------------------

    def grid_columns(self, columns: tuple[int, int] | None = None) -> npt.NDArray[np.int64]:
        """Columns of the full sensor that the columns of ``grid()`` stand for."""
        g = self.geometry
        start, stop = (0, g.sensor_width) if columns is None else columns
        start = number("the first column", start, 0, g.sensor_width)
        stop = number("the end of the columns", stop, start, g.sensor_width)
        place = g.sensor_width - 1 - g.first_column if g.flip_columns else g.first_column
        return np.arange(start + (place - start) % g.column_step, stop, g.column_step)

    def grid(self, of: GridOf = "row", *, columns: tuple[int, int] | None = None) -> _Floats:
        """One row for each profile, one column for each that is read of the sensor. A new array.

        Args:
            of: "row", "peak", "width", or with a calibration "x", "z", "x_sigma", "z_sigma".
            columns: first column of the sensor, and the one behind the last; None: all.

        Returns:
            Shape (profiles, columns), NaN where there is no point; a height map for
            OpenCV or ``matplotlib.pyplot.imshow()``. ``grid_columns()`` tells which columns.

        Raises:
            CalibrationError: there is no calibration.
            RefusedError: there is no such thing, or no such columns.
        """
        if of not in _GRIDS:
            raise RefusedError(f"there is no grid of {of!r}", "give one of " + ", ".join(_GRIDS))
        values = getattr(self, of)
        wanted = self.grid_columns(columns)
        grid = np.full((len(self), len(wanted)), np.nan, dtype=np.float32)
        if not wanted.size:
            return grid
        across = (self.column.astype(np.int64) - wanted[0]) // self.geometry.column_step
        keep = self.valid & (across >= 0) & (across < len(wanted))
        profile = np.repeat(np.arange(len(self)), np.diff(self.starts))
        grid[profile[keep], across[keep]] = values[keep]
        return grid

    # --- Files -------------------------------------------------------------------------------

    def save_ply(self, path: str | os.PathLike[str]) -> None:
        """Writes the point cloud ``xyz``, in mm, as a binary PLY file.

        Raises:
            CalibrationError: as of xyz.
            OSError: it cannot be written.
        """
        points = self.xyz.astype("<f4")
        properties = "".join(f"property float {axis}\n" for axis in "xyz")
        head = f"ply\nformat binary_little_endian 1.0\nelement vertex {len(points)}\n"
        with open(path, "wb") as file:
            file.write(f"{head}{properties}end_header\n".encode())
            file.write(points.tobytes())

    def save_csv(self, path: str | os.PathLike[str]) -> None:
        """Writes columns and rows of the valid points, as ``tessaline calibrate`` reads them.

        Raises:
            OSError: it cannot be written.
        """
        keep = self.valid
        stamps = (np.repeat(getattr(self, name), np.diff(self.starts)) for name in _PER_STRIP)
        lists = [array[keep].tolist() for array in (*stamps, self.column, self.row)]
        with open(path, "w", encoding="ascii") as file:
            file.write("frame_id,time_stamp,encoder_stamp,column,row\n")
            file.writelines("%d,%d,%d,%d,%.5f\n" % point for point in zip(*lists, strict=True))


def _bytes_and_count(chunk: tuple[BytesLike, int] | _Buffer) -> tuple[BytesLike, int]:
    if isinstance(chunk, tuple) and len(chunk) == 2:
        return chunk[0], number("the number of strips", chunk[1], 0, _MOST_STRIPS)
    if isinstance(chunk, tuple) or not hasattr(chunk, "raw"):
        raise TypeError(
            "chunks must give buffers of Sensor.strips() or pairs (bytes, number of strips), "
            f"not {type(chunk).__name__}"
        )
    return chunk.raw, len(chunk)


def _scale(name: str, value: float | None) -> float | None:
    if value is None:
        return None
    scale = float(value)
    if not math.isfinite(scale) or scale == 0:
        raise RefusedError(f"{name} must be a number other than 0, not {value!r}")
    return scale
