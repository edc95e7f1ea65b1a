"""A started virtual board in this process, for tests of the settings. A process has one."""

from __future__ import annotations

import functools
import os
import subprocess
import sys
import textwrap
from typing import Any

from tessaline import _loader
from tessaline._calls import Calls
from tessaline.settings import Groups

MODEL = "K3610"
# What the FPGA counts by itself.
_LIVE = ("COUNTER", "ENCODER_FREQ", "LOST")


class Recorder(Calls):
    """Calls that remember their names."""

    def __init__(self, module: Any) -> None:
        super().__init__(module)
        self.made: list[str] = []

    def raw(self, name: str, *arguments: Any) -> Any:
        self.made.append(arguments[0].call.partition("(")[0] if name == "run_step" else name)
        return super().raw(name, *arguments)


class Board(Groups):
    """The settings of a board, and what only the board's side sees."""

    def __init__(self, model: str) -> None:
        self.module: Any = _loader.load(True)
        self.model = model
        assert self.module.board_select(model) == 0
        self.module.board_set_sleep_factor(0.0)
        self.module.prepare(5)
        self.module.GetLibVersion(model)
        assert self.module.start(30_000) == 0
        self.calls = Recorder(self.module)
        super().__init__(self.calls, model)

    def held(self, name: str) -> int:
        """What the FPGA holds, seen from its own side."""
        register, field = self.registers.find(name)
        word: int = self.module.board_register_get(register.number, register.offset)
        return word if field is None else field.of(word)

    def plant(self, name: str, value: int) -> None:
        """Makes the FPGA hold a value, from its own side."""
        register, _ = self.registers.find(name)
        self.module.board_register_set(register.number, register.offset, value)

    def every_register(self) -> dict[str, int]:
        """The same of every register that only a write changes."""
        return {
            str(register): self.module.board_register_get(register.number, register.offset)
            for register in self.registers
            if not any(part in register.name for part in _LIVE)
        }

    def changed_bits(self, before: dict[str, int]) -> dict[str, int]:
        """The bits that have changed since, by register."""
        now = self.every_register()
        return {name: now[name] ^ word for name, word in before.items() if now[name] != word}

    def mask(self, name: str) -> tuple[str, int]:
        """A register's full name, and ones at the bits that the name means."""
        register, field = self.registers.find(name)
        return str(register), 0xFFFF_FFFF if field is None else field.most << field.shift

    def touched(self) -> list[str]:
        """Lines of the transcript that change something, since the last call."""
        lines = self.module.board_transcript(False).splitlines()
        self.module.board_transcript_clear()
        silent = (" read ", "video", "uio", " mmap ", " poll ", " open")
        return [line for line in lines if not any(part in line for part in silent)]


@functools.cache
def board() -> Board:
    """This process's board."""
    return Board(MODEL)


def on_another(model: str, code: str) -> None:
    """Runs lines with ``s``, the settings of another product, in a process of its own."""
    alone(f"from started import Board\ns = Board({model!r})\n" + textwrap.dedent(code))


def alone(code: str) -> None:
    """Runs lines in a process of their own, which must end well."""
    run = subprocess.run(
        [sys.executable, "-c", "import pytest\n" + textwrap.dedent(code)],
        capture_output=True,
        text=True,
        timeout=120,
        cwd=os.path.dirname(__file__),
        env={**os.environ, "PYTHONPATH": os.pathsep.join(sys.path)},
    )
    assert run.returncode == 0, run.stdout + run.stderr
