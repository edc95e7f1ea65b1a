"""Trigger, encoder, and synchronisation of several devices."""

from __future__ import annotations

import enum

from .._calls import ALL_ONES_64, number
from ..errors import RefusedError
from ._delay import Delayed
from ._group import MOST_US, TICKS_PER_US, WORD, Group, Reading, on_off, one_of, whole

NANOSECONDS_PER_TICK = 20
REVERSE_MODE_WITH_DISTANCE = 2


class TriggerMode(enum.Enum):
    """What triggers a frame. `Trigger.fire` works in every mode."""

    TIMER = 0
    """The timer, every `spacing_us`."""
    ENCODER = 1
    """The encoder, every `spacing_pulses`."""
    EXTERNAL = 2
    """The external input."""
    TIMER_START = 3
    """The timer, too: the mode after a start."""


class Trigger(Delayed):
    """When frames are taken.

    Registers: TRIGGER_CTRL, TRI_SPACING and POLARITY of IMAGE_BLOCK_1; TRI_DELAY and EXTIN_WIDTH of
    IMAGE_BLOCK_3; XTRIG_LOST_STA and LASER_CTRL of IMAGE_BLOCK_0. Threads: any.

    Example:
        >>> sensor.trigger.mode = "encoder"
        >>> sensor.trigger.spacing_pulses = 10
        >>> sensor.trigger.delay_us = 100
        >>> sensor.trigger.delay_enabled = True
    """

    _set_unit = "SetTriDelayStandard"
    _set_delay = "SetTriDelay"
    _get_delay = "GetTriDelay"

    mode = one_of(
        "SetTriMode",
        TriggerMode,
        register="TRIGGER_CTRL.mode",
        from_register=True,
        doc="""What triggers a frame: a TriggerMode, or its name ("timer", "encoder", "external").

        Set it before the spacing, whose unit depends on it. The library cannot read it back; this
        reads the register.
        """,
    )

    @property
    def spacing_us(self) -> int:
        """Time between triggers of the timer, 2 to 85 899 345 us.

        The FPGA counts ticks of 20 ns, 50 a microsecond; what is read is in microseconds again,
        rounded down. The library raises less than 2 to 2; here that is refused.

        Raises:
            RefusedError: out of range, or the mode is TriggerMode.ENCODER.
        """
        self._require_unit("spacing_us", False)
        return self._calls.get("GetTriSpacing") // TICKS_PER_US

    @spacing_us.setter
    def spacing_us(self, value: int) -> None:
        spacing = number("spacing_us", value, 2, MOST_US, "us")
        self._require_unit("spacing_us", False)
        self._calls.set("SetTriSpacing", spacing)

    @property
    def spacing_pulses(self) -> int:
        """Encoder pulses between triggers, 1 to 4 294 967 294.

        Raises:
            RefusedError: out of range, or the mode is not TriggerMode.ENCODER.
        """
        self._require_unit("spacing_pulses", True)
        return self._calls.get("GetTriSpacing")

    @spacing_pulses.setter
    def spacing_pulses(self, value: int) -> None:
        spacing = number("spacing_pulses", value, 1, WORD - 1, "pulses")
        self._require_unit("spacing_pulses", True)
        self._calls.set("SetTriSpacing", spacing)

    def _require_unit(self, name: str, pulses: bool) -> None:
        mode = self.mode
        if (mode is TriggerMode.ENCODER) == pulses:
            return
        other, needed = (
            ("spacing_us", "encoder") if pulses else ("spacing_pulses", "timer")
        )
        raise RefusedError(
            f"{name} has no meaning in trigger mode {mode.name.lower()}",
            f'use {other}, or set mode = "{needed}" first',
        )

    delay_enabled = on_off(
        "SetDelayEn",
        register="TRIGGER_CTRL.delay_enable",
        doc="""Whether exposures wait for the delay. Cannot be read back.""",
    )
    door_control = on_off(
        "SetDoorControlEn",
        read="GetDoorControlEn",
        register="TRIGGER_CTRL.door_control",
        doc="""Whether the external input gates the trigger.

        Raises:
            RefusedError: the mode is EXTERNAL or TIMER_START, which have no door control.
        """,
    )
    input_filter_us = whole(
        "SetExternSignalFilter",
        0,
        MOST_US,
        "us",
        register="EXTIN_WIDTH",
        doc="""Shortest pulse that the external input accepts, 0 to 85 899 345 us. The FPGA counts
        ticks of 20 ns. Cannot be read back.""",
    )
    laser_polarity = whole(
        "SetLasTriPolarity",
        0,
        1,
        register="POLARITY.laser_trigger",
        doc="""Polarity of the laser trigger, 0 or 1. Cannot be read back.""",
    )
    lost = Reading(
        "GetXtrigLostSta",
        int,
        register="XTRIG_LOST_STA",
        doc="""The FPGA's record of triggers that it could not serve.""",
    )
    running = Reading(
        "GetGlobalControl",
        bool,
        register="TRIGGER_CTRL.global_control",
        doc="""Whether the acquisition runs. Loops over strips and images start and stop it.""",
    )
    clock_ticks = Reading(
        "GetTimerCounter",
        int,
        bad=ALL_ONES_64,
        doc="""The FPGA's clock in ticks of 20 ns, the time base of all time stamps. Read in two
        halves without a latch: once in 86 s it can be wrong by 2**32.""",
    )

    @property
    def clock_ns(self) -> int:
        """The FPGA's clock in nanoseconds, see `clock_ticks`."""
        return self.clock_ticks * NANOSECONDS_PER_TICK

    def fire(self) -> None:
        """Triggers one frame by software, in any mode."""
        self._calls.set("TricontrolSWTrigger")

    def reset_lost(self) -> None:
        """Clears the record of `lost`."""
        self._calls.set("TriggerLostReset")

    def _counts_pulses(self) -> bool:
        return self._calls.get("GetTriDelayStandard") == 1


class Encoder(Group):
    """The encoder. Registers: REVERSE_CTRL of IMAGE_BLOCK_3, ENCODER_FREQ and ENCODER_COUNTER_L, _H
    of IMAGE_BLOCK_1. Threads: any.
    """

    reverse_mode = whole(
        "SetReverseMode_io",
        0,
        3,
        read="GetReverseMode_io",
        register="REVERSE_CTRL.mode",
        doc="""How pulses against the direction of travel are treated, 0 to 3. Mode 2 has a
        `reverse_distance`.""",
    )
    reverse_distance = whole(
        "SetReverseDistance",
        0,
        1023,
        "pulses",
        read="GetReverseDistance",
        register="REVERSE_CTRL.distance",
        doc="""Distance of reverse mode 2 in encoder pulses, 0 to 1023.

        Raises:
            RefusedError: out of range, or the reverse mode is not 2.
        """,
    )
    frequency = Reading(
        "GetEncoderFreq",
        int,
        register="ENCODER_FREQ",
        doc="""Pulse rate of the encoder as the FPGA measures it.""",
    )
    position = Reading(
        "GetEncoderCounter",
        int,
        bad=ALL_ONES_64,
        doc="""Position in pulses. Read in two halves without a latch: when the count carries into
        the upper half meanwhile, it is wrong by 2**32.""",
    )


class Sync(Group):
    """This device in a synchronised group. Register: IMAGE_BLOCK_1 MASTER_CTRL. Threads: any."""

    master = on_off(
        "SetMasterState",
        read="GetMasterState",
        register="MASTER_CTRL.state",
        doc="""Whether this device is the master. A master still delivers images that were exposed
        before the acquisition was stopped.""",
    )
    id = whole(
        "SetMasterConctrolID",
        0,
        15,
        read="GetMasterConctrolID",
        register="MASTER_CTRL.id",
        doc="""The device's number in the group, 0 to 15.""",
    )
