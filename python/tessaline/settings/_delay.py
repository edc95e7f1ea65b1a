"""A delay, in microseconds or encoder pulses: of the trigger, the outputs, the DA output."""

from __future__ import annotations

from .._calls import ALL_ONES_64, number
from ..errors import RefusedError
from ._group import MOST_US, TICKS_PER_US, WORD, Group, write_only


class Delayed(Group):
    """A group with a delay."""

    _set_unit = ""
    _set_delay = ""
    _get_delay = ""  # none: it cannot be read back
    _delay_register = ""
    _bits = 32

    def _unit_arguments(self) -> tuple[int, ...]:
        """What comes first in the call that sets the unit."""
        return self._arguments()

    def _counts_pulses(self) -> bool:
        """Whether the delay counts encoder pulses."""
        raise NotImplementedError

    @property
    def delay_us(self) -> int:
        """Delay in microseconds, 0 to 85 899 345 (digital outputs: to 368 934 881 474 191 032).

        Setting it makes the delay count microseconds. `delay_enabled`, where there is one, switches
        the delay on. What is read is rounded down; the FPGA counts ticks of 20 ns.

        Raises:
            RefusedError: out of range; or, when read, the delay counts encoder pulses.
            WriteOnlyError: it is the DA output's, which cannot be read back.
        """
        return self._read("delay_us", False)

    @delay_us.setter
    def delay_us(self, value: int) -> None:
        most = MOST_US if self._bits == 32 else ALL_ONES_64 // TICKS_PER_US
        self._write(number("delay_us", value, 0, most, "us"), False)

    @property
    def delay_pulses(self) -> int:
        """Delay in encoder pulses, 0 to the largest number of 32 (digital outputs: 64) bits.

        As `delay_us`, but setting it makes the delay count encoder pulses.
        """
        return self._read("delay_pulses", True)

    @delay_pulses.setter
    def delay_pulses(self, value: int) -> None:
        # All ones are what the library says when it cannot read.
        most = WORD if self._bits == 32 else ALL_ONES_64
        self._write(number("delay_pulses", value, 0, most - 1, "pulses"), True)

    def _read(self, name: str, pulses: bool) -> int:
        if not self._get_delay:
            raise write_only(name, self._delay_register)
        if self._counts_pulses() != pulses:
            units = ("microseconds", "encoder pulses")
            other = "delay_us" if pulses else "delay_pulses"
            raise RefusedError(f"the delay counts {units[not pulses]}", f"read {other}")
        bad = WORD if self._bits == 32 else ALL_ONES_64
        return self._calls.get(self._get_delay, *self._arguments(), bad=bad)

    def _write(self, delay: int, pulses: bool) -> None:
        self._calls.set(self._set_unit, *self._unit_arguments(), int(pulses))
        self._calls.set(self._set_delay, *self._arguments(), delay)
