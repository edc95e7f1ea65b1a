"""What the tests of the daemon share: daemons that are always ended."""

from __future__ import annotations

import pytest
from daemon import PROGRAM, Daemon
from streams import FAST, WHOLE

SKIPPED = 77  # what ctest takes for it
# Skips the library's pauses. The board's clock runs ahead by them, so triggers come too often.
QUICK = {"TESSALINE_BOARD_SLEEP": "0"}


def pytest_configure(config):
    config.addinivalue_line("markers", "slow: waits for something that takes many seconds")


def pytest_sessionstart():
    if not PROGRAM.is_file():
        pytest.exit(f"{PROGRAM} is not built; TESSALINE_SERVE names another",
                    returncode=SKIPPED)


def pytest_sessionfinish(session):
    """Tells ctest when all tests had to be skipped."""
    reporter = session.config.pluginmanager.get_plugin("terminalreporter")
    ended = {name for name, reports in reporter.stats.items() if name and reports}
    if ended == {"skipped"}:
        session.exitstatus = SKIPPED


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
    return module_daemons.start(**QUICK)


@pytest.fixture(scope="module")
def steady_daemon(module_daemons) -> Daemon:
    """One whose triggers come at their true pace."""
    return module_daemons.start()


@pytest.fixture
def fast(steady_daemon):
    """It, with as many profiles as it can send."""
    steady_daemon.patch(**FAST)
    yield steady_daemon
    steady_daemon.patch(**WHOLE)
