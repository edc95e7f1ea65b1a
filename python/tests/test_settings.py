"""Every setting: what it writes, what it refuses, and where each exported function lives."""

from __future__ import annotations

from collections.abc import Iterator
from typing import Any

import numpy
import pytest
from started import board
from tessaline.errors import RefusedError, WriteOnlyError
from tessaline.settings import Colour, Direction, DriveMode, TriggerMode
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
    for value in (high, low, numpy.uint32((low + high) // 2)):
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
    for value in (True, numpy.bool_(False), numpy.bool_(True), False):
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


# --- Settings with rules of their own


def test_trigger_mode() -> None:
    s = board()
    for number, mode in enumerate(TriggerMode):
        s.trigger.mode = mode
        assert s.held("TRIGGER_CTRL.mode") == number == mode.value
        assert s.trigger.mode is mode
    s.trigger.mode = "timer-start"
    assert s.trigger.mode is TriggerMode.TIMER_START
    s.touched()
    with pytest.raises(RefusedError, match="one of timer, encoder, external, timer_start"):
        s.trigger.mode = "clock"
    with pytest.raises(TypeError, match="TriggerMode"):
        s.trigger.mode = 1  # type: ignore[assignment]
    assert s.touched() == []


def test_spacing_has_the_unit_of_the_mode() -> None:
    s = board()
    with pytest.raises(RefusedError, match="no meaning in trigger mode timer; use spacing_us"):
        s.trigger.spacing_pulses = 10
    with pytest.raises(RefusedError, match="use spacing_us"):
        s.trigger.spacing_pulses
    s.trigger.mode = TriggerMode.ENCODER
    s.trigger.spacing_pulses = 10
    assert (s.held("TRI_SPACING"), s.trigger.spacing_pulses) == (10, 10)
    with pytest.raises(RefusedError, match='use spacing_pulses, or set mode = "timer" first'):
        s.trigger.spacing_us = 4000
    with pytest.raises(RefusedError, match="use spacing_pulses"):
        s.trigger.spacing_us
    assert s.held("TRI_SPACING") == 10


def test_door_control_is_refused_in_the_librarys_words() -> None:
    s = board()
    s.trigger.mode = TriggerMode.EXTERNAL
    with pytest.raises(RefusedError, match="SetDoorControlEn TriMode invalid parameter!") as caught:
        s.trigger.door_control = True
    assert caught.value.call == "SetDoorControlEn"
    with pytest.raises(RefusedError, match="GetDoorControlEn TriMode invalid parameter!"):
        s.trigger.door_control


@pytest.mark.parametrize("delayed", ["trigger", "outputs[0]", "outputs[1]"])
def test_a_delay_has_the_unit_that_was_set(delayed: str) -> None:
    group = eval(f"s.{delayed}", {"s": board()})
    group.delay_us = 100
    assert group.delay_us == 100
    with pytest.raises(RefusedError, match="counts microseconds; read delay_us"):
        group.delay_pulses
    group.delay_pulses = 7
    assert group.delay_pulses == 7
    with pytest.raises(RefusedError, match="counts encoder pulses; read delay_pulses"):
        group.delay_us


@pytest.mark.parametrize("channel", [0, 1])
def test_the_delay_of_an_output_has_64_bits(channel: int) -> None:
    s = board()
    output = s.outputs[channel]
    low, high = (f"DO{channel + 1}_DELAY_{half}" for half in "LH")
    for value in (0, 1, 2**40, (2**64 - 1) // 50):
        output.delay_us = value
        assert s.held(high) << 32 | s.held(low) == value * 50
        assert output.delay_us == value
    output.delay_pulses = 2**64 - 2
    assert output.delay_pulses == 2**64 - 2
    for wrong in (-1, 2**64 - 1):
        with pytest.raises(RefusedError):
            output.delay_pulses = wrong


def test_reverse_distance_needs_its_mode() -> None:
    s = board()
    s.encoder.reverse_mode = 2
    for value in (1023, 0, 512):
        s.encoder.reverse_distance = value
        assert s.held("REVERSE_CTRL.distance") == s.encoder.reverse_distance == value
        assert s.held("REVERSE_CTRL.mode") == 2
    for wrong in (-1, 1024):
        with pytest.raises(RefusedError):
            s.encoder.reverse_distance = wrong
    s.encoder.reverse_mode = 1
    with pytest.raises(RefusedError, match="SetReverseDistance ReverseMode invalid parameter!"):
        s.encoder.reverse_distance = 1


def test_there_are_two_outputs() -> None:
    assert len(board().outputs) == len(list(board().outputs)) == 2
    with pytest.raises(IndexError):
        board().outputs[2]


def test_the_da_output_writes_its_converter() -> None:
    s = board()
    for value in (0, 4095, 2048):
        s.touched()
        s.da_output.value = value
        assert len(s.touched()) > 0
    with pytest.raises(RefusedError):
        s.da_output.value = 4096
    s.module.board_chip_present("da", 0)
    try:
        with pytest.raises(RefusedError, match="DAWrite"):
            s.da_output.value = 1
    finally:
        s.module.board_chip_present("da", 1)


def test_the_laser_drives_both_lines() -> None:
    s = board()
    lines = (907, 934)
    s.laser.on()
    assert [s.module.board_gpio_level(line) for line in lines] == [1, 1]
    s.laser.off()
    assert [s.module.board_gpio_level(line) for line in lines] == [0, 0]
    s.module.board_fault("gpio", "open", 0, 0, 13)
    try:
        for switch, call in ((s.laser.on, "OpenLaser"), (s.laser.off, "CloseLaser")):
            with pytest.raises(RefusedError, match=rf"{call}\(\) failed: .*Laser::") as caught:
                switch()
            assert caught.value.call == call
    finally:
        s.module.board_clear_faults()
    s.laser.off()


def test_laser_power() -> None:
    s = board()
    assert s.laser.power_steps == 1024
    for percent, step in ((0, 0), (90, 920), (50.0, 511), (numpy.float32(25), 255)):
        s.laser.power_percent = percent
        assert s.module.board_chip_get("pot", 0) == step
    s.touched()
    for wrong in (-0.1, 100.1, float("nan"), float("inf")):
        with pytest.raises(RefusedError, match="power_percent must be 0 to 100 %"):
            s.laser.power_percent = wrong
    for nothing in (True, "50", None):
        with pytest.raises(TypeError):
            s.laser.power_percent = nothing  # type: ignore[assignment]
    assert s.touched() == []


def test_the_status_light_shows_each_colour() -> None:
    s = board()
    for colour in Colour:
        s.status_light.colour = colour
        levels = [s.module.board_gpio_level(line) for line in (961, 962, 963)]
        assert sum(level << bit for bit, level in enumerate(levels)) == colour.value
    s.status_light.colour = "magenta"
    with pytest.raises(RefusedError, match="one of off, red, green"):
        s.status_light.colour = "pink"
    with pytest.raises(WriteOnlyError):
        s.status_light.colour


def test_temperatures() -> None:
    s = board()
    s.module.board_set_temperature_raw(2600)
    assert s.temperatures.cpu == pytest.approx(2600 * 503.975 / 4096 - 273.15, abs=1e-4)
    s.module.board_fault("iio", "open", 0, 0, 2)
    try:
        with pytest.raises(RefusedError, match="GetCpuTemp"):
            s.temperatures.cpu
    finally:
        s.module.board_clear_faults()
    assert s.temperatures.external == 0
    assert s.image_sensor.answers_temperature is True


def test_exposures() -> None:
    s = board()
    s.image_sensor.exposure_us = 150
    assert (s.image_sensor.exposure_count, s.held("EXP_TIME_1")) == (1, 47)  # 150 / 3.205387
    s.image_sensor.exposure_us = numpy.array([100, 800])
    assert (s.image_sensor.exposure_count, s.held("EXP_TIME_1")) == (2, 32)
    assert s.held("EXP_TIME_2") == 250
    s.image_sensor.set_exposure(5, 10)
    assert s.held("EXP_TIME_5") == 4
    s.touched()
    for wrong in (0, 10_000_001, 1.5, [], [1] * 6, [100, 0], float("nan"), [float("nan")]):
        with pytest.raises(RefusedError, match="exposure_us"):
            s.image_sensor.exposure_us = wrong  # type: ignore[assignment]
    for index, time in ((0, 10), (6, 10), (1, 0)):
        with pytest.raises(RefusedError):
            s.image_sensor.set_exposure(index, time)
    assert s.touched() == []
    with pytest.raises(WriteOnlyError):
        s.image_sensor.exposure_us


def test_gain_and_region_have_the_limits_of_the_product() -> None:
    s = board()
    s.image_sensor.gain = 6
    assert s.module.board_chip_get("sensor", 0x3204) == 60
    s.image_sensor.region = (0, 0, 728, 544)
    assert (s.image_sensor.width, s.image_sensor.height) == (728, 544)
    assert (s.held("STRIP_IMAGE_WIDTH"), s.held("STRIP_IMAGE_HEIGHT")) == (728, 544)
    s.touched()
    with pytest.raises(RefusedError, match="no gain of 49; its gain is 0 to 48 decibels"):
        s.image_sensor.gain = 49
    for wrong in ((0, 0, 1457, 1088), (1, 0, 1456, 1088), (0, 0, 0, 0)):
        with pytest.raises(RefusedError, match="a region lies within 1456 x 1088 pixels"):
            s.image_sensor.region = wrong
    for shape in ((0, 0, 1456), "0 0 1456 1088", 5, (0, 0, 1456, float("nan"))):
        with pytest.raises(RefusedError):
            s.image_sensor.region = shape  # type: ignore[assignment]
    with pytest.raises(RefusedError, match="region.x is -1"):
        s.image_sensor.region = (-1, 0, 10, 10)
    assert s.touched() == []
    s.image_sensor.region = (0, 0, 1456, 1088)


def test_readout() -> None:
    s = board()
    assert s.image_sensor.full_size == (1456, 1088)
    assert s.image_sensor.frame_rate_constant == 0x00EE2A11
    s.image_sensor.drive_mode = "half"
    assert s.image_sensor.drive_mode is DriveMode.HALF
    assert (s.image_sensor.width, s.image_sensor.height) == (728, 544)
    assert s.image_sensor.frame_rate_constant == 0x00DA2A11
    s.image_sensor.drive_mode = DriveMode.FULL
    for direction in Direction:
        s.image_sensor.direction = direction
        assert s.module.board_chip_get("sensor", 0x300E) & 3 == direction.value
    s.image_sensor.direction = Direction.NORMAL
    with pytest.raises(WriteOnlyError):
        s.image_sensor.direction


def test_what_a_sensor_does_not_have_is_refused() -> None:
    s = board()
    s.touched()
    for setting in (
        lambda: setattr(s.image_sensor, "sensing_mode", 1),
        lambda: setattr(s.image_sensor, "continuous", True),
        lambda: s.image_sensor.set_hdr_knee(1, 10),
        lambda: s.image_sensor.set_hdr_segments(0.5, 0.25),
    ):
        with pytest.raises(RefusedError, match="the IMX273 of a K3610 has no"):
            setting()
    assert s.touched() == []


def test_layout_of_points() -> None:
    s = board()
    for brightness, continuous, mode in ((0, 0, 0), (1, 0, 1), (1, 1, 2), (0, 1, 2), (0, 0, 0)):
        s.extraction.brightness = bool(brightness)
        s.extraction.continuous = bool(continuous)
        assert s.held("BR_CONT_MODE_A") == s.held("BR_CONT_MODE_B") == mode
    for name in ("brightness", "continuous"):
        with pytest.raises(WriteOnlyError):
            getattr(s.extraction, name)
        with pytest.raises(TypeError):
            setattr(s.extraction, name, 1)


def test_reconstruction() -> None:
    s = board()
    bits = [23] * 9 + [29, 29, 26] * 3 + [18] * 3
    for values in (
        [2 ** (width - 1) - 1 for width in bits],
        [-(2 ** (width - 1)) for width in bits],
        [index - 10 for index in range(21)],
    ):
        s.reconstruction.coefficients = numpy.array(values)
        held = [s.held(f"STRIP_REBUILD_{index}") for index in range(21)]
        assert held == [value % 2**width for value, width in zip(values, bits)]
    s.reconstruction.measuring_range = (1, 2**26 - 1)
    assert (s.held("MEASURING_RANGE_START"), s.held("MEASURING_RANGE_END")) == (1, 2**26 - 1)
    s.reconstruction.roi_offset = (4095, 8191)
    assert (s.held("ROI_OFFSET.x"), s.held("ROI_OFFSET.y")) == (4095, 8191)
    assert s.held("ROI_OFFSET.drive_mode") == 0
    s.reconstruction.set_sampling(-5, 2**31 - 1, 100, -(2**31), 7)
    names = ("RECONSTRUCTION_START_X", "RECONSTRUCTION_STEP_X", "RECONSTRUCTION_CNT_X")
    assert [s.held(name) for name in names] == [2**32 - 5, 2**31 - 1, 100]
    assert (s.held("SAMPLE_LINE_PARAM_4"), s.held("SAMPLE_LINE_PARAM_5")) == (2**31, 7)


@pytest.mark.parametrize(
    "name, wrong",
    [
        ("coefficients", [0] * 20),
        ("coefficients", [2**22] + [0] * 20),
        ("coefficients", [0] * 20 + [-(2**17) - 1]),
        ("measuring_range", (0, 2**26)),
        ("measuring_range", (-1, 5)),
        ("measuring_range", (1, 2, 3)),
        ("roi_offset", (4096, 0)),
        ("roi_offset", (0, 8192)),
    ],
)
def test_reconstruction_out_of_range_touches_nothing(name: str, wrong: Any) -> None:
    s = board()
    s.touched()
    with pytest.raises(RefusedError):
        setattr(s.reconstruction, name, wrong)
    for shape in (None, 5, "12", [0.5] * 21, float("nan")):
        with pytest.raises((TypeError, RefusedError)):
            setattr(s.reconstruction, name, shape)
    with pytest.raises(RefusedError):
        s.reconstruction.set_sampling(2**31, 0, 0)
    assert s.touched() == []
    with pytest.raises(WriteOnlyError):
        getattr(s.reconstruction, name)


def test_statistics() -> None:
    s = board()
    s.statistics.reset()
    for seen in (s.statistics.images, s.statistics.strips):
        assert seen.dequeued == seen.delivered + seen.suppressed + seen.released + seen.malformed
        assert seen.ids_missing == 0
        with pytest.raises(AttributeError):
            seen.dequeued = 1  # type: ignore[misc]
    s.plant("CALLBACK_LOST_NUM", 7)
    assert s.statistics.lost_buffers == 7
    s.statistics.reset_lost_buffers()
    s.statistics.reset_released_strips()
    assert s.statistics.released_strips == 0


def test_counters() -> None:
    s = board()
    first = s.trigger.clock_ns
    assert s.trigger.clock_ns >= first > 0
    s.plant("XTRIG_LOST_STA", 3)
    assert s.trigger.lost == 3
    assert s.trigger.running is False
    assert s.encoder.position >= 0
    assert s.encoder.frequency >= 0


# --- The store


def test_the_store_keeps_bytes() -> None:
    s = board()
    everything = bytes(index % 251 for index in range(512))
    s.store.write(everything)
    assert s.store.read() == everything
    assert [s.module.board_chip_get("eeprom", at) for at in (0, 255, 256, 511)] == [
        everything[at] for at in (0, 255, 256, 511)
    ]
    assert s.store.read(250, 20) == everything[250:270]
    s.store.write(numpy.arange(40, dtype=numpy.uint8), offset=240)
    assert s.store.read(236, 48) == everything[236:240] + bytes(range(40)) + everything[280:284]
    s.store.write_page(31, b"serial")
    assert s.store.read_page(31) == b"serial" + everything[502:512]
    assert s.store.read(512) == s.store.read(7, 0) == b""
    s.store.write(b"")


def test_the_store_refuses_what_does_not_fit() -> None:
    s = board()
    s.touched()
    for call in (
        lambda: s.store.read(0, 513),
        lambda: s.store.read(500, 13),
        lambda: s.store.read(-1),
        lambda: s.store.write(bytes(513)),
        lambda: s.store.write(bytes(13), offset=500),
        lambda: s.store.write_page(32, b"a"),
        lambda: s.store.write_page(0, b""),
        lambda: s.store.write_page(0, bytes(17)),
        lambda: s.store.read_page(-1),
    ):
        with pytest.raises(RefusedError):
            call()
    for wrong in ("text", 5, None):
        with pytest.raises(TypeError):
            s.store.write(wrong)
    assert s.touched() == []


def test_a_store_that_does_not_answer() -> None:
    s = board()
    s.module.board_chip_present("eeprom", 0)
    try:
        for call in (
            lambda: s.store.read(),
            lambda: s.store.read_page(1),
            lambda: s.store.write(b"a"),
            lambda: s.store.write_page(1, b"a"),
        ):
            with pytest.raises(RefusedError):
                call()
    finally:
        s.module.board_chip_present("eeprom", 1)
