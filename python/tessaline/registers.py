"""The FPGA's registers, by the names of the register map."""

from __future__ import annotations

from collections.abc import Iterator
from dataclasses import dataclass
from typing import Any

from . import _said
from ._calls import ALL_ONES, Calls, number


@dataclass(frozen=True)
class Field:
    """Some bits of a register.

    Attributes:
        name: unique in its register, in lower case: "mode".
        shift: its lowest bit, 0 to 31.
        width: number of bits, 1 to 32.
    """

    name: str
    shift: int
    width: int

    @property
    def most(self) -> int:
        """The largest value."""
        return (1 << self.width) - 1

    def of(self, word: int) -> int:
        """The field's value in a register's word."""
        return (word >> self.shift) & self.most


@dataclass(frozen=True)
class Register:
    """A register of 32 bits.

    Attributes:
        block: name of its block, such as "IMAGE_BLOCK_1".
        name: its own name, such as "TRIGGER_CTRL".
        number: of the block, as tessaline_board_register_get() counts.
        offset: bytes within the block.
        base: physical address of the block on this product.
        fields: its parts, from bit 0 up; empty: it is one number.
    """

    block: str
    name: str
    number: int
    offset: int
    base: int
    fields: tuple[Field, ...]

    @property
    def address(self) -> int:
        """Physical address."""
        return self.base + self.offset

    @property
    def index(self) -> int:
        """Number of its word within the block."""
        return self.offset // 4

    def __str__(self) -> str:
        return f"{self.block}.{self.name}"


def _register(described: tuple[Any, ...]) -> Register:
    block, name, number_of_block, offset, base, fields = described
    parts = tuple(sorted((Field(*one) for one in fields), key=lambda field: field.shift))
    return Register(block, name, number_of_block, offset, base, parts)


class Registers:
    """The FPGA's registers by name, as ``tessaline reg`` shows them.

    A name is "TRIGGER_CTRL", "IMAGE_BLOCK_1.TRIGGER_CTRL", "TRIGGER_CTRL.mode" (a field),
    "IMAGE_BLOCK_1+0x04" or an address ("0x43C10004"); case does not matter. Addresses differ
    between products; names do not.

    Example:
        >>> sensor.registers["TRIGGER_CTRL.mode"]
        3
        >>> sensor.registers["IMAGE_BLOCK_1.TRI_SPACING"] = 200_000
        >>> sensor.registers.fields("TRIGGER_CTRL")
        {'mode': 3, 'door_control': 0, ...}

    Writing goes past every check of this package and of the library: prefer the settings' groups.

    Attributes:
        model: the product whose registers these are.

    Threads: any. Each access is made whole. Writing a field reads the register first: other calls
    of Python do not come between, but a change that the library makes on a thread of its own may be
    lost.
    """

    def __init__(self, calls: Calls, model: str) -> None:
        self._calls = calls
        self.model = model

    def find(self, name: str) -> tuple[Register, Field | None]:
        """The register of a name, and the field if the name is one's.

        Raises:
            RefusedError: no such register or field; the advice has similar names.
        """
        if not isinstance(name, str):
            raise TypeError(f"a register's name is a string, not {type(name).__name__} ({name!r})")
        found, bits = self._calls.module.register_find(self.model, name)
        return _register(found), None if bits is None else Field(*bits)

    def read(self, name: str) -> int:
        """What a register, or a field of it, holds: 0 to 4 294 967 295.

        Raises:
            RefusedError: no such name, or /dev/mem cannot be opened.
        """
        register, field = self.find(name)
        word = self._word(register)
        return word if field is None else field.of(word)

    def write(self, name: str, value: int) -> None:
        """Writes a register, or changes a field of it and leaves its other bits.

        Args:
            name: as in find().
            value: 0 to the register's or field's largest.

        Raises:
            RefusedError: no such name, a value that does not fit, or /dev/mem cannot be opened.
        """
        register, field = self.find(name)
        most = ALL_ONES if field is None else field.most
        word = number(name, value, 0, most)
        place = (register.base, register.index)
        if field is None:
            self._calls.set("fpga_write_addr", *place, word)
        else:
            self._calls.set("register_update", *place, field.shift, field.width, word)

    def fields(self, name: str) -> dict[str, int]:
        """The fields of a register with their values, from bit 0 up; empty: it has none."""
        register, _ = self.find(name)
        word = self._word(register)
        return {field.name: field.of(word) for field in register.fields}

    def dump(self) -> dict[str, int]:
        """What every register holds, by "BLOCK.NAME", in the order of their addresses."""
        return {str(register): self._word(register) for register in self}

    def __iter__(self) -> Iterator[Register]:
        """Every register of the map, in the order of their addresses. Reads none."""
        return map(_register, self._calls.module.register_list(self.model))

    def __getitem__(self, name: str) -> int:
        return self.read(name)

    def __setitem__(self, name: str, value: int) -> None:
        self.write(name, value)

    def _word(self, register: Register) -> int:
        place = (register.base, register.index)
        word: int = self._calls.raw("fpga_read_addr", *place)
        # All ones may be what the register holds.
        if word == ALL_ONES and _said.refusal():
            raise self._calls.refused("fpga_read_addr", place)
        return word
