"""Strips and calibrations for tests, made without the package."""

from __future__ import annotations

from collections.abc import Sequence
from typing import Any

import numpy as np
import numpy.typing as npt

HEADER = np.dtype(
    [("frame_id", "<u8"), ("time_stamp", "<u8"), ("encoder_stamp", "<u8"), ("points", "<u8")]
)
POINT = {
    8: np.dtype([("column", "<u2"), ("peak", "u1"), ("width", "u1"), ("row", "<u4")]),
    4: np.dtype([("column", "<u2"), ("row", "<u2")]),
    2: np.dtype([("row", "<u2")]),
}
STEPS = {8: 65536, 4: 32, 2: 32}
NO_LINE = 0xFFFF

#: A head with distortion and perspective.
HEAD: dict[str, Any] = {
    "calibration": 1,
    "model": "K3610",
    "sensor": {"width": 1456, "height": 1088},
    "centre": [730.5, 541.25],
    "pixels_per_unit": 728.0,
    "distortion": [-0.03, 0.004, -0.0007],
    "plane": [36.4, 0.3, 0.5, -0.2, -26.8, 10.0, 0.01, 0.12, 1.0],
    "sigma": {"column_pixels": 0.1, "row_pixels": 0.05, "x_mm": 0.002, "z_mm": 0.003},
}


def strip(points: npt.NDArray[Any], frame_id: int = 1, time: int = 0, encoder: int = 0) -> bytes:
    """One strip as the FPGA writes it."""
    header = np.array([(frame_id, time, encoder, len(points))], dtype=HEADER)
    return header.tobytes() + points.tobytes()


def points(
    point_bytes: int, columns: Sequence[int] | npt.NDArray[Any], rows: npt.ArrayLike
) -> npt.NDArray[Any]:
    """Points of a strip; rows in pixels of the region. Points of 2 bytes have every column."""
    made = np.zeros(len(columns), dtype=POINT[point_bytes])
    made["row"] = np.round(np.asarray(rows) * STEPS[point_bytes])
    for name, values in (("column", columns), ("peak", 200), ("width", 7)):
        if name in (made.dtype.names or ()):
            made[name] = values
    return made


def series(count: int, point_bytes: int = 8, *, width: int = 1456) -> bytes:
    """Strips of a wavy surface, of different lengths."""
    strips = []
    for i in range(count):
        columns = np.arange(0, width - i)
        rows = 500 + 100 * np.sin(columns / 90 + i)
        line = points(point_bytes, columns, rows)
        strips.append(strip(line, i + 1, 1000 + i * 200_000, 50 + 20 * i))
    return b"".join(strips)


def measure(
    head: dict[str, Any], column: npt.ArrayLike, row: npt.ArrayLike
) -> tuple[npt.NDArray[np.float64], npt.NDArray[np.float64]]:
    """x and z of the head's formulas, in double precision."""
    u = (np.asarray(column, dtype=np.float64) - head["centre"][0]) / head["pixels_per_unit"]
    v = (np.asarray(row, dtype=np.float64) - head["centre"][1]) / head["pixels_per_unit"]
    q = u * u + v * v
    k1, k2, k3 = head["distortion"]
    lens = 1 + k1 * q + k2 * q**2 + k3 * q**3
    plane = np.array(head["plane"]).reshape(3, 3)
    x, z, w = np.tensordot(plane, np.stack([lens * u, lens * v, np.ones_like(u)]), axes=1)
    return x / w, z / w


def sigmas(
    head: dict[str, Any], column: npt.ArrayLike, row: npt.ArrayLike
) -> tuple[npt.NDArray[np.float64], npt.NDArray[np.float64]]:
    """Their 1-sigma uncertainties, with derivatives by differences."""
    column = np.asarray(column, dtype=np.float64)
    row = np.asarray(row, dtype=np.float64)
    step = 1e-3
    sigma = head["sigma"]
    by_column = np.subtract(measure(head, column + step, row), measure(head, column - step, row))
    by_row = np.subtract(measure(head, column, row + step), measure(head, column, row - step))
    spread = np.hypot(
        by_column / (2 * step) * sigma["column_pixels"], by_row / (2 * step) * sigma["row_pixels"]
    )
    return np.hypot(spread[0], sigma["x_mm"]), np.hypot(spread[1], sigma["z_mm"])


def sawtooth_view(height: float, tilt: float, seed: int, *, profiles: int = 6) -> tuple[bytes, int]:
    """Strips of a sawtooth (pitch 8 mm, depth 4 mm) that stands at a place before HEAD."""
    random = np.random.default_rng(seed)
    columns = np.arange(1456)
    low, high = np.zeros(1456), np.full(1456, 1087.0)

    def above(rows: npt.NDArray[np.float64]) -> npt.NDArray[np.bool_]:
        x, z = measure(HEAD, columns, rows)
        angle = np.radians(tilt)
        along = np.cos(angle) * x + np.sin(angle) * (z - height)
        up = -np.sin(angle) * x + np.cos(angle) * (z - height)
        tooth = 4 * (1 - np.abs((along / 4) % 2 - 1))
        return np.asarray(up > tooth)

    for _ in range(40):
        middle = (low + high) / 2
        is_above = above(middle)
        low, high = np.where(is_above, middle, low), np.where(is_above, high, middle)
    seen = (low > 1) & (high < 1086)
    strips = []
    for i in range(profiles):
        rows = low[seen] + random.normal(0, 0.02, np.count_nonzero(seen))
        strips.append(strip(points(8, columns[seen], rows), i + 1))
    return b"".join(strips), profiles
