"""Calls of the device library, with its failures as exceptions."""

from __future__ import annotations

import os
from collections.abc import Callable
from types import ModuleType
from typing import Any

from . import _said
from .errors import DeviceGone, RefusedError

ALL_ONES = 0xFFFF_FFFF
ALL_ONES_64 = 0xFFFF_FFFF_FFFF_FFFF


class Calls:
    """The exported functions of a started device."""

    def __init__(self, module: ModuleType) -> None:
        self.module = module
        self._process = os.getpid()
        self._closed = ""
        #: The arguments of the last call, by function, the latest last: some settings cannot be
        #: read back. None: the last call was refused, which may have changed something.
        self.last: dict[str, Any] = {}
        self._failure: Callable[[], None] = lambda: None

    def close(self, why: str) -> None:
        """Every later call is refused with this reason."""
        self._closed = why

    def watch(self, failure: Callable[[], None]) -> None:
        """Sets what looks, before each call, whether a callback has failed meanwhile."""
        self._failure = failure

    def require(self) -> None:
        """Raises DeviceGone unless calls can be made."""
        if os.getpid() != self._process:
            raise DeviceGone(
                "the sensor belongs to the process that opened it, not to this child of it",
                'use the start method "spawn" of multiprocessing, and open the sensor in one process',
            )
        if self._closed:
            raise DeviceGone(self._closed, "open it anew with tessaline.Sensor(...)")

    def raw(self, name: str, *arguments: Any) -> Any:
        """Makes a call, whatever comes back."""
        self.require()
        self._failure()
        _said.forget()
        self.note(name, arguments)
        return getattr(self.module, name)(*arguments)

    def note(self, name: str, arguments: tuple[Any, ...]) -> None:
        """Remembers a call."""
        self.last.pop(name, None)
        self.last[name] = arguments

    def set(self, name: str, *arguments: Any, good: tuple[int, ...] = (0,)) -> None:
        """Makes a call that tells whether it succeeded. Raises RefusedError when it did not."""
        if self.raw(name, *arguments) not in good:
            self.last[name] = None
            raise self.refused(name, arguments)

    def get(self, name: str, *arguments: Any, bad: int = ALL_ONES) -> int:
        """Makes a call that reads a number. Raises RefusedError for the number of failure."""
        value: int = self.raw(name, *arguments)
        if value == bad:
            raise self.refused(name, arguments)
        return value

    @staticmethod
    def refused(name: str, arguments: tuple[Any, ...]) -> RefusedError:
        """The error of the call just made, with the library's own words."""
        text = _said.refusal()
        shown = ", ".join(map(str, arguments))
        return RefusedError(
            f"{name}({shown}) failed" + (f': "{text}"' if text else ""),
            "see the function's description for what it accepts; "
            "tessaline.check() finds faults of the hardware",
            call=name,
            text=text,
        )


def number(name: str, value: Any, low: int, high: int, unit: str = "") -> int:
    """A whole number within limits. NumPy's count, too; True and 1.5 do not."""
    if isinstance(value, bool) or not hasattr(value, "__index__"):
        raise TypeError(f"{name} must be a whole number, not {type(value).__name__} ({value!r})")
    whole = int(value.__index__())
    if not low <= whole <= high:
        of = f" {unit}" if unit else ""
        raise RefusedError(f"{name} must be {low} to {high}{of}, not {whole}", "nothing was changed")
    return whole
