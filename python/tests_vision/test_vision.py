"""What other libraries make of images and clouds. scripts/python-vision installs and runs it."""

from __future__ import annotations

import pathlib

import numpy as np
import pytest
from tessaline import Sensor

cv2 = pytest.importorskip("cv2", reason="python3-opencv is not installed")
open3d = pytest.importorskip("open3d", reason="python3-open3d is not installed")


def test_opencv_reads_the_drivers_buffer(tessaline_sensor: Sensor) -> None:
    sensor = tessaline_sensor
    assert sensor.board is not None
    sensor.board.set_scene("plane,z=5,tilt=2")
    for buf in sensor.strips(1):
        rows = buf[0].rows
    for image in sensor.images(1):
        assert image.zero_copy
        smooth = cv2.GaussianBlur(image.pixels, (1, 9), 2)
        found, png = cv2.imencode(".png", image.pixels)
        kept = image.pixels
    assert found
    np.testing.assert_allclose(smooth.argmax(axis=0), rows, atol=1)
    np.testing.assert_array_equal(cv2.imdecode(png, cv2.IMREAD_UNCHANGED), kept)


def test_opencv_finds_the_treads_in_a_height_map(tessaline_sensor: Sensor) -> None:
    sensor = tessaline_sensor
    assert sensor.board is not None
    sensor.board.set_scene("stairs")
    profiles = sensor.profiles(40)
    heights = profiles.grid("z")
    high = cv2.inRange(heights, 2.5, 3.5)
    count, _, sizes, _ = cv2.connectedComponentsWithStats(high)
    assert count - 1 == 2  # up and down; 0 is the rest
    width_mm = sizes[1:, cv2.CC_STAT_WIDTH] * 72.8 / 1456
    np.testing.assert_allclose(width_mm, 6, atol=0.1)
    assert (sizes[1:, cv2.CC_STAT_HEIGHT] == 40).all()


def test_open3d_fits_the_plane(tessaline_sensor: Sensor) -> None:
    sensor = tessaline_sensor
    assert sensor.board is not None
    sensor.board.set_scene("plane,z=5,tilt=2")
    cloud = open3d.geometry.PointCloud(open3d.utility.Vector3dVector(sensor.profiles(40).xyz))
    (a, b, c, d), inside = cloud.segment_plane(0.01, 3, 200)
    assert len(inside) == 40 * 1456
    assert np.degrees(np.arctan(-a / c)) == pytest.approx(2, abs=0.02)
    assert b / c == pytest.approx(0, abs=0.001)
    assert -d / c == pytest.approx(5, abs=0.01)


def test_open3d_reads_the_file(tessaline_sensor: Sensor, tmp_path: pathlib.Path) -> None:
    profiles = tessaline_sensor.profiles(30)
    path = str(tmp_path / "belt.ply")
    profiles.save_ply(path)
    cloud = open3d.io.read_point_cloud(path)
    np.testing.assert_allclose(np.asarray(cloud.points), profiles.xyz, atol=1e-5)
