"""Registers by name."""

from __future__ import annotations

from typing import Any

import pytest
from started import board
from tessaline.errors import DeviceGone, RefusedError
from tessaline.registers import Field

ADDRESS = 0x43C10000


def test_a_register_has_many_names() -> None:
    s = board()
    names = (
        "TRIGGER_CTRL",
        "trigger_ctrl",
        "IMAGE_BLOCK_1.TRIGGER_CTRL",
        "IMAGE_BLOCK_1+0x04",
        hex(ADDRESS + 4),
    )
    found = [s.registers.find(name) for name in names]
    assert all(one == found[0] for one in found)
    register, field = found[0]
    assert field is None
    assert (str(register), register.address, register.index) == (names[2], ADDRESS + 4, 1)
    assert register.fields[0] == Field("mode", 0, 2)
    assert s.registers.find("TRIGGER_CTRL.delay_enable")[1] == Field("delay_enable", 4, 1)


def test_reading_shows_what_the_fpga_holds() -> None:
    s = board()
    for word in (0, 0x12345678, 0xFFFF_FFFF):
        s.plant("OB_OFFSET", word)
        assert s.registers["OB_OFFSET"] == s.registers.read("REBUILD_BLOCK_4.OB_OFFSET") == word
    s.plant("ROI_OFFSET", 0xFFFF_FFFF)
    assert s.registers["ROI_OFFSET.x"] == 4095
    assert s.registers.fields("ROI_OFFSET") == {"x": 4095, "y": 8191, "drive_mode": 127}
    assert s.registers.fields("OB_OFFSET") == {}
    s.plant("ROI_OFFSET", 0)


def test_writing_a_field_leaves_the_rest() -> None:
    s = board()
    s.registers["ROI_OFFSET"] = 0xFFFF_FFFF
    s.registers["ROI_OFFSET.y"] = 0x555
    assert s.held("ROI_OFFSET") == 0xFFFF_FFFF & ~(0x1FFF << 12) | 0x555 << 12
    s.registers.write("ROI_OFFSET", 0)
    assert s.held("ROI_OFFSET") == 0


@pytest.mark.parametrize(
    "name, value, words",
    [
        ("TRIGGER", 0, "outside the register map; did you mean TRIGGER_CTRL"),
        ("TRIGGER_CTRL.speed", 0, "has no field of that name; its fields are mode, door_control"),
        ("STREAM_SWITCH_CTRL", 0, "is in two blocks; write IMAGE_BLOCK_2.STREAM_SWITCH_CTRL or"),
        ("0x43C100F0", 0, "outside the register map"),
        ("IMAGE_BLOCK_1+0xF0", 0, "outside the register map"),
        ("", 0, "outside the register map"),
        ("ROI_OFFSET.x", 4096, "ROI_OFFSET.x must be 0 to 4095, not 4096"),
        ("ROI_OFFSET", 2**32, "must be 0 to 4294967295"),
        ("ROI_OFFSET", -1, "must be 0 to"),
    ],
)
def test_what_there_is_not_is_refused(name: str, value: int, words: str) -> None:
    s = board()
    s.touched()
    with pytest.raises(RefusedError) as caught:
        s.registers[name] = value
    assert words in str(caught.value)
    assert s.touched() == []


def test_wrong_types_are_refused() -> None:
    s = board()
    s.touched()
    name: Any
    for name in (5, None, b"ROI_OFFSET"):
        with pytest.raises(TypeError, match="a register's name is a string"):
            s.registers[name]
    value: Any
    for value in (1.0, "1", None, True):
        with pytest.raises(TypeError):
            s.registers["ROI_OFFSET"] = value
    assert s.touched() == []


def test_the_list_is_the_whole_map() -> None:
    s = board()
    registers = list(s.registers)
    assert len(registers) == len({str(register) for register in registers}) == 137
    assert [one.address for one in registers] == sorted(one.address for one in registers)
    for register in registers:
        used = 0
        for field in register.fields:
            bits = field.most << field.shift
            assert used & bits == 0, f"{register}.{field.name} overlaps"
            used |= bits
            assert s.registers.find(f"{register}.{field.name}") == (register, field)
    dump = s.registers.dump()
    held = s.every_register()
    assert {name: dump[name] for name in held} == held


def test_registers_of_a_closed_sensor() -> None:
    s = board()
    s.calls.close("the sensor is closed")
    try:
        with pytest.raises(DeviceGone):
            s.registers["ROI_OFFSET"]
        assert s.registers.find("ROI_OFFSET")[0].offset == 0x54  # needs no device
    finally:
        s.calls.close("")  # opens it again
