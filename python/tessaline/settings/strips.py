"""Extraction of the laser line, and reconstruction."""

from __future__ import annotations

from typing import Any

from .. import _rules
from .._calls import number
from ._group import WORD, Group, Numbers, numbers, switch, whole, write_only

COEFFICIENTS = 21
_SERIES_WITH_WHOLE_THRESHOLD = 21
_SERIES_WITH_SWAPPED_MODES = 24
_LARGEST_THRESHOLD = 255


def _coefficient_bits(index: int) -> int:
    """Bits of a coefficient's register, the sign included."""
    if index < 9:
        return 23
    if index < 18:
        return 26 if index % 3 == 2 else 29
    return 18


def signed(name: str, value: Any, bits: int = 32) -> int:
    """A whole number that fits into so many bits, one of them the sign."""
    return number(name, value, -(1 << (bits - 1)), (1 << (bits - 1)) - 1)


class Extraction(Group):
    """How the FPGA finds the laser line, and what strips carry.

    Registers: RIS_THRESHOLD, STRIP_WIDTH_MIN and STRIP_WIDTH_MAX of REBUILD_BLOCK_1,
    STRIP_DATA_MODE of REBUILD_BLOCK_4, and those of the layout. Threads: any for the first three;
    one for the rest.
    """

    @property
    def rise_threshold(self) -> int:
        """Grey value above which a rise is the edge of the line.

        0 to 255 on K36; 0 to 511 on all others, whose FPGA gets half of it, rounded down. What is
        read is the FPGA's value in the same unit again. (The library writes 255 for more.)
        """
        return self._calls.get("GetRisThresholdValue") * self._threshold_scale

    @rise_threshold.setter
    def rise_threshold(self, value: int) -> None:
        scale = self._threshold_scale
        most = (_LARGEST_THRESHOLD + 1) * scale - 1
        self._calls.set("SetRisThresholdValue", number("rise_threshold", value, 0, most))

    width_min = whole(
        "SetStripWidthMin",
        1,
        128,
        "pixels",
        read="GetStripWidthMin",
        register="STRIP_WIDTH_MIN",
        doc="""Smallest width of a line, 1 to 128 pixels. (The library clamps.)""",
    )
    width_max = whole(
        "SetStripWidthMax",
        1,
        128,
        "pixels",
        read="GetStripWidthMax",
        register="STRIP_WIDTH_MAX",
        doc="""Largest width of a line, 1 to 128 pixels. (The library clamps.)""",
    )

    @property
    def data_mode(self) -> int:
        """Which strip data the FPGA sends; any number of 32 bits.

        The FPGA of K39 numbers modes 1 and 2 the other way round. The library swaps them when they
        are set; here they are swapped back when they are read.
        """
        mode = self._calls.get("GetStripDataMode")
        swapped = self._series == _SERIES_WITH_SWAPPED_MODES and mode in (1, 2)
        return 3 - mode if swapped else mode

    @data_mode.setter
    def data_mode(self, value: int) -> None:
        self._calls.set("SetStripDataMode", number("data_mode", value, 0, WORD - 1))

    write_mode = whole(
        "SetStripWriteMemMode",
        0,
        WORD,
        register="STRIP_WRIMEM_STRATEGY",
        doc="""How strips are written to memory; any number of 32 bits. With 1 a point takes 4
        bytes. Cannot be read back.""",
    )

    @property
    def brightness(self) -> bool:
        """Whether points carry their brightness.

        Every product sends it; on K39 and K40 with arm_rebuild it changes the layout, from 2 bytes
        a point to 4. Cannot be read back.
        """
        raise write_only("brightness", "BR_CONT_MODE_A")

    @brightness.setter
    def brightness(self, value: bool) -> None:
        self._tell("SetBrFlag", switch("brightness", value))

    @property
    def continuous(self) -> bool:
        """Continuous layout: 8 bytes a point on K39 and K40 with arm_rebuild, before `brightness`.

        Cannot be read back.
        """
        raise write_only("continuous", "BR_CONT_MODE_A")

    @continuous.setter
    def continuous(self, value: bool) -> None:
        self._tell("SetContinuousFlag", switch("continuous", value))

    @property
    def _series(self) -> int:
        return int(_rules.product(self._registers.model)["series"])

    @property
    def _threshold_scale(self) -> int:
        return 1 if self._series == _SERIES_WITH_WHOLE_THRESHOLD else 2


class Reconstruction(Group):
    """How the FPGA computes points from rows and columns. Registers: REBUILD_BLOCK_5.

    Nothing of it can be read back but by Registers. Threads: one.
    """

    @property
    def coefficients(self) -> Numbers:
        """The 21 coefficients, whole numbers with a sign.

        Coefficients 0 to 8 have 23 bits, 9, 10, 12, 13, 15 and 16 have 29, 11, 14 and 17 have 26,
        and 18 to 20 have 18, the sign included. (The library cuts what is larger.)

        Raises:
            RefusedError: not 21 numbers, or one does not fit.
        """
        raise write_only("coefficients", "STRIP_REBUILD_0")

    @coefficients.setter
    def coefficients(self, value: Numbers) -> None:
        checked = [
            signed(f"coefficient {index}", one, _coefficient_bits(index))
            for index, one in enumerate(numbers("coefficients", value, COEFFICIENTS))
        ]
        result, _ = self._calls.raw("SetStripRebuildValue", checked)
        if result != 0:
            raise self._calls.refused("SetStripRebuildValue", tuple(checked))

    @property
    def measuring_range(self) -> tuple[int, int]:
        """Start and end of the measured values to keep, each 0 to 67 108 863."""
        raise write_only("measuring_range", "MEASURING_RANGE_START")

    @measuring_range.setter
    def measuring_range(self, value: tuple[int, int]) -> None:
        start, end = numbers("measuring_range", value, 2)
        most = (1 << 26) - 1
        self._calls.set(
            "SetMeasuringRange", number("start", start, 0, most), number("end", end, 0, most)
        )

    @property
    def roi_offset(self) -> tuple[int, int]:
        """Where on the sensor the region of interest lies: column 0 to 4095, row 0 to 8191.

        ImageSensor.region does not set it.
        """
        raise write_only("roi_offset", "ROI_OFFSET")

    @roi_offset.setter
    def roi_offset(self, value: tuple[int, int]) -> None:
        x, y = numbers("roi_offset", value, 2)
        self._calls.set("SetRoiOffset", number("x", x, 0, 4095), number("y", y, 0, 8191))

    def set_sampling(
        self, start_x: int, step_x: int, count_x: int, fourth: int = 0, fifth: int = 0
    ) -> None:
        """Sets the raster on which reconstructed points are sampled. All numbers have 32 bits.

        Args:
            start_x: first position.
            step_x: distance between positions.
            count_x: number of positions.
            fourth: passed to the FPGA unchanged.
            fifth: likewise.

        Raises:
            RefusedError: a number does not fit, or a register cannot be written; those before it
                stay written.
        """
        self._calls.set(
            "SetSampleLightLineParam",
            signed("start_x", start_x),
            signed("step_x", step_x),
            signed("count_x", count_x),
            signed("fourth", fourth),
            signed("fifth", fifth),
        )
