"""Settings with rules of their own, group by group."""

from __future__ import annotations

from collections.abc import Callable
from typing import Any

import numpy
import pytest
from started import board
from tessaline.errors import RefusedError, WriteOnlyError
from tessaline.settings import Colour, Direction, DriveMode, TriggerMode


@pytest.fixture(autouse=True)
def timer() -> None:
    board().trigger.mode = TriggerMode.TIMER


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
    percent: Any
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
    calls: tuple[Callable[[], Any], ...] = (
        lambda: setattr(s.image_sensor, "sensing_mode", 1),
        lambda: setattr(s.image_sensor, "continuous", True),
        lambda: s.image_sensor.set_hdr_knee(1, 10),
        lambda: s.image_sensor.set_hdr_segments(0.5, 0.25),
    )
    for call in calls:
        with pytest.raises(RefusedError, match="the IMX273 of a K3610 has no"):
            call()
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
    calls: tuple[Callable[[], Any], ...] = (
        lambda: s.store.read(0, 513),
        lambda: s.store.read(500, 13),
        lambda: s.store.read(-1),
        lambda: s.store.write(bytes(513)),
        lambda: s.store.write(bytes(13), offset=500),
        lambda: s.store.write_page(32, b"a"),
        lambda: s.store.write_page(0, b""),
        lambda: s.store.write_page(0, bytes(17)),
        lambda: s.store.read_page(-1),
    )
    for call in calls:
        with pytest.raises(RefusedError):
            call()
    for wrong in ("text", 5, None):
        with pytest.raises(TypeError):
            s.store.write(wrong)
    assert s.touched() == []


def test_a_store_that_does_not_answer() -> None:
    s = board()
    calls: tuple[Callable[[], Any], ...] = (
        lambda: s.store.read(),
        lambda: s.store.read_page(1),
        lambda: s.store.write(b"a"),
        lambda: s.store.write_page(1, b"a"),
    )
    s.module.board_chip_present("eeprom", 0)
    try:
        for call in calls:
            with pytest.raises(RefusedError):
                call()
    finally:
        s.module.board_chip_present("eeprom", 1)
