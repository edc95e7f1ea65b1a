"""Every setting: what it writes, what it refuses, and where each exported function lives."""

from __future__ import annotations

from collections.abc import Iterator
from typing import Any

import numpy
import pytest
from started import board
from tessaline.errors import RefusedError, WriteOnlyError
from tessaline.settings import TriggerMode
from tessaline.settings._group import Group, Setting

WORD = 0xFFFF_FFFF
MOST_US = WORD // 50


def place(path: str) -> tuple[Any, str]:
    """The group and the attribute of "outputs[0].width"."""
    owner, _, name = path.rpartition(".")
    return eval(f"s.{owner}", {"s": board()}), name


def assign(path: str, value: Any) -> None:
    group, name = place(path)
    setattr(group, name, value)


# A whole number: where it is, its limits, the register, ticks a unit, and what may change with it.
WHOLE: list[tuple[str, int, int, str, int, tuple[str, ...]]] = [
    ("trigger.spacing_us", 2, MOST_US, "TRI_SPACING", 50, ()),
    ("trigger.delay_us", 0, MOST_US, "TRI_DELAY", 50, ("TRIGGER_CTRL.delay_standard",)),
    ("trigger.delay_pulses", 0, WORD - 1, "TRI_DELAY", 1, ("TRIGGER_CTRL.delay_standard",)),
    ("trigger.input_filter_us", 0, MOST_US, "EXTIN_WIDTH", 50, ()),
    ("trigger.laser_polarity", 0, 1, "POLARITY.laser_trigger", 1, ()),
    ("encoder.reverse_mode", 0, 3, "REVERSE_CTRL.mode", 1, ()),
    ("sync.id", 0, 15, "MASTER_CTRL.id", 1, ()),
    ("outputs[0].width", 0, 2**21 - 1, "DO1_CTRL.width", 1, ()),
    ("outputs[1].width", 0, 2**21 - 1, "DO2_CTRL.width", 1, ()),
    ("outputs[0].event", 0, 3, "DO1_CTRL.event", 1, ()),
    ("outputs[1].event", 0, 3, "DO2_CTRL.event", 1, ()),
    ("outputs[0].mode", 0, 1, "DO1_CTRL.mode", 1, ()),
    ("outputs[1].mode", 0, 1, "DO2_CTRL.mode", 1, ()),
    ("outputs[0].polarity", 0, 1, "POLARITY.output1", 1, ()),
    ("outputs[1].polarity", 0, 1, "POLARITY.output2", 1, ()),
    ("da_output.delay_us", 0, MOST_US, "DA_OUTPUT_DELAY", 50, ("IRQ_CTRL.da_delay_standard",)),
    ("da_output.delay_pulses", 0, WORD - 1, "DA_OUTPUT_DELAY", 1, ("IRQ_CTRL.da_delay_standard",)),
    ("laser.mode", 0, 1, "LASER_CTRL.laser_mode", 1, ()),
    ("image_sensor.exposure_count", 1, 5, "EXPOSURE_NUM.count", 1, ()),
    ("extraction.rise_threshold", 0, 255, "RIS_THRESHOLD", 1, ()),
    ("extraction.width_min", 1, 128, "STRIP_WIDTH_MIN", 1, ()),
    ("extraction.width_max", 1, 128, "STRIP_WIDTH_MAX", 1, ()),
    ("extraction.data_mode", 0, WORD - 1, "STRIP_DATA_MODE", 1, ()),
    (
        "extraction.write_mode",
        0,
        WORD,
        "STRIP_WRIMEM_STRATEGY",
        1,
        ("STRIP_WRIMEM_STRATEGY_WIDTH",),
    ),
    ("processing.black_offset", 0, WORD, "OB_OFFSET", 1, ()),
    ("processing.brightness_max", 0, 255, "BRI_THRES.max", 1, ()),
    ("processing.brightness_min", 0, 255, "BRI_THRES.min", 1, ()),
    ("processing.enhancement.max", 0, 255, "ENHANCE_CTRL.max", 1, ()),
    ("processing.enhancement.min", 0, 255, "ENHANCE_CTRL.min", 1, ()),
    ("processing.enhancement.count", 0, 15, "ENHANCE_CTRL.num", 1, ()),
    ("processing.enhancement.gain", 0, 7, "ENHANCE_CTRL.gain", 1, ()),
    ("processing.erosion.max", 0, 255, "EROSION_CTRL.max", 1, ()),
    ("processing.erosion.min", 0, 255, "EROSION_CTRL.min", 1, ()),
    ("processing.erosion.count", 0, 15, "EROSION_CTRL.num", 1, ()),
    ("processing.erosion.strategy", 0, 3, "EROSION_CTRL.strategy", 1, ()),
]
SWITCHES = [
    ("trigger.delay_enabled", "TRIGGER_CTRL.delay_enable"),
    ("trigger.door_control", "TRIGGER_CTRL.door_control"),
    ("sync.master", "MASTER_CTRL.state"),
    ("outputs[0].enabled", "DO1_CTRL.enable"),
    ("outputs[1].enabled", "DO2_CTRL.enable"),
    ("outputs[0].delay_enabled", "DO1_CTRL.delay_enable"),
    ("outputs[1].delay_enabled", "DO2_CTRL.delay_enable"),
    ("processing.binning", "ISP_CTRL.binning"),
    ("processing.hot_pixel", "ISP_CTRL.hot_pixel"),
    ("processing.median", "MEDIAN_CTRL.enable"),
    ("processing.enhancement.enabled", "ENHANCE_CTRL.enable"),
    ("processing.erosion.enabled", "EROSION_CTRL.enable"),
]
# Settings of one descriptor that a test of their own looks at.
ELSEWHERE = {
    "trigger.mode",
    "encoder.reverse_distance",
    "da_output.value",
    "image_sensor.drive_mode",
    "image_sensor.direction",
    "status_light.colour",
}


@pytest.fixture(autouse=True)
def timer() -> None:
    board().trigger.mode = TriggerMode.TIMER


@pytest.mark.parametrize("path, low, high, register, ticks, also", WHOLE, ids=lambda row: str(row))
def test_a_number_reaches_its_bits_and_no_others(
    path: str, low: int, high: int, register: str, ticks: int, also: tuple[str, ...]
) -> None:
    s = board()
    values: tuple[Any, ...] = (high, low, numpy.uint32((low + high) // 2))
    for value in values:
        before = s.every_register()
        assign(path, value)
        assert s.held(register) == int(value) * ticks
        allowed: dict[str, int] = {}
        for name in (register, *also):
            where, bits = s.mask(name)
            allowed[where] = allowed.get(where, 0) | bits
        changed = s.changed_bits(before)
        spilt = {name: bits & ~allowed.get(name, 0) for name, bits in changed.items()}
        assert not any(spilt.values()), spilt


@pytest.mark.parametrize("path, low, high, register, ticks, also", WHOLE, ids=lambda row: str(row))
def test_a_number_out_of_range_touches_nothing(
    path: str, low: int, high: int, register: str, ticks: int, also: tuple[str, ...]
) -> None:
    s = board()
    s.touched()
    for value in (low - 1, high + 1, 2**70):
        with pytest.raises(RefusedError, match=rf"must be {low} to {high}.*nothing was changed"):
            assign(path, value)
    for wrong in (1.5, float("nan"), True, None, "1", [1], 1j, numpy.float64(1)):
        with pytest.raises(TypeError):
            assign(path, wrong)
    assert s.touched() == []


@pytest.mark.parametrize("path, register", SWITCHES)
def test_a_switch_reaches_its_bit_and_no_other(path: str, register: str) -> None:
    s = board()
    values: tuple[Any, ...] = (True, numpy.bool_(False), numpy.bool_(True), False)
    for value in values:
        before = s.every_register()
        assign(path, value)
        assert s.held(register) == int(value)
        where, bits = s.mask(register)
        assert set(s.changed_bits(before).items()) <= {(where, bits)}
    s.touched()
    for wrong in (1, 0, None, "on", 1.0, float("nan")):
        with pytest.raises(TypeError, match="must be True or False"):
            assign(path, wrong)
    assert s.touched() == []


def settings_of(group: Any, path: str) -> Iterator[tuple[str, Setting[Any, Any]]]:
    for name in dir(type(group)):
        member = getattr(type(group), name)
        if isinstance(member, Setting):
            yield f"{path}.{name}", member
        elif isinstance(member, property) and isinstance(value := _quietly(group, name), Group):
            yield from settings_of(value, f"{path}.{name}")


def _quietly(group: Any, name: str) -> Any:
    try:
        return getattr(group, name)
    except (RefusedError, WriteOnlyError):
        return None


def every_setting() -> dict[str, Setting[Any, Any]]:
    found: dict[str, Setting[Any, Any]] = {}
    for name, group in vars(board()).items():
        if name == "outputs":
            for channel, output in enumerate(group):
                found.update(settings_of(output, f"outputs[{channel}]"))
        elif isinstance(group, Group):
            found.update(settings_of(group, name))
    return found


def test_every_setting_is_in_a_table() -> None:
    tested = {row[0] for row in WHOLE} | {row[0] for row in SWITCHES} | ELSEWHERE
    assert set(every_setting()) <= tested


def test_every_setting_is_described() -> None:
    for path, setting in every_setting().items():
        assert setting.__doc__, path


def test_what_can_be_read_gives_back_what_was_set() -> None:
    read = 0
    for path, low, high, *_ in WHOLE:
        for value in (low, high):
            assign(path, value)
            group, name = place(path)
            try:
                assert getattr(group, name) == value, path
                read += 1
            except WriteOnlyError:
                pass
    for path, _ in SWITCHES:
        for state in (True, False):
            assign(path, state)
            group, name = place(path)
            try:
                assert getattr(group, name) is state, path
                read += 1
            except WriteOnlyError:
                pass
    assert read == 2 * (12 + 4)  # numbers and switches that have a getter


def test_what_cannot_be_read_says_where_to_look() -> None:
    s = board()
    nowhere = set()
    for path, setting in every_setting().items():
        if setting.read or path in ("trigger.mode",):
            continue
        group, name = place(path)
        with pytest.raises(WriteOnlyError, match="cannot be read back") as caught:
            getattr(group, name)
        assert not hasattr(group, name)
        if setting.register:
            quoted = caught.value.advice.split('"')[1]
            assert s.registers.find(quoted)
        else:
            nowhere.add(path)
    assert nowhere == {"da_output.value", "image_sensor.direction", "status_light.colour"}


def test_a_misspelt_setting_is_an_error() -> None:
    with pytest.raises(AttributeError, match="Trigger has no setting 'spacing'.*spacing_us"):
        board().trigger.spacing = 4000  # type: ignore[attr-defined]
    with pytest.raises(AttributeError, match="lost is measured"):
        board().trigger.lost = 0  # type: ignore[assignment]
