"""Calibrations: files, EEPROM, numbers, and the solver. What is right, NumPy says (recorded.py)."""

from __future__ import annotations

import copy
import json
import os
import pickle
import struct
import zlib
from pathlib import Path
from typing import Any

import numpy as np
import pytest
import recorded

from tessaline import _command, calibration
from tessaline.calibration import Calibration, calibrate
from tessaline.errors import CalibrationError, RefusedError, TessalineError
from tessaline.geometry import Geometry
from tessaline.profiles import Profiles

HEAD = Calibration.from_dict(recorded.HEAD)
PLACES = [(0, 0), (5, 2), (9, -4), (13, 6), (2, -8), (-4, 3)]


def changed(**changes: Any) -> dict[str, Any]:
    return {**copy.deepcopy(recorded.HEAD), **changes}


# --- Millimetres -----------------------------------------------------------------------------


def test_points_are_measured_by_the_formulas() -> None:
    columns, rows = np.meshgrid(np.linspace(0, 1455, 60), np.linspace(0, 1087, 40))
    mm = HEAD.to_mm(columns, rows)
    for array in mm:
        assert array.shape == (40, 60) and array.dtype == np.float64
    np.testing.assert_allclose((mm.x, mm.z), recorded.measure(recorded.HEAD, columns, rows))
    np.testing.assert_allclose(
        (mm.x_sigma, mm.z_sigma), recorded.sigmas(recorded.HEAD, columns, rows), rtol=1e-6
    )
    back = HEAD.to_pixels(mm.x, mm.z)
    np.testing.assert_allclose(back, (columns, rows), atol=1e-8)


def test_points_broadcast() -> None:
    one = HEAD.to_mm(700, 500)
    assert one.x.shape == () and float(one.z) == HEAD.to_mm([700], [500]).z[0]
    assert HEAD.to_mm(np.arange(5), 500).x.shape == (5,)
    assert HEAD.to_mm([], []).x.shape == (0,)
    with pytest.raises(ValueError, match="broadcast"):
        HEAD.to_mm([1, 2], [1, 2, 3])


def test_places_that_the_sensor_cannot_see_are_nan() -> None:
    assert np.isnan(HEAD.to_mm([np.nan, 1], [1, np.inf])).all()
    behind_the_horizon = 541 - 9 * 728
    flat = Calibration.from_dict(changed(distortion=[0, 0, 0]))
    assert np.isnan(flat.to_mm(728, behind_the_horizon)).all()
    assert np.isnan(HEAD.to_pixels([1e6, np.nan], [0, 0])).all()


# --- Where it is kept ------------------------------------------------------------------------


def test_the_numbers() -> None:
    assert HEAD.model == "K3610" and (HEAD.sensor_width, HEAD.sensor_height) == (1456, 1088)
    assert HEAD.centre == (730.5, 541.25) and HEAD.pixels_per_unit == 728
    assert HEAD.distortion == (-0.03, 0.004, -0.0007)
    np.testing.assert_array_equal(HEAD.plane.ravel(), recorded.HEAD["plane"])
    sigmas = (HEAD.column_sigma, HEAD.row_sigma, HEAD.x_sigma, HEAD.z_sigma)
    assert sigmas == (0.1, 0.05, 0.002, 0.003)
    assert HEAD.report is None and "K3610, 1456 x 1088" in repr(HEAD)
    for name in ("model", "centre", "plane", "z_sigma"):
        with pytest.raises(AttributeError):
            setattr(HEAD, name, None)
    HEAD.to_dict()["centre"][0] = 1
    HEAD.plane[0] = 1
    assert HEAD == Calibration.from_dict(recorded.HEAD)


def test_a_file_and_back(tmp_path: Path) -> None:
    path = tmp_path / "head.cal"
    path.write_text("an older one")
    HEAD.save(path)
    assert Calibration.load(path) == Calibration.load(str(path)) == HEAD
    for name, value in recorded.HEAD.items():
        assert json.loads(path.read_text())[name] == value
    assert os.listdir(tmp_path) == ["head.cal"]
    with pytest.raises(OSError, match="nowhere"):
        HEAD.save(tmp_path / "nowhere" / "head.cal")


def test_the_eeprom_and_back() -> None:
    block = HEAD.to_eeprom()
    assert len(block) == 256 and block.startswith(b"TCAL")
    store = bytes(256) + block
    for content in (block, store, bytearray(store), memoryview(store)):
        assert Calibration.from_eeprom(content) == HEAD


def test_equality_hash_pickle() -> None:
    same = Calibration.from_dict(recorded.HEAD)
    other = Calibration.from_dict(changed(pixels_per_unit=729.0))
    assert same == HEAD and hash(same) == hash(HEAD) and other != HEAD and HEAD != 7
    again = pickle.loads(pickle.dumps(HEAD))
    assert again == HEAD and again.to_eeprom() == HEAD.to_eeprom()


# --- Bad input -------------------------------------------------------------------------------


@pytest.mark.parametrize(
    ("content", "what"),
    [
        ("", "this is no calibration"),
        ("[1]", "this is no calibration"),
        ("\xff\xfe", "this is no calibration"),
        (json.dumps({"calibration": 99}), "version 1 of calibrations only"),
        (json.dumps(changed(plane=[1, 2])), "this is no calibration"),
        (json.dumps(changed(plane=[0.0] * 9)), "no head can be calibrated like this"),
        (json.dumps(changed(centre=[float("nan"), 1])), "this is no calibration"),
    ],
)
def test_files_that_are_no_calibration(tmp_path: Path, content: str, what: str) -> None:
    path = tmp_path / "head.cal"
    path.write_text(content, encoding="latin-1")
    with pytest.raises(CalibrationError, match=rf"head\.cal: .*{what}.*; give a file") as caught:
        Calibration.load(path)
    assert caught.value.advice


def test_files_that_cannot_be_read(tmp_path: Path) -> None:
    with pytest.raises(CalibrationError, match="cannot read .*: No such file"):
        Calibration.load(tmp_path / "none.cal")
    with pytest.raises(CalibrationError):
        Calibration.load(tmp_path)
    odd = os.fsdecode(b"\xff.cal")
    with pytest.raises(CalibrationError, match=r"cannot read .*xff\.cal"):
        Calibration.load(tmp_path / odd)


def test_numbers_that_are_no_calibration() -> None:
    plane = recorded.HEAD["plane"]
    refused: list[tuple[dict[str, Any], str]] = [
        (changed(plane=[float("nan"), *plane[1:]]), "not finite"),
        (changed(plane=[np.inf, *plane[1:]]), "not finite"),
        (changed(plane=np.zeros(9)), "no head can be"),
        (changed(distortion=[-9, 0, 0]), "no head can be"),
        ({"calibration": 1}, "this is no calibration"),
        ({}, "this is no calibration"),
    ]
    for numbers, what in refused:
        with pytest.raises(CalibrationError, match=what):
            Calibration.from_dict(numbers)
    with pytest.raises(TypeError, match="numbers and texts"):
        Calibration.from_dict(changed(plane=object()))
    with pytest.raises(TypeError, match="Calibration.load"):
        Calibration({})  # type: ignore[arg-type]


def test_eeproms_without_a_sound_block() -> None:
    block = bytearray(HEAD.to_eeprom())
    for empty in (bytes(512), b"\xff" * 512):
        with pytest.raises(CalibrationError, match="there is no calibration in the EEPROM; store"):
            Calibration.from_eeprom(empty)
    block[100] ^= 1
    with pytest.raises(CalibrationError, match="damaged"):
        Calibration.from_eeprom(block)
    for size in (0, 255, 511, 513):
        with pytest.raises(RefusedError, match=f"not {size}"):
            Calibration.from_eeprom(bytes(size))


def test_nan_under_a_right_check_sum() -> None:
    block = bytearray(HEAD.to_eeprom())
    centre = struct.pack("<d", HEAD.centre[0])
    checks = [zlib.crc32(block[:at]).to_bytes(4, "little") for at in range(252)]
    end = next(at for at in range(8, 252) if block[at : at + 4] == checks[at])
    struct.pack_into("<d", block, block.index(centre), float("nan"))
    struct.pack_into("<I", block, end, zlib.crc32(block[:end]))
    with pytest.raises(CalibrationError, match="damaged"):
        Calibration.from_eeprom(block)


# --- The solver ------------------------------------------------------------------------------


@pytest.fixture(scope="module")
def views() -> list[Profiles]:
    return [
        Profiles.from_strips(
            [recorded.sawtooth_view(height, tilt, seed)],
            point_bytes=8,
            geometry=Geometry.full(1456, 1088),
        )
        for seed, (height, tilt) in enumerate(PLACES)
    ]


def test_the_solver_finds_the_head(command: str, views: list[Profiles], tmp_path: Path) -> None:
    views[1].save_csv(tmp_path / "one.csv")
    given: list[Any] = [views[0], tmp_path / "one.csv", *views[2:]]
    found = calibrate(given, "sawtooth", model="K3610", pitch=8, depth=4)
    columns, rows = np.meshgrid(np.linspace(200, 1250, 20), np.linspace(250, 800, 20))
    x, z = recorded.measure(recorded.HEAD, columns, rows)
    mm = found.to_mm(columns, rows)
    np.testing.assert_allclose(mm.z, z, atol=0.01)
    # The target may have been anywhere along its teeth.
    np.testing.assert_allclose(mm.x - np.mean(mm.x - x), x, atol=0.01)
    report = found.report
    assert report is not None and report["points"] > 3000 and 0 < report["residual_um"] < 5
    assert [view["file"] for view in report["views"]] == [
        "views[0]",
        str(tmp_path / "one.csv"),
        *(f"views[{i}]" for i in range(2, 6)),
    ]
    assert found.model == "K3610" and found.row_sigma == pytest.approx(0.02, rel=0.2)
    assert pickle.loads(pickle.dumps(found)).report == report
    shape = {"kind": "sawtooth", "pitch": 8, "depth": 4}
    assert calibrate(views, shape, model="K3610").distortion == pytest.approx(
        found.distortion, abs=0.01
    )


def test_what_the_solver_refuses(command: str, views: list[Profiles], tmp_path: Path) -> None:
    saw: dict[str, Any] = {"target": "sawtooth", "model": "K3610", "pitch": 8, "depth": 4}
    refused: list[tuple[list[Any], dict[str, Any], str]] = [
        (views[:2], {}, "view"),
        (views, {"pitch": None}, "a sawtooth has a pitch and a depth; give"),
        (views, {"model": "K36"}, "nearest"),
        (views, {"at": [0]}, "6 files, but 1 place"),
        (views, {"target": tmp_path / "none.json", "pitch": None, "depth": None}, "none.json"),
        ([tmp_path / "none.csv", *views], {}, "cannot read .*none.csv"),
        (views, {"pitch": 9.5}, ""),
        ([], {}, ""),
    ]
    for given, changes, what in refused:
        with pytest.raises(CalibrationError, match=what) as caught:
            calibrate(given, **{**saw, **changes})
        assert "tessaline-" not in str(caught.value)  # no name of a temporary file
        assert caught.value.what


def test_a_command_that_is_not_installed(monkeypatch: pytest.MonkeyPatch, tmp_path: Path) -> None:
    monkeypatch.setattr("tessaline._profile.library_path", lambda: str(tmp_path / "lib" / "x.so"))
    monkeypatch.setenv("PATH", str(tmp_path))
    with pytest.raises(TessalineError, match="not found; install the package"):
        calibration.calibrate([], "plane", model="K3610")
    command = tmp_path / "bin" / "tessaline"
    command.parent.mkdir()
    command.write_text("#!/bin/sh\necho 'it broke' >&2; exit 3\n")
    command.chmod(0o755)
    assert _command.find() == command
    with pytest.raises(CalibrationError, match="it broke"):
        calibration.calibrate([], "plane", model="K3610")
