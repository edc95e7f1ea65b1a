"""Exposure and image sensor."""

from __future__ import annotations

import enum

from .. import _rules, recipes
from .._calls import number
from ..errors import RefusedError
from ._group import UNCHANGED, Group, Numbers, Reading, one_of, real, switch, whole, write_only

MOST_EXPOSURES = 5
_KNEE_SENSOR = "e2v Flash 4K"
_SEGMENT_SENSOR = "GSPRINT6502BSI"


class DriveMode(enum.Enum):
    """How the sensor is read. The table of SetDriveMode() in sensor.h says what comes out."""

    FULL = 0x00
    """Every pixel."""
    HALF = 0x11
    """Half the width and half the height."""
    REDUCED = 0x22
    """A second reduced readout of the IMX273 and IMX252."""


class Direction(enum.Enum):
    """The direction in which the sensor is read."""

    NORMAL = 0
    ROWS_REVERSED = 1
    COLUMNS_REVERSED = 2
    BOTH_REVERSED = 3


class ImageSensor(Group):
    """Exposure, gain, region and readout. Devices: the sensor's bus, IMAGE_BLOCK_0. Threads: one.

    What a sensor accepts depends on the product; the error says the limits.

    The e2v Flash 4K (K40..) is polled without an end until it has applied a region, a drive mode or
    a sensing mode. If the chip stays busy, the setting never returns, and Ctrl-C does not end it.
    """

    @property
    def exposure_us(self) -> int | Numbers:
        """Exposure time, or up to five that take turns, each 1 to 10 000 000 us.

        The FPGA gets them in steps of the sensor, rounded up: 3.2 us on K36, 2.9 or 4.2 us on K37,
        1.6 us on K38, 1.1 us on K39, 0.07 us on K40. The steps are computed once: set the times
        again after `drive_mode` has changed. A K40 that times the exposure itself
        (`sensing_mode` 1) clamps what it cannot do, and says so in the log. Cannot be read back;
        `exposure_count` can.

        Raises:
            RefusedError: out of range, or none, or more than five.
        """
        raise write_only("exposure_us", "EXP_TIME_1")

    @exposure_us.setter
    def exposure_us(self, value: int | Numbers) -> None:
        recipes.configure(self._calls, self._registers.model, exposure_us=value)

    exposure_count = whole(
        "SetExposureNum",
        1,
        MOST_EXPOSURES,
        read="GetExposureNum",
        register="EXPOSURE_NUM.count",
        doc="""Exposures that take turns, 1 to 5. Setting `exposure_us` sets it too.""",
    )

    def set_exposure(self, index: int, time_us: int) -> None:
        """Sets one of the exposure times that take turns.

        Args:
            index: 1 to 5, which one.
            time_us: 1 to 10 000 000 microseconds, see `exposure_us`.
        """
        which = number("index", index, 1, MOST_EXPOSURES)
        self._calls.set("SetExposureTime", which, number("time_us", time_us, 1, 10_000_000, "us"))

    @property
    def gain(self) -> int:
        """Analogue gain in the sensor's own steps. Cannot be read back.

        0 to 48 decibels on K36 and K37; levels 1 to 5 on K38, 1 to 4 on K39, 0 to 4 on K40 (0 and 1
        are the same level, so are 2 and 3). The library clamps; here what is outside is refused.
        """
        raise write_only("gain")

    @gain.setter
    def gain(self, value: int) -> None:
        recipes.configure(self._calls, self._registers.model, gain=value)

    @property
    def region(self) -> tuple[int, int, int, int]:
        """Region of interest: x, y, width, height in pixels of the full sensor.

        Each sensor has its own steps; the error names them. The place cannot be read back, the size
        can: `width`, `height`. The reconstruction has its own offset: Reconstruction.roi_offset.
        Takes 100 ms on a K37.

        Raises:
            RefusedError: the sensor has no such region, or not in this drive mode.
        """
        raise write_only("region")

    @region.setter
    def region(self, value: tuple[int, int, int, int]) -> None:
        recipes.configure(self._calls, self._registers.model, roi=value)

    width = Reading(
        "GetImageWidth",
        int,
        doc="""Width of the region in pixels, as the library recorded it, even if the sensor refused
        it. Reads no device.""",
    )
    height = Reading("GetImageHeight", int, doc="""Height in pixels, as `width`.""")
    full_size = Reading(
        "GetCmosMaxDrive",
        lambda packed: (packed >> 16, packed & 0xFFFF),
        doc="""Width and height of the whole sensor in pixels.""",
    )
    frame_rate_constant = Reading(
        "TransferMaxFrameValue",
        int,
        doc="""The packed constant of the current readout, from which the highest frame rate
        follows. The table is that of TransferMaxFrameValue() in sensor.h.""",
    )

    drive_mode = one_of(
        "SetDriveMode",
        DriveMode,
        read="GetDriveMode",
        doc="""How the sensor is read: a DriveMode or its name. The mode last asked for, when read.

        FULL and HALF also set the region to the whole or the half size. Takes 0.1 s on K36, 0.2 s
        on K37. A sensor that refuses has the mode and the region's size recorded even so; a Sony
        sensor stays in standby until a mode is set successfully.
        """,
    )
    direction = one_of(
        "SetReverseMode",
        Direction,
        doc="""The direction in which the sensor is read: a Direction or its name.

        The GSPRINT6502BSI flips nothing; the e2v Flash 4K takes NORMAL and ROWS_REVERSED. Cannot be
        read back.
        """,
    )

    @property
    def sensing_mode(self) -> int:
        """K40: 1 lets the sensor time the exposure, 0 the FPGA. K39: 1 is high dynamic range.

        Set the exposure time again afterwards on a K40. Cannot be read back.

        Raises:
            RefusedError: another number, or a sensor without such modes.
        """
        raise write_only("sensing_mode")

    @sensing_mode.setter
    def sensing_mode(self, value: int) -> None:
        mode = number("sensing_mode", value, 0, 1)
        self._require("sensing mode", _KNEE_SENSOR, _SEGMENT_SENSOR)
        self._calls.set("SetSensingMode", mode)

    def set_hdr_knee(self, position: int, factor: int) -> None:
        """Bends the response of a K40's sensor.

        Args:
            position: 0, 1, or 2, where the factor acts twice.
            factor: 5 to 500, without a unit; 10 after a start. (The library clamps it.)

        In sensing mode 1 set the exposure time again afterwards: its steps depend on the factor.

        Raises:
            RefusedError: out of range, or the product's sensor is another one.
        """
        where = number("position", position, 0, 2)
        strength = number("factor", factor, 5, 500)
        self._require("knee of the response", _KNEE_SENSOR)
        self._calls.set("SetHDRParam", where, strength)

    def set_hdr_segments(self, first: float, second: float) -> None:
        """Splits the exposure of a K39's sensor into three segments.

        Args:
            first: the first segment as a fraction of exposure 1, 0 to 1.
            second: the second segment, likewise; the third is the rest.

        Set the time of exposure 1 first, and `sensing_mode` = 1 afterwards. Registers: HDR_CTRL,
        HDR_SEG2, HDR_SEG3, HDR_GAP, HDR_TOTAL.

        Raises:
            RefusedError: a fraction is out of range, they add up to more than 1, or the product's
                sensor is another one.
        """
        one, two = real("first", first, 0, 1), real("second", second, 0, 1)
        if one + two > 1:
            raise RefusedError(f"first and second add up to {one + two:g}, more than 1", UNCHANGED)
        self._require("exposure in segments", _SEGMENT_SENSOR)
        # The function takes a third number and does not use it.
        self._tell("SetHDRParam24", one, two, 0.0)

    @property
    def continuous(self) -> bool:
        """Continuous acquisition of a K39. Not the layout of strips: Extraction.continuous.

        Cannot be read back.
        """
        raise write_only("continuous", "FPGA_CONTINUOUS")

    @continuous.setter
    def continuous(self, value: bool) -> None:
        state = switch("continuous", value)
        self._require("continuous acquisition", _SEGMENT_SENSOR)
        self._tell("SetFpgaContinuous", state)

    @property
    def answers_temperature(self) -> bool:
        """Whether the sensor gives a temperature when asked. The library does not tell which.

        Always False on a K40, whose sensor has no thermometer.
        """
        return bool(self._calls.raw("GetSensorTemp") == 0)

    def _require(self, what: str, *sensors: str) -> None:
        model = self._registers.model
        sensor = _rules.product(model)["sensor"]
        if sensor not in sensors:
            raise RefusedError(f"the {sensor} of a {model} has no {what}", UNCHANGED)
