from collections.abc import Sequence
from typing import Any

import numpy as np
import numpy.typing as npt

EEPROM_OFFSET: int
EEPROM_BYTES: int

_Floats = npt.NDArray[np.float32]
_Doubles = npt.NDArray[np.float64]
_Stamps = npt.NDArray[np.uint64]
_Bytes = npt.NDArray[np.uint8]

class Geometry:
    def __init__(self, numbers: Sequence[int]) -> None: ...
    def numbers(self) -> tuple[int, int, int, int, int, int, int, int]: ...

class StripReader:
    def __init__(self, geometry: Geometry, point_bytes: int) -> None: ...
    def add(self, strips: Any, count: int) -> None: ...
    def take(
        self,
    ) -> tuple[
        _Stamps,
        _Stamps,
        _Stamps,
        npt.NDArray[np.int64],
        _Floats,
        _Floats,
        _Bytes,
        _Bytes,
        _Bytes,
    ]: ...

class Calibration:
    @staticmethod
    def read(path: str | bytes) -> Calibration: ...
    @staticmethod
    def parse(text: str, source: str) -> Calibration: ...
    @staticmethod
    def from_block(block: Any) -> Calibration | None: ...
    def to_block(self) -> bytes: ...
    def to_json(self) -> str: ...
    def measure(
        self, columns: _Floats, rows: _Floats, sensor_width: int, sensor_height: int
    ) -> tuple[_Floats, _Floats, _Floats, _Floats]: ...
    def points_to_mm(
        self, columns: _Doubles, rows: _Doubles
    ) -> tuple[_Doubles, _Doubles, _Doubles, _Doubles]: ...
    def points_to_pixels(self, x: _Doubles, z: _Doubles) -> tuple[_Doubles, _Doubles]: ...

def geometry_of(
    model: str, offset: tuple[int, int] | None, drive_mode: int, direction: int
) -> Geometry: ...
def library_path() -> str: ...
