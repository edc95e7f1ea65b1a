"""The two digital outputs and the DA output."""

from __future__ import annotations

from collections.abc import Iterator

from .._calls import Calls
from ..registers import Registers
from ._delay import Delayed
from ._group import on_off, whole

DA_CHANNEL = 2
DA_STEPS = 4096


class Output(Delayed):
    """One digital output. Register: DO1_CTRL or DO2_CTRL of IMAGE_BLOCK_3. Threads: any."""

    _set_unit = "SetExtTriDelayStandard"
    _set_delay = "SetOutDelay"
    _get_delay = "GetOutDelay"
    _bits = 64

    def __init__(self, calls: Calls, registers: Registers, channel: int) -> None:
        super().__init__(calls, registers)
        self._channel = channel

    def _arguments(self) -> tuple[int, ...]:
        return (self._channel,)

    def _counts_pulses(self) -> bool:
        return self._registers.read(f"DO{self._channel + 1}_CTRL.delay_standard") == 1

    width = whole(
        "SetOutWidth",
        0,
        (1 << 21) - 1,
        read="GetOutWidth",
        register="DO{}_CTRL.width",
        doc="""Width of the pulse, 0 to 2 097 151, in the FPGA's units.""",
    )
    event = whole(
        "SetOutEvent",
        0,
        3,
        register="DO{}_CTRL.event",
        doc="""The event that fires the output, 0 to 3. Cannot be read back: the library's
        GetOutEvent() gives 0 whatever was set.""",
    )
    mode = whole(
        "SetOutMode",
        0,
        1,
        register="DO{}_CTRL.mode",
        doc="""The output's mode, 0 or 1. Cannot be read back: the library's GetOutMode() gives 0
        whatever was set.""",
    )
    enabled = on_off(
        "SetDigitalOutputEnState",
        register="DO{}_CTRL.enable",
        doc="""Whether the pin follows the output. Cannot be read back.""",
    )
    polarity = whole(
        "SetOutPolarity",
        0,
        1,
        register="POLARITY.output{}",
        doc="""Polarity of the pin, 0 or 1. Cannot be read back.""",
    )
    delay_enabled = on_off(
        "SetOutDelayEn",
        read="GetOutDelayEn",
        register="DO{}_CTRL.delay_enable",
        doc="""Whether the pulse waits for the delay.""",
    )

    def fire(self) -> None:
        """Fires the output once by software."""
        self._calls.set("OutputSWTrigger", self._channel)

    def push(self) -> None:
        """Puts an entry into the output's FIFO."""
        self._calls.set("WRFifo", self._channel)


class Outputs:
    """The two digital outputs: ``sensor.outputs[0]`` and ``[1]``."""

    def __init__(self, calls: Calls, registers: Registers) -> None:
        self._outputs = tuple(Output(calls, registers, channel) for channel in range(2))

    def __getitem__(self, channel: int) -> Output:
        return self._outputs[channel]

    def __len__(self) -> int:
        return len(self._outputs)

    def __iter__(self) -> Iterator[Output]:
        return iter(self._outputs)


class DaOutput(Delayed):
    """The analogue output. Device: DA converter at I2C address 0x60. Threads: one."""

    _set_unit = "SetExtTriDelayStandard"
    _set_delay = "SetDAOutputDelay"
    _delay_register = "DA_OUTPUT_DELAY"

    def _unit_arguments(self) -> tuple[int, ...]:
        return (DA_CHANNEL,)

    value = whole(
        "DAWrite",
        0,
        DA_STEPS - 1,
        doc="""What the converter puts out, 0 to 4095 of its range. Cannot be read back.

        Raises:
            RefusedError: out of range, or the converter does not answer.
        """,
    )
