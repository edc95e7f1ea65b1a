"""Strips to profiles to millimetres. What is right, NumPy says (recorded.py)."""

from __future__ import annotations

import pickle
import subprocess
import sys
import threading
from pathlib import Path
from typing import Any

import numpy as np
import pytest
import recorded

from tessaline.calibration import Calibration
from tessaline.errors import CalibrationError, RefusedError, StripError
from tessaline.geometry import Geometry
from tessaline.profiles import Profiles

SENSOR = Geometry.full(1456, 1088)
HEAD = Calibration.from_dict(recorded.HEAD)


def profiles(count: int = 5, **options: Any) -> Profiles:
    everything: dict[str, Any] = {"point_bytes": 8, "geometry": SENSOR, **options}
    return Profiles.from_strips([(recorded.series(count), count)], **everything)


# --- Columns and rows ------------------------------------------------------------------------


@pytest.mark.parametrize("point_bytes", [8, 4, 2])
def test_every_layout_gives_places_on_the_sensor(point_bytes: int) -> None:
    columns = np.arange(700)
    rows = np.linspace(10, 600, 700)
    strip = recorded.points(point_bytes, columns, rows)
    if point_bytes == 2:
        strip["row"][5] = recorded.NO_LINE
    geometry = Geometry(1456, 1088, first_column=100, first_row=200)
    taken = Profiles.from_strips(
        [(recorded.strip(strip, 7, 11, 13), 1)], point_bytes=point_bytes, geometry=geometry
    )
    assert (taken.frame_id[0], taken.time_stamp[0], taken.encoder_stamp[0]) == (7, 11, 13)
    assert taken.time_s[0] == pytest.approx(220e-9)
    np.testing.assert_array_equal(taken.column, 100 + columns)
    exact = 200 + strip["row"] / recorded.STEPS[point_bytes]
    valid = exact < 1088
    np.testing.assert_array_equal(taken.valid, valid)
    np.testing.assert_allclose(taken.row[valid], exact[valid], atol=1 / 8192, rtol=0)
    assert np.isnan(taken.row[~valid]).all() and (~valid).sum() == (point_bytes == 2)
    assert (taken.peak[0], taken.width[0]) == ((200, 7) if point_bytes == 8 else (0, 0))
    assert taken.valid.dtype == np.bool_ and taken.row.dtype == np.float32


def test_a_flip_and_steps() -> None:
    geometry = Geometry(1456, 1088, 10, 20, 2, 2, True, True)
    strip = recorded.points(8, [0, 3], [0, 100.5])
    taken = Profiles.from_strips([(recorded.strip(strip), 1)], point_bytes=8, geometry=geometry)
    np.testing.assert_array_equal(taken.column, [1455 - 10, 1455 - 16])
    np.testing.assert_array_equal(taken.row, [1087 - 20, 1087 - 221])


def test_many_chunks_are_one_series() -> None:
    whole = profiles(40)
    data = recorded.series(40)
    sizes = [32 + 8 * (1456 - i) for i in range(40)]
    ends = np.cumsum([0, *sizes])
    parts = [(data[ends[i] : ends[i + 4]], 4) for i in range(0, 40, 4)]
    joined = Profiles.from_strips(iter(parts), point_bytes=8, geometry=SENSOR)
    for name in ("frame_id", "time_stamp", "encoder_stamp", "starts", "column", "row", "valid"):
        np.testing.assert_array_equal(getattr(joined, name), getattr(whole, name))
    np.testing.assert_array_equal(whole.starts, np.cumsum([0, *(1456 - i for i in range(40))]))
    assert len(whole) == 40 and whole.row.base is not None


def test_a_chunk_may_be_reused_when_the_next_is_asked_for() -> None:
    memory = bytearray(recorded.strip(recorded.points(8, [1], [1])))

    def chunks() -> Any:
        for i in range(1, 4):
            memory[:] = recorded.strip(recorded.points(8, [i], [10 * i]), frame_id=i)
            yield memory, 1
            memory.extend(b"no array holds it")
            del memory[-17:]

    taken = Profiles.from_strips(chunks(), point_bytes=8, geometry=SENSOR)
    np.testing.assert_array_equal(taken.column, [1, 2, 3])
    np.testing.assert_array_equal(taken.frame_id, [1, 2, 3])


def test_buffers_of_a_sensor_are_taken_as_they_are() -> None:
    class Buffer:
        raw = np.frombuffer(recorded.series(2), dtype=np.uint8)

        def __len__(self) -> int:
            return 2

    assert len(Profiles.from_strips([Buffer()], point_bytes=8, geometry=SENSOR)) == 2


def test_nothing_is_a_series_too() -> None:
    nothing: list[list[tuple[bytes, int]]] = [[], [(b"", 0)]]
    for chunks in nothing:
        none = Profiles.from_strips(
            chunks, point_bytes=8, geometry=SENSOR, calibration=HEAD, counts_per_mm=1
        )
        assert len(none) == 0 and list(none) == []
        assert none.xyz.shape == (0, 3) and none.y.shape == (0,)
        assert none.grid("z").shape == (0, 1456)
        np.testing.assert_array_equal(none.starts, [0])


# --- Millimetres -----------------------------------------------------------------------------


def test_millimetres_are_those_of_the_formulas() -> None:
    taken = profiles(calibration=HEAD)
    x, z = recorded.measure(recorded.HEAD, taken.column, taken.row)
    x_sigma, z_sigma = recorded.sigmas(recorded.HEAD, taken.column, taken.row)
    np.testing.assert_allclose(taken.x, x, atol=5e-5, rtol=0)
    np.testing.assert_allclose(taken.z, z, atol=5e-5, rtol=0)
    np.testing.assert_allclose(taken.x_sigma, x_sigma, rtol=1e-4)
    np.testing.assert_allclose(taken.z_sigma, z_sigma, rtol=1e-4)
    assert np.ptp(taken.z) > 5


def test_the_cloud_has_the_valid_points() -> None:
    strip = recorded.points(2, range(4), [1, 2, 3, 4])
    strip["row"][2] = recorded.NO_LINE
    chunk = recorded.strip(strip, 1, 0, 100) + recorded.strip(strip, 2, 0, 90)
    taken = Profiles.from_strips(
        [(chunk, 2)], point_bytes=2, geometry=SENSOR, calibration=HEAD, counts_per_mm=4
    )
    x, z = recorded.measure(recorded.HEAD, [0, 1, 3], [1, 2, 4])
    expected = np.column_stack([np.tile(x, 2), np.repeat([0, -2.5], 3), np.tile(z, 2)])
    np.testing.assert_allclose(taken.xyz, expected, atol=5e-5)
    assert np.isnan(taken.z[2]) and np.isnan(taken.x[2])


def test_y_by_encoder_and_by_time() -> None:
    np.testing.assert_allclose(profiles(3, counts_per_mm=-10).y, [0, -2, -4])
    np.testing.assert_allclose(profiles(3, speed_mm_s=100).y, [0, 0.4, 0.8])
    # Stamps that pass zero.
    last = recorded.strip(recorded.points(8, [], []), 1, 2**64 - 50, 2**64 - 5)
    first = recorded.strip(recorded.points(8, [], []), 2, 50, 5)
    scales: list[tuple[dict[str, Any], float]]
    scales = [({"counts_per_mm": 2}, 5), ({"speed_mm_s": 1e6}, 2)]
    for scale, y in scales:
        taken = Profiles.from_strips([(last + first, 2)], point_bytes=8, geometry=SENSOR, **scale)
        np.testing.assert_allclose(taken.y, [0, y])


def test_without_a_calibration_there_are_pixels_only() -> None:
    taken = profiles(counts_per_mm=1)
    assert np.isfinite(taken.row).all() and np.isfinite(taken.grid("row")[0]).all()
    for name in ("x", "z", "x_sigma", "z_sigma", "xyz"):
        with pytest.raises(CalibrationError, match="no calibration; give calibration="):
            getattr(taken, name)
        with pytest.raises(CalibrationError, match="no calibration"):
            getattr(taken[0], name) if name != "xyz" else taken[0].xyz
    with pytest.raises(CalibrationError, match="no calibration"):
        taken.grid("z")
    np.testing.assert_array_equal(taken.with_calibration(HEAD).z, profiles(calibration=HEAD).z)
    assert taken.with_calibration(HEAD).xyz.shape == (len(taken.row), 3)


def test_without_a_scale_there_is_no_y() -> None:
    taken = profiles(calibration=HEAD)
    for name in ("y", "xyz"):
        with pytest.raises(CalibrationError, match="counts_per_mm"):
            getattr(taken, name)


# --- Parts -----------------------------------------------------------------------------------


def test_parts_of_a_series() -> None:
    taken = profiles(6, calibration=HEAD, counts_per_mm=10)
    one = taken[-2]
    assert one.frame_id == 5 and len(one) == 1452 and one.y == pytest.approx(8)
    assert (one.time_stamp, one.encoder_stamp) == (801_000, 130)
    assert one.time_s == pytest.approx(801_000 * 20e-9)
    at = slice(taken.starts[4], taken.starts[5])
    for name in ("column", "row", "peak", "width", "valid", "x", "z", "x_sigma", "z_sigma"):
        np.testing.assert_array_equal(getattr(one, name), getattr(taken, name)[at])
        assert np.shares_memory(getattr(one, name), getattr(taken, name))
    np.testing.assert_array_equal(one.xyz, taken.xyz[at])
    assert [profile.frame_id for profile in taken] == [1, 2, 3, 4, 5, 6]

    keys: list[Any] = [slice(1, 4), slice(None, None, -2), slice(3, 3), [5, 0], []]
    keys.append(np.arange(6) > 2)
    for key in keys:
        some = taken[key]
        order = np.arange(6)[key]
        np.testing.assert_array_equal(some.frame_id, taken.frame_id[key])
        np.testing.assert_allclose(some.y, taken.y[key])
        expected = [taken[int(i)].z for i in order]
        np.testing.assert_array_equal(some.z, np.concatenate([*expected, np.empty(0)]))
        assert len(some) == len(order)
        for part, whole in zip(some, expected):
            np.testing.assert_array_equal(part.z, whole)
    assert np.shares_memory(taken[1:4].row, taken.row)
    for wrong in (6, -7):
        with pytest.raises(IndexError, match="there are 6 profiles"):
            taken[wrong]


def test_pickle() -> None:
    taken = profiles(6, calibration=HEAD, counts_per_mm=10)
    again = pickle.loads(pickle.dumps(taken[2:4]))
    np.testing.assert_array_equal(again.xyz, taken[2:4].xyz)
    assert again.geometry == SENSOR and again.calibration == HEAD
    one = pickle.loads(pickle.dumps(taken[3]))
    assert one.frame_id == 4 and one.y == taken[3].y
    assert len(pickle.dumps(taken[3])) < 40_000
    size = len(pickle.dumps(profiles(6, calibration=HEAD, counts_per_mm=10)))
    assert taken.z.size and len(pickle.dumps(taken)) == size  # what can be computed stays here


# --- Grids, files ----------------------------------------------------------------------------


def test_a_grid_has_a_row_for_each_profile() -> None:
    taken = profiles(4, calibration=HEAD)
    grid = taken.grid("z")
    assert grid.shape == (4, 1456) and grid.dtype == np.float32
    for i, profile in enumerate(taken):
        np.testing.assert_array_equal(grid[i, : len(profile)], profile.z)
        assert np.isnan(grid[i, len(profile) :]).all()
    np.testing.assert_array_equal(taken.grid("row", columns=(100, 200)), taken.grid()[:, 100:200])
    np.testing.assert_array_equal(taken.grid_columns((100, 200)), np.arange(100, 200))
    for of, columns in (("column", None), ("row", (5, 4)), ("row", (0, 1457))):
        with pytest.raises(RefusedError):
            taken.grid(of, columns=columns)  # type: ignore[arg-type]


@pytest.mark.parametrize("flip", [False, True])
def test_a_grid_leaves_out_columns_that_are_not_read(flip: bool) -> None:
    geometry = Geometry(1456, 1088, 101, 0, 2, 2, flip_columns=flip)
    columns = np.array([0, 7, 300])
    strip = recorded.points(8, columns, [1, 2, 3])
    taken = Profiles.from_strips([(recorded.strip(strip), 1)], point_bytes=8, geometry=geometry)
    places = 1455 - (101 + 2 * columns) if flip else 101 + 2 * columns
    grid, of_sensor = taken.grid(), taken.grid_columns()
    assert grid.shape == (1, 728) and of_sensor[0] == (0 if flip else 1)
    for place, row in zip(places, [2, 4, 6]):
        assert grid[0, list(of_sensor).index(place)] == row
    assert np.isfinite(grid).sum() == 3


def test_a_cloud_in_a_file(tmp_path: Path) -> None:
    taken = profiles(3, calibration=HEAD, counts_per_mm=10)
    taken.save_ply(tmp_path / "cloud.ply")
    head, data = (tmp_path / "cloud.ply").read_bytes().split(b"end_header\n", 1)
    assert f"element vertex {len(taken.xyz)}\n".encode() in head
    np.testing.assert_array_equal(np.frombuffer(data, "<f4").reshape(-1, 3), taken.xyz.astype("f4"))


# --- Bad input -------------------------------------------------------------------------------


@pytest.mark.parametrize(
    ("cut", "count", "point_bytes"),
    [(-1, 2, 8), (-8, 2, 8), (40, 2, 8), (31, 1, 8), (0, 1, 8), (None, 1, 8), (None, 3, 8)]
    + [(None, 2, 4), (None, 2, 2), (None, 2**32 - 1, 8)],
)
def test_strips_that_do_not_fit_their_bytes(
    cut: int | None, count: int, point_bytes: int
) -> None:
    data = recorded.series(2)[:cut]
    with pytest.raises(StripError, match="strips? .*bytes.*; give the bytes"):
        Profiles.from_strips([(data, count)], point_bytes=point_bytes, geometry=SENSOR)


def test_random_bytes_never_crash() -> None:
    random = np.random.default_rng(3)
    refused = 0
    for size in random.integers(0, 5000, 300):
        data = random.integers(0, 256, size, dtype=np.uint8)
        if size > 32 and size % 3:
            data[24:32] = 0
            data[24] = size % 256
        try:
            Profiles.from_strips([(data, int(size % 5))], point_bytes=8, geometry=SENSOR)
        except StripError:
            refused += 1
    assert refused > 200


def test_the_error_names_the_strip() -> None:
    with pytest.raises(StripError, match="strip 2 of 2 does not fit"):
        Profiles.from_strips([(recorded.series(2)[:-1], 2)], point_bytes=8, geometry=SENSOR)
    with pytest.raises(StripError, match="left behind the last of 1 strips"):
        Profiles.from_strips([(recorded.series(2), 1)], point_bytes=8, geometry=SENSOR)


@pytest.mark.parametrize(
    "chunk",
    [
        (np.zeros(10), 1),
        (np.zeros(10, dtype="<u2"), 1),
        (np.zeros((10, 10), dtype=np.uint8)[:, ::2], 1),
        (np.zeros(4, dtype="M8[s]"), 1),
        ("text", 1),
        (None, 1),
        (b"", 1.5),
        (b"", True),
        (b"",),
        b"bytes",
        7,
    ],
)
def test_chunks_of_a_wrong_type(chunk: Any) -> None:
    with pytest.raises(TypeError, match="bytes|whole number"):
        Profiles.from_strips([chunk], point_bytes=8, geometry=SENSOR)


def test_records_are_bytes_too() -> None:
    record = np.dtype([("head", recorded.HEADER), ("points", recorded.POINT[8], 3)])
    strips = np.zeros(5, dtype=record)
    strips["head"]["points"] = 3
    taken = Profiles.from_strips([(strips, 5)], point_bytes=8, geometry=SENSOR)
    np.testing.assert_array_equal(taken.starts, np.arange(0, 18, 3))


def test_numbers_out_of_range() -> None:
    refused: list[dict[str, Any]] = [
        {"point_bytes": 3},
        {"point_bytes": 16},
        {"counts_per_mm": 0},
        {"counts_per_mm": float("nan")},
        {"counts_per_mm": 1, "speed_mm_s": 1},
    ]
    for options in refused:
        with pytest.raises(RefusedError):
            profiles(1, **options)
    for count in (-1, 2**32):
        with pytest.raises(RefusedError):
            Profiles.from_strips([(b"", count)], point_bytes=8, geometry=SENSOR)
    with pytest.raises(TypeError, match="Geometry"):
        profiles(1, geometry=(1456, 1088))
    with pytest.raises(TypeError, match="from_strips"):
        Profiles()


def test_the_calibration_of_another_sensor() -> None:
    with pytest.raises(CalibrationError, match="1456 x 1088.*2064 x 1544.*; give the calibration"):
        profiles(1, geometry=Geometry.full(2064, 1544), calibration=HEAD)
    with pytest.raises(CalibrationError, match="cannot read"):
        profiles(1, calibration="/nowhere/head.cal")


def test_a_source_that_raises() -> None:
    def chunks() -> Any:
        yield recorded.series(1), 1
        raise KeyboardInterrupt

    with pytest.raises(KeyboardInterrupt):
        Profiles.from_strips(chunks(), point_bytes=8, geometry=SENSOR)


# --- Threads, processes ----------------------------------------------------------------------


def test_threads_read_at_the_same_time() -> None:
    data = recorded.series(60)
    taken = Profiles.from_strips([(data, 60)], point_bytes=8, geometry=SENSOR, calibration=HEAD)
    seen: list[Any] = []

    def read() -> None:
        own = Profiles.from_strips([(data, 60)], point_bytes=8, geometry=SENSOR, calibration=HEAD)
        seen.append((own.z, taken.z))

    threads = [threading.Thread(target=read) for _ in range(4)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert len(seen) == 4
    for own, shared in seen:
        np.testing.assert_array_equal(own, shared)


def test_the_device_library_is_not_loaded() -> None:
    program = (
        "import tessaline.profiles\n"
        "maps = open('/proc/self/maps').read()\n"
        "assert 'libtessaline-profile.so' in maps\n"
        "assert 'libtessaline.so' not in maps\n"
    )
    subprocess.run([sys.executable, "-c", program], check=True)


# --- Geometry --------------------------------------------------------------------------------


def test_geometries_of_models() -> None:
    assert Geometry.of("K3610") == Geometry.full(1456, 1088)
    assert Geometry.of("K3610", (128, 256, 1000, 700)) == Geometry(1456, 1088, 128, 256)
    assert Geometry.of("K3720", drive_mode=0x11) == Geometry(2064, 1544, 8, 8, 1, 2)
    assert Geometry.of("K3810", (280, 100, 2800, 800)) == Geometry(4200, 1024, 280, 50)
    assert Geometry.of("K4010", (64, 8, 640, 80), drive_mode=0x11, direction=1) == Geometry(
        4096, 1080, 128, 16, 2, 2, False, True
    )
    refused: list[tuple[dict[str, Any], str]] = [
        ({"model": "K3611"}, "nearest is K36"),
        ({"model": "K3820", "drive_mode": 0x22}, "no drive mode 0x22; it has 0x00 and 0x11"),
        ({"model": "K4010", "direction": 2}, "it has 0 and 1"),
        ({"model": "K3610", "direction": 4}, "0 to 3"),
        ({"model": "K3610", "region": (1456, 0, 1, 1)}, "no frame can lie"),
        ({"model": "K3610", "region": (-1, 0, 1, 1)}, "x must be"),
    ]
    for arguments, what in refused:
        with pytest.raises(RefusedError, match=what):
            Geometry.of(**arguments)


def test_impossible_geometries() -> None:
    impossible: list[Any] = [(0, 1), (1456, 40000), (9, 9, 9), (9, 9, 0, 0, 17), (9, 9, 0, 0, 0)]
    for numbers in impossible:
        with pytest.raises(RefusedError):
            Geometry(*numbers)
    with pytest.raises(TypeError):
        Geometry(1456.5, 1088)  # type: ignore[arg-type]
    assert Geometry(np.int64(1456), np.int64(1088)) == SENSOR  # type: ignore[arg-type]
