"""Calibrations of heads: from columns and rows to millimetres."""

from __future__ import annotations

import json
import os
import tempfile
from collections.abc import Iterable, Mapping, Sequence
from pathlib import Path
from typing import TYPE_CHECKING, Any, NamedTuple

import numpy as np
import numpy.typing as npt

from . import _command, _profile
from .errors import CalibrationError, RefusedError

if TYPE_CHECKING:
    from .profiles import Profiles

__all__ = ["Calibration", "Millimetres", "calibrate"]

_STORE_BYTES = _profile.EEPROM_OFFSET + _profile.EEPROM_BYTES


class Millimetres(NamedTuple):
    """Points in millimetres, arrays of one shape."""

    #: across, along the laser line
    x: npt.NDArray[np.float64]
    #: height
    z: npt.NDArray[np.float64]
    #: 1-sigma uncertainty of x
    x_sigma: npt.NDArray[np.float64]
    #: 1-sigma uncertainty of z
    z_sigma: npt.NDArray[np.float64]


class Calibration:
    """How a head sees its laser plane. Immutable.

    It comes from a file, from the EEPROM of a head, from ``calibrate()``, or from numbers of your
    own with ``from_dict()``. Only a possible one can be made: all numbers finite, the map
    invertible, the whole sensor on this side of the horizon, the distortion growing outwards.

    Two of the same numbers are equal. Pickle works. Threads: any.

    Example::

        head = tessaline.Calibration.load("head.cal")
        x, z, x_sigma, z_sigma = head.to_mm(columns, rows)
    """

    def __init__(self, native: _profile.Calibration, report: dict[str, Any] | None = None) -> None:
        """Use ``load()``, ``from_eeprom()``, ``from_dict()`` or ``calibrate()``."""
        if not isinstance(native, _profile.Calibration):
            raise TypeError("calibrations are made by Calibration.load() and its other ways")
        self._native = native
        self._numbers: dict[str, Any] = json.loads(native.to_json())
        self._report = report

    @classmethod
    def load(cls, path: str | os.PathLike[str]) -> Calibration:
        """Reads a file of ``calibrate()`` or of ``tessaline calibrate``.

        Raises:
            CalibrationError: the file cannot be read, or holds no possible calibration.
        """
        return cls(_profile.Calibration.read(os.fsencode(path)))

    @classmethod
    def from_dict(cls, numbers: Mapping[str, Any]) -> Calibration:
        """Takes numbers in the form of ``to_dict()``, which is that of the file.

        Raises:
            CalibrationError: a number is missing or not finite, or no head can be like this.
        """
        try:
            text = json.dumps(dict(numbers), allow_nan=False, default=_plain)
        except ValueError as error:
            raise CalibrationError(
                "a number of the calibration is not finite", "calibrate the head again"
            ) from error
        return cls(_profile.Calibration.parse(text, "the numbers"))

    @classmethod
    def from_eeprom(cls, content: bytes | bytearray | memoryview) -> Calibration:
        """Takes the block in the EEPROM of a head.

        Args:
            content: all 512 bytes of the store, or the block alone, its bytes 256 to 511.

        Raises:
            CalibrationError: there is no block, or it is damaged or of a newer version.
            RefusedError: there are not so many bytes.
        """
        found = cls.in_eeprom(content)
        if found is None:
            raise CalibrationError(
                "there is no calibration in the EEPROM",
                'store one with "tessaline calibration store FILE"',
            )
        return found

    @classmethod
    def in_eeprom(cls, content: bytes | bytearray | memoryview) -> Calibration | None:
        """The same; None when there is no block."""
        block = bytes(content)
        if len(block) == _STORE_BYTES:
            block = block[_profile.EEPROM_OFFSET :]
        if len(block) != _profile.EEPROM_BYTES:
            raise RefusedError(
                f"the EEPROM holds {_STORE_BYTES} bytes and its calibration "
                f"{_profile.EEPROM_BYTES}, not {len(block)}",
                "read the whole EEPROM",
            )
        native = _profile.Calibration.from_block(block)
        return None if native is None else cls(native)

    def to_eeprom(self) -> bytes:
        """The block of 256 bytes, which lies from byte 256 of the EEPROM on."""
        return self._native.to_block()

    def to_dict(self) -> dict[str, Any]:
        """All numbers, as the file has them."""
        copy: dict[str, Any] = json.loads(self._native.to_json())
        return copy

    def save(self, path: str | os.PathLike[str]) -> None:
        """Writes a file for ``load()`` and the command's ``--calibration``.

        A file of that name is replaced when the new one is whole.

        Raises:
            OSError: it cannot be written.
        """
        target = Path(path)
        part = target.with_name(f".{target.name}.{os.getpid()}.part")
        try:
            part.write_text(self._native.to_json() + "\n", encoding="utf-8")
            part.replace(target)
        finally:
            part.unlink(missing_ok=True)

    def to_mm(self, columns: npt.ArrayLike, rows: npt.ArrayLike) -> Millimetres:
        """Measures points in double precision.

        Args:
            columns: of the full sensor, pixels; any shape.
            rows: likewise; a shape that broadcasts with that of the columns.

        Returns:
            Arrays of the common shape; NaN behind the horizon of the map, and where a number is not
            finite.
        """
        first, second = _pairs(columns, rows)
        arrays = self._native.points_to_mm(first.ravel(), second.ravel())
        return Millimetres(*(array.reshape(first.shape) for array in arrays))

    def to_pixels(
        self, x: npt.ArrayLike, z: npt.ArrayLike
    ) -> tuple[npt.NDArray[np.float64], npt.NDArray[np.float64]]:
        """The other way: where the sensor sees points of the laser plane.

        Args:
            x: across, mm; any shape.
            z: height, mm; a shape that broadcasts with that of x.

        Returns:
            Columns and rows of the full sensor, pixels; NaN where it does not see a point.
        """
        first, second = _pairs(x, z)
        columns, rows = self._native.points_to_pixels(first.ravel(), second.ravel())
        return columns.reshape(first.shape), rows.reshape(first.shape)

    @property
    def report(self) -> dict[str, Any] | None:
        """How ``calibrate()`` got on, as the command tells it with ``--json``; else None.

        ``points``, ``left_out``, ``residual_um``, ``residual_pixels``, ``x_sigma_um``,
        ``z_sigma_um``, and ``views`` with the residuals of each.
        """
        return self._report

    @property
    def model(self) -> str:
        """Code of the product that was calibrated; empty if not known."""
        return str(self._numbers["model"])

    @property
    def sensor_width(self) -> int:
        """Columns of the full sensor."""
        return int(self._numbers["sensor"]["width"])

    @property
    def sensor_height(self) -> int:
        """Rows of the full sensor."""
        return int(self._numbers["sensor"]["height"])

    @property
    def centre(self) -> tuple[float, float]:
        """Column and row of the centre of the distortion, pixels."""
        column, row = self._numbers["centre"]
        return float(column), float(row)

    @property
    def pixels_per_unit(self) -> float:
        """Pixels of a unit of the model."""
        return float(self._numbers["pixels_per_unit"])

    @property
    def distortion(self) -> tuple[float, float, float]:
        """k1, k2, k3."""
        k1, k2, k3 = self._numbers["distortion"]
        return float(k1), float(k2), float(k3)

    @property
    def plane(self) -> npt.NDArray[np.float64]:
        """The projective map from the sensor to the laser plane, shape (3, 3). A new array."""
        return np.array(self._numbers["plane"], dtype=np.float64).reshape(3, 3)

    @property
    def column_sigma(self) -> float:
        """1-sigma uncertainty of a point's column, pixels."""
        return float(self._numbers["sigma"]["column_pixels"])

    @property
    def row_sigma(self) -> float:
        """1-sigma uncertainty of a point's row, pixels."""
        return float(self._numbers["sigma"]["row_pixels"])

    @property
    def x_sigma(self) -> float:
        """1-sigma uncertainty of the calibration itself across, mm; 0 if not known."""
        return float(self._numbers["sigma"]["x_mm"])

    @property
    def z_sigma(self) -> float:
        """1-sigma uncertainty of the calibration itself in height, mm; 0 if not known."""
        return float(self._numbers["sigma"]["z_mm"])

    def __eq__(self, other: object) -> bool:
        return isinstance(other, Calibration) and self._numbers == other._numbers

    def __hash__(self) -> int:
        return hash(self._native.to_json())

    def __repr__(self) -> str:
        model = self.model or "unknown model"
        return f"<Calibration of a {model}, {self.sensor_width} x {self.sensor_height} pixels>"

    def __reduce__(self) -> tuple[Any, ...]:
        return _unpickled, (self.to_dict(), self._report)


def calibrate(
    views: Iterable[str | os.PathLike[str] | Profiles],
    target: str | os.PathLike[str] | Mapping[str, Any],
    *,
    model: str,
    pitch: float | None = None,
    depth: float | None = None,
    at: Sequence[float | Sequence[float]] | None = None,
) -> Calibration:
    """Solves for the calibration of a head from views of a target.

    The command ``tessaline calibrate`` does the work in a child process; its guide says how to
    take views and what targets are good for. Ctrl-C ends it.

    Args:
        views: six or more, each of the target at another place: what was taken there, a few
            profiles at rest, or a csv file of ``tessaline capture strips``.
        target: "sawtooth", "plane", the path of a JSON file with the target's shape, or what such a
            file holds, as a dict.
        model: code of the product, such as "K3610".
        pitch: from tooth to tooth of a sawtooth, mm.
        depth: from valley to peak of a sawtooth, mm.
        at: where the target stood in each view: height in mm, or (height, tilt in degrees), or
            (height, tilt, x in mm). Without it, the first view sets the frame.

    Returns:
        The calibration; its ``report`` tells how far the points are off.

    Raises:
        CalibrationError: the views or the target do not do, with the command's reason.
        TessalineError: the command is not installed.

    Example::

        views = [sensor.profiles(10) for _ in wait_until_moved()]
        head = tessaline.calibrate(views, "sawtooth", pitch=8, depth=4, model="K3610")
        head.save("head.cal")
    """
    with tempfile.TemporaryDirectory(prefix="tessaline-") as folder:
        files, names = [], []
        for i, view in enumerate(views):
            if isinstance(view, (str, os.PathLike)):
                files.append(os.path.abspath(view))
                names.append(os.fspath(view))
            else:
                files.append(os.path.join(folder, f"views[{i}]"))
                names.append(f"views[{i}]")
                view.save_csv(files[-1])
        if isinstance(target, Mapping):
            shape = os.path.join(folder, "target")
            Path(shape).write_text(json.dumps(dict(target), default=_plain), encoding="utf-8")
            target = shape
        output = os.path.join(folder, "head.cal")
        arguments = ["--model", str(model), "--target", os.fspath(target), "--output", output]
        for name, size in (("--pitch", pitch), ("--depth", depth)):
            if size is not None:
                arguments += [name, repr(float(size))]
        for place in at or ():
            arguments.append("--at=" + ",".join(repr(float(n)) for n in np.atleast_1d(place)))
        try:
            report = _command.run(CalibrationError, "calibrate", *arguments, "--", *files)
        except CalibrationError as error:
            where = folder + os.sep
            raise CalibrationError(
                error.what.replace(where, ""), error.advice.replace(where, "")
            ) from None
        del report["file"]
        for fit, name in zip(report["views"], names, strict=True):
            fit["file"] = name
        return Calibration(_profile.Calibration.read(output), report)


def _pairs(
    first: npt.ArrayLike, second: npt.ArrayLike
) -> tuple[npt.NDArray[np.float64], npt.NDArray[np.float64]]:
    one, other = np.broadcast_arrays(
        np.asarray(first, dtype=np.float64), np.asarray(second, dtype=np.float64)
    )
    return one, other


def _plain(value: Any) -> Any:
    if isinstance(value, (np.ndarray, np.generic)):
        return value.tolist()
    raise TypeError(f"a calibration holds numbers and texts, not {type(value).__name__}")


def _unpickled(numbers: dict[str, Any], report: dict[str, Any] | None) -> Calibration:
    calibration = Calibration.from_dict(numbers)
    calibration._report = report
    return calibration
