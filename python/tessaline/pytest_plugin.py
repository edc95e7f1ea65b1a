"""Fixtures for tests of applications: a sensor without hardware.

pytest finds them by itself where the package is installed. The ini option ``tessaline_model`` chooses
the product (K3610)::

    def test_counts_parts(tessaline_sensor):
        tessaline_sensor.board.set_scene("stairs")
        assert my_application.count(tessaline_sensor) == 5

A process starts one device, once. All tests of a run share it; each gets it with the trigger, the
readout and the point layout of a fresh start, the belt in front of it and no faults. Other settings
(exposure, thresholds, outputs) stay as the last test left them. Use pytest-xdist or a process of its own for tests
of another product (``tessaline_python``).
"""

from __future__ import annotations

import subprocess
import sys
import textwrap
from collections.abc import Callable, Iterator
from typing import TYPE_CHECKING

import pytest

if TYPE_CHECKING:
    from .sensor import Sensor


def pytest_addoption(parser: pytest.Parser) -> None:
    """Adds the ini option."""
    parser.addini("tessaline_model", "product of the fixture tessaline_sensor", default="K3610")


@pytest.fixture
def tessaline_sensor(request: pytest.FixtureRequest) -> Iterator[Sensor]:
    """A Sensor on a virtual board, closed at the end of the test.

    The device library's pauses take no time. Frames come at the trigger's pace.
    """
    import tessaline

    model = request.config.getini("tessaline_model")
    with tessaline.Sensor(model, virtual=True, sleep_factor=0) as sensor:
        yield sensor


@pytest.fixture
def tessaline_python() -> Callable[..., subprocess.CompletedProcess[str]]:
    """Runs Python source in a process of its own: run(source, *arguments, timeout=60).

    The result has returncode, stdout and stderr.
    """

    def run(source: str, *arguments: str, timeout: float = 60) -> subprocess.CompletedProcess[str]:
        return subprocess.run(
            [sys.executable, "-c", textwrap.dedent(source), *arguments],
            capture_output=True,
            text=True,
            timeout=timeout,
            check=False,
        )

    return run
