"""What groups of settings are made of."""

from __future__ import annotations

import enum
import math
from collections.abc import Callable, Sequence
from typing import TYPE_CHECKING, Any, Generic, NoReturn, TypeVar, overload

import numpy.typing

from .. import _said
from .._calls import ALL_ONES, Calls, number
from ..errors import RefusedError, WriteOnlyError
from ..registers import Registers

UNCHANGED = "nothing was changed"
WORD = 0xFFFF_FFFF
TICKS_PER_US = 50
MOST_US = WORD // TICKS_PER_US

Numbers = Sequence[int] | numpy.typing.NDArray[Any]

T = TypeVar("T")
G = TypeVar("G")  # what a setting takes
E = TypeVar("E", bound=enum.Enum)


def switch(name: str, value: Any) -> int:
    """0 or 1 for False or True, Python's or NumPy's."""
    if type(value).__name__ in ("bool", "bool_"):
        return int(value)
    raise TypeError(f"{name} must be True or False, not {type(value).__name__} ({value!r})")


def real(name: str, value: Any, low: float, high: float, unit: str = "") -> float:
    """A finite number within limits."""
    if isinstance(value, (bool, str, bytes)) or not hasattr(value, "__float__"):
        raise TypeError(f"{name} must be a number, not {type(value).__name__} ({value!r})")
    result = float(value)
    if math.isnan(result) or not low <= result <= high:
        of = f" {unit}" if unit else ""
        raise RefusedError(f"{name} must be {low:g} to {high:g}{of}, not {result:g}", UNCHANGED)
    return result


def choice(name: str, kinds: type[E], value: Any) -> E:
    """A member of an enumeration, or its name in any case: "timer-start" is TIMER_START."""
    if isinstance(value, kinds):
        return value
    words = ", ".join(kind.name.lower() for kind in kinds)
    if not isinstance(value, str):
        raise TypeError(
            f"{name} must be a {kinds.__name__} or one of {words}, "
            f"not {type(value).__name__} ({value!r})"
        )
    try:
        return kinds[value.upper().replace("-", "_")]
    except KeyError:
        raise RefusedError(f"{name} must be one of {words}, not {value!r}", UNCHANGED) from None


def numbers(name: str, value: Any, count: int) -> list[Any]:
    """So many things: a tuple, a list, an array."""
    if isinstance(value, (str, bytes)) or not hasattr(value, "__len__"):
        raise TypeError(f"{name} must be {count} numbers, not {type(value).__name__} ({value!r})")
    if len(value) != count:
        raise RefusedError(f"{name} must be {count} numbers, not {len(value)}", UNCHANGED)
    return list(value)


class Group:
    """Settings of one subject. Sensor has one of each group."""

    def __init__(self, calls: Calls, registers: Registers) -> None:
        self._calls = calls
        self._registers = registers

    # Type checkers see for themselves, unless there is such a method.
    if not TYPE_CHECKING:

        def __setattr__(self, name: str, value: object) -> None:
            # A misspelt setting must not become a new attribute that does nothing.
            if not name.startswith("_") and not hasattr(type(self), name):
                known = ", ".join(key for key in dir(type(self)) if not key.startswith("_"))
                kind = type(self).__name__
                raise AttributeError(f"{kind} has no setting {name!r}; it has {known}")
            super().__setattr__(name, value)

    def __repr__(self) -> str:
        return f"<{type(self).__module__}.{type(self).__qualname__}>"

    def _arguments(self) -> tuple[int, ...]:
        """What comes first in each call: the number of a channel."""
        return ()

    def _tell(self, name: str, *arguments: Any) -> None:
        """Makes a call without a result; what it says is its refusal."""
        self._calls.raw(name, *arguments)
        if _said.refusal():
            raise self._calls.refused(name, arguments)


class Setting(Generic[T, G]):
    """A setting that one function of the device library makes, and one may read.

    Args:
        write: the function that makes it.
        check: the library's number for a value; raises unless the value is a right one.
        read: the function that reads it; "": it cannot be read back.
        value: the value for what was read.
        register: where the FPGA keeps it, for whoever wants to look; may be empty. A name with
            ``{}`` is completed with the channel's number from 1.
        from_register: whether it is read from there, because no function reads it.
        doc: for help().
    """

    def __init__(
        self,
        write: str,
        check: Callable[[str, G], int],
        *,
        read: str = "",
        value: Callable[[int], T],
        register: str = "",
        from_register: bool = False,
        doc: str,
    ) -> None:
        self.write = write
        self.read = read
        self.register = register
        self._check = check
        self._value = value
        self._from_register = from_register
        self._name = ""
        self.__doc__ = doc

    def __set_name__(self, owner: type, name: str) -> None:
        self._name = name

    @overload
    def __get__(self, group: None, owner: type) -> Setting[T, G]: ...

    @overload
    def __get__(self, group: Group, owner: type) -> T: ...

    def __get__(self, group: Group | None, owner: type) -> Setting[T, G] | T:
        if group is None:
            return self
        register = self.register.format(*(n + 1 for n in group._arguments()))
        if self._from_register:
            return self._value(group._registers.read(register))
        if not self.read:
            raise write_only(self._name, register)
        return self._value(group._calls.get(self.read, *group._arguments()))

    def __set__(self, group: Group, value: G) -> None:
        group._calls.set(self.write, *group._arguments(), self._check(self._name, value))


def write_only(name: str, register: str = "") -> WriteOnlyError:
    """The error of reading a setting that the library only writes."""
    return WriteOnlyError(
        f"{name} cannot be read back: the device library only writes it",
        f'sensor.registers["{register}"] is what the FPGA holds'
        if register
        else "keep the value you set",
    )


def whole(
    write: str,
    low: int,
    high: int,
    unit: str = "",
    *,
    read: str = "",
    register: str = "",
    doc: str,
) -> Setting[int, int]:
    """A setting that is a whole number."""
    return Setting(
        write,
        lambda name, given: number(name, given, low, high, unit),
        read=read,
        value=int,
        register=register,
        doc=doc,
    )


def on_off(write: str, *, read: str = "", register: str = "", doc: str) -> Setting[bool, bool]:
    """A setting that is True or False."""
    return Setting(write, switch, read=read, value=bool, register=register, doc=doc)


def one_of(
    write: str,
    kinds: type[E],
    *,
    read: str = "",
    register: str = "",
    from_register: bool = False,
    doc: str,
) -> Setting[E, E | str]:
    """A setting that is a member of an enumeration, or its name."""
    return Setting(
        write,
        lambda name, given: int(choice(name, kinds, given).value),
        read=read,
        value=kinds,
        register=register,
        from_register=from_register,
        doc=doc,
    )


class Reading(Generic[T]):
    """What one function of the device library reads.

    Args:
        read: the function.
        value: the value for what was read.
        bad: the number that the function returns when it fails.
        register: where the FPGA keeps it.
        doc: for help().
    """

    def __init__(
        self,
        read: str,
        value: Callable[[int], T],
        *,
        bad: int = ALL_ONES,
        register: str = "",
        doc: str,
    ) -> None:
        self.read = read
        self.register = register
        self._value = value
        self._bad = bad
        self._name = ""
        self.__doc__ = doc

    def __set_name__(self, owner: type, name: str) -> None:
        self._name = name

    @overload
    def __get__(self, group: None, owner: type) -> Reading[T]: ...

    @overload
    def __get__(self, group: Group, owner: type) -> T: ...

    def __get__(self, group: Group | None, owner: type) -> Reading[T] | T:
        if group is None:
            return self
        return self._value(group._calls.get(self.read, *group._arguments(), bad=self._bad))

    def __set__(self, group: Group, value: NoReturn) -> None:
        raise AttributeError(f"{self._name} is measured, it cannot be set")
