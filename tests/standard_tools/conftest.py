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
import tools_table

SECONDS = 30


def library() -> Path:
    name = os.environ.get("TESSALINE_BOARD_LIBRARY")
    if not name:
        pytest.skip("TESSALINE_BOARD_LIBRARY names no library")
    return Path(name)


def pytest_runtest_setup():
    tools_table.begin()


@pytest.hookimpl(hookwrapper=True)
def pytest_runtest_makereport(item, call):
    report = (yield).get_result()
    if call.when == "call" and report.passed:
        tools_table.passed(item.name)


def pytest_sessionfinish(session):
    """The page lists what the tests have run. Skipped tests may leave it longer, never shorter."""
    if path := os.environ.get("TESSALINE_TOOLS_TABLE"):
        tools_table.save(path)
    elif missing := tools_table.missing():
        print("\ndocs/virtual-board.md does not know; run scripts/standard-tools:", *missing,
              sep="\n  ")
        session.exitstatus = 1


class Board:
    """A board of a model. Every program that runs on it has a fresh one."""

    def __init__(self, model: str, transcript: Path):
        self.model = model
        self._transcript = transcript

    def run(self, *command: str, stdin: bytes = b"", text: bool = True):
        """Runs the program to its end."""
        tools_table.note(command)
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
