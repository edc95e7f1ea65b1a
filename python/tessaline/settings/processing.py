"""The FPGA's image-processing pipeline: corrections, enhancement, filters."""

from __future__ import annotations

from .._calls import Calls
from ..registers import Registers
from ._group import WORD, Group, Setting, on_off, whole

GREY = 255


def _grey(write: str, register: str, doc: str) -> Setting[int, int]:
    return whole(write, 0, GREY, register=register, doc=f"{doc} 0 to 255.")


class Enhancement(Group):
    """Line enhancement. Register: REBUILD_BLOCK_4 ENHANCE_CTRL."""

    enabled = on_off("SetEnhanceEnable", register="ENHANCE_CTRL.enable", doc="Whether it is on.")
    max = _grey(
        "SetEnhanceThresMax", "ENHANCE_CTRL.max", "Highest grey value of pixels to enhance,"
    )
    min = _grey(
        "SetEnhanceThresMin", "ENHANCE_CTRL.min", "Lowest grey value of pixels to enhance,"
    )
    count = whole(
        "SetEnhanceThresNum",
        0,
        15,
        register="ENHANCE_CTRL.num",
        doc="How many neighbours must meet the thresholds, 0 to 15.",
    )
    gain = whole(
        "SetEnhanceGain",
        0,
        7,
        register="ENHANCE_CTRL.gain",
        doc="Gain of the enhancement, 0 to 7.",
    )


class Erosion(Group):
    """Erosion filter. Register: REBUILD_BLOCK_4 EROSION_CTRL."""

    enabled = on_off(
        "SetErosionFilterEnable", register="EROSION_CTRL.enable", doc="Whether it is on."
    )
    max = _grey("SetErosionThresMax", "EROSION_CTRL.max", "Upper grey value,")
    min = _grey("SetErosionThresMin", "EROSION_CTRL.min", "Lower grey value,")
    count = whole(
        "SetErosionThresNum",
        0,
        15,
        register="EROSION_CTRL.num",
        doc="How many neighbours must meet the thresholds, 0 to 15.",
    )
    strategy = whole(
        "SetErosionFilterStrategy",
        0,
        3,
        register="EROSION_CTRL.strategy",
        doc="What the filter does with a pixel that fails, 0 to 3.",
    )


class Processing(Group):
    """Corrections, enhancement and filters, applied to images before the line is extracted.

    None of them can be read back but by Registers. A start of a K39 switches all filters off and
    sets erosion to a threshold of 10 and a count of 8; on the others the FPGA keeps its power-up
    values. Registers: REBUILD_BLOCK_4. Threads: any.

    Example:
        >>> sensor.processing.median = True
        >>> sensor.processing.erosion.max = 40
        >>> sensor.processing.erosion.enabled = True

    """

    def __init__(self, calls: Calls, registers: Registers) -> None:
        super().__init__(calls, registers)
        self._enhancement = Enhancement(calls, registers)
        self._erosion = Erosion(calls, registers)

    @property
    def enhancement(self) -> Enhancement:
        """Line enhancement."""
        return self._enhancement

    @property
    def erosion(self) -> Erosion:
        """Erosion filter."""
        return self._erosion

    binning = on_off("SetBinEnable", register="ISP_CTRL.binning", doc="Binning.")
    hot_pixel = on_off(
        "SetHotpixelEnable", register="ISP_CTRL.hot_pixel", doc="Correction of hot pixels."
    )
    median = on_off("SetMedianFilterEnable", register="MEDIAN_CTRL.enable", doc="Median filter.")
    black_offset = whole(
        "SetObOffset",
        0,
        WORD,
        register="OB_OFFSET",
        doc="Optical-black offset, any number of 32 bits, written unchanged.",
    )
    brightness_max = _grey("SetBriThresMax", "BRI_THRES.max", "Upper brightness threshold,")
    brightness_min = _grey("SetBriThresMin", "BRI_THRES.min", "Lower brightness threshold,")
