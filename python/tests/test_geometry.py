"""Millimetres stay right whatever the order of settings. Each product is a process."""

from __future__ import annotations

import pytest
from started import alone

# A sawtooth: z follows from x, so a wrong place on the sensor shows.
HEAD = """
import numpy as np, tessaline
def opened(model):
    return tessaline.Sensor(model, virtual=True, sleep_factor=0, scene="sawtooth")
def require_teeth(sensor, height=0):
    sensor.configure(exposure_us=150)
    profiles = sensor.profiles(3)
    assert profiles.valid.sum() > 1000
    x, z = profiles.x[profiles.valid], profiles.z[profiles.valid]
    np.testing.assert_allclose(z - height, 8 * np.abs(x / 8 - np.round(x / 8)), atol=0.1)
"""
REGIONS = {
    "K3610": (320, 448, 800, 400),
    "K3710": (256, 384, 1024, 1024),
    "K3820": (504, 512, 2016, 1200),
    "K3910": (256, 288, 1024, 640),
    "K4010": (512, 272, 2048, 800),
}


@pytest.mark.parametrize("model", ["K3610", "K3710", "K3820"])
def test_a_drive_mode_brings_a_region_of_its_own(model: str) -> None:
    alone(
        HEAD
        + f"""
with opened({model!r}) as sensor:
    sensor.configure(roi={REGIONS[model]})
    require_teeth(sensor)
    sensor.image_sensor.drive_mode = "half"
    require_teeth(sensor)
    sensor.image_sensor.drive_mode = "full"
    sensor.configure(roi={REGIONS[model]})
    require_teeth(sensor)
"""
    )


def test_a_place_that_is_not_known_is_no_millimetre() -> None:
    alone(
        HEAD
        + f"""
with opened("K3910") as sensor:
    sensor.configure(roi={REGIONS["K3910"]})
    sensor.image_sensor.drive_mode = "half"
    with pytest.raises(tessaline.RefusedError, match="drive mode was changed after the region"):
        sensor.profiles(3)
    assert sensor.board.line(907) in (0, None)
    sensor.image_sensor.drive_mode = "full"
    sensor.configure(roi={REGIONS["K3910"]})
    require_teeth(sensor)
"""
    )


@pytest.mark.parametrize("model", REGIONS)
def test_a_reopened_sensor_has_the_region_of_a_start(model: str) -> None:
    alone(
        HEAD
        + f"""
with opened({model!r}) as sensor:
    whole = sensor.image_sensor.width, sensor.image_sensor.height
    sensor.configure(roi={REGIONS[model]})
    require_teeth(sensor)
with opened({model!r}) as sensor:
    sensor.board.set_scene("sawtooth,z=12")  # a K3820 starts without the rows of z = 0
    require_teeth(sensor, 12)
    assert whole == (sensor.image_sensor.width, sensor.image_sensor.height)
"""
    )
