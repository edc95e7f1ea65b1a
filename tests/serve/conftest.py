"""What the tests of the daemon share: daemons that are always ended."""

from __future__ import annotations

import pytest
from daemon import PROGRAM, Daemon

# Skips the library's pauses. For tests that do not look at frames.
QUICK = {"TESSALINE_BOARD_SLEEP": "0"}


def pytest_configure(config):
    config.addinivalue_line("markers", "slow: waits for something that takes many seconds")


def pytest_sessionstart():
    if not PROGRAM.is_file():
        pytest.exit(f"{PROGRAM} is not built; TESSALINE_SERVE names another one", returncode=77)


class Daemons:
    """Starts daemons, and ends those that a test leaves running."""

    def __init__(self, factory):
        self._factory = factory
        self._all: list[Daemon] = []

    def launch(self, *options: object, folder=None, **more) -> Daemon:
        """Without waiting for its start."""
        daemon = Daemon(folder or self._factory.mktemp("daemon"), *options, **more)
        self._all.append(daemon)
        return daemon

    def start(self, *options: object, folder=None, **more) -> Daemon:
        return self.launch(*options, folder=folder, **more).wait_for_start()

    def end(self) -> None:
        running = [daemon for daemon in self._all if daemon.process.poll() is None]
        statuses = {daemon.process.pid: daemon.end() for daemon in running}
        for daemon in self._all:
            if daemon.process.stdout:
                daemon.process.stdout.close()
        assert set(statuses.values()) <= {0}, statuses


@pytest.fixture(scope="module")
def module_daemons(tmp_path_factory):
    daemons = Daemons(tmp_path_factory)
    yield daemons
    daemons.end()


@pytest.fixture
def daemons(tmp_path_factory):
    """For daemons that one test needs."""
    daemons = Daemons(tmp_path_factory)
    yield daemons
    daemons.end()


@pytest.fixture(scope="module")
def daemon(module_daemons) -> Daemon:
    """The one that the tests of a file share."""
    return module_daemons.start()


@pytest.fixture(scope="module")
def quick_daemon(module_daemons) -> Daemon:
    """One whose pauses are skipped."""
    return module_daemons.start(**QUICK)
