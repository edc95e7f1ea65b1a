"""A virtual board that makes images by itself, without a started library: for plain capture."""

from __future__ import annotations

from typing import Any

from tessaline import _loader

MODEL = "K3610"
WIDTH, HEIGHT = 1456, 1089  # a line for the header of an image
GLOBAL_CONTROL = 1 << 6
_PORT_OFF = 0x8000_0000
_COMMIT = 2

module: Any = _loader.load(True)
assert module.board_select(MODEL) == 0
module.prepare(5)


def write(name: str, value: int) -> None:
    """Writes a register as software does, with everything that a write triggers."""
    (_, _, _, offset, base, _), _ = module.register_find(MODEL, name)
    assert module.fpga_write_addr(base, offset // 4, value) == 0


def trigger(on: bool) -> None:
    """An image for every free buffer, or none."""
    write("TRIGGER_CTRL", GLOBAL_CONTROL if on else 0)


module.board_chip_set("sensor", 0x3000, 0)  # out of standby
module.board_set_free_run(True)
for _name, _value in {
    "STRIP_IMAGE_WIDTH": WIDTH,
    "STRIP_IMAGE_HEIGHT": HEIGHT - 1,
    "CMOS_WORK_MODE": 3,
    "CMOS_TIMING_CTRL": 5,
    "TRI_SPACING": 200_000,
    "IMAGE_BLOCK_2.STREAM_SWITCH_PORT_0": _PORT_OFF,
    "IMAGE_BLOCK_2.STREAM_SWITCH_PORT_1": 0,
    "IMAGE_BLOCK_4.STREAM_SWITCH_PORT_0": 1,
    "IMAGE_BLOCK_2.STREAM_SWITCH_CTRL": _COMMIT,
    "IMAGE_BLOCK_4.STREAM_SWITCH_CTRL": _COMMIT,
}.items():
    write(_name, _value)
