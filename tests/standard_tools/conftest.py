"""Runs standard programs on the virtual board.

TESSALINE_BOARD_LIBRARY names the board's library, which is preloaded. A test whose program is not
installed is skipped.
"""

from __future__ import annotations

import os
import shutil
import subprocess
import sys
from pathlib import Path

import pytest

SECONDS = 30


def library() -> Path:
    name = os.environ.get("TESSALINE_BOARD_LIBRARY")
    if not name:
        pytest.skip("TESSALINE_BOARD_LIBRARY names no library")
    return Path(name)


class Board:
    """A board of a model. Every program that runs on it has a fresh one."""

    def __init__(self, model: str, transcript: Path):
        self.model = model
        self._transcript = transcript

    def run(self, *command: str, stdin: bytes = b"", text: bool = True):
        """Runs the program to its end."""
        if shutil.which(command[0]) is None:
            pytest.skip(f"{command[0]} is not installed")
        done = subprocess.run(
            command, input=stdin, capture_output=True, timeout=SECONDS, check=False,
            env=os.environ | {
                "LD_PRELOAD": str(library()),
                "TESSALINE_BOARD": self.model,
                "TESSALINE_BOARD_TRANSCRIPT": str(self._transcript),
            })
        if text:
            done.stdout = done.stdout.decode()
        done.stderr = done.stderr.decode()
        return done

    def output(self, *command: str, **options):
        """What the program prints; it must succeed."""
        done = self.run(*command, **options)
        assert done.returncode == 0, (command, done.stdout, done.stderr)
        return done.stdout

    def python(self, program: str, interpreter: str = sys.executable) -> str:
        return self.output(interpreter, "-c", program)

    def transcript(self) -> list[str]:
        """What the last program's accesses were, as the board saw them."""
        return self._transcript.read_text().splitlines()


@pytest.fixture
def board(tmp_path):
    """Makes a board of a model."""
    return lambda model: Board(model, tmp_path / "transcript.txt")
