"""What a service manager is told."""

import os
import socket
import time

import pytest
from conftest import QUICK


@pytest.fixture
def notices(tmp_path):
    """The manager's socket, and its address."""
    path = tmp_path / "notify"
    with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as manager:
        manager.bind(str(path))
        manager.settimeout(10)
        yield manager, str(path)


def received(manager, until: str) -> list[tuple[float, str]]:
    """Notices with their times, up to one that has this line."""
    notices = []
    while not notices or until not in notices[-1][1].splitlines():
        notices.append((0.0, manager.recv(4096).decode()))
        notices[-1] = (time.monotonic(), notices[-1][1])
    return notices


def test_it_is_told_when_the_sensor_is_served(daemons, notices):
    manager, path = notices
    daemon = daemons.start(NOTIFY_SOCKET=path, **QUICK)
    (_, first), = received(manager, "READY=1")
    assert f"STATUS={daemon.url}/" in first.splitlines()
    assert daemon.token not in first


def test_it_is_told_of_the_end(daemons, notices):
    manager, path = notices
    daemon = daemons.start(NOTIFY_SOCKET=path, **QUICK)
    assert daemon.end() == 0
    assert [text for _, text in received(manager, "STOPPING=1")][-1] == "STOPPING=1"


def test_its_watchdog_is_fed_three_times_as_often_as_needed(daemons, notices):
    manager, path = notices
    daemons.start(NOTIFY_SOCKET=path, WATCHDOG_USEC="300000", **QUICK)
    received(manager, "READY=1")
    times = [received(manager, "WATCHDOG=1")[-1][0] for _ in range(12)]
    gaps = [after - before for before, after in zip(times, times[1:])]
    assert max(gaps) < 0.3
    assert 0.05 < sum(gaps) / len(gaps) < 0.2


@pytest.mark.parametrize("watchdog", [
    {}, {"WATCHDOG_USEC": "300000", "WATCHDOG_PID": str(os.getpid())}
], ids=["none", "another process's"])
def test_no_watchdog_but_ours_is_fed(daemons, notices, watchdog):
    manager, path = notices
    daemons.start(NOTIFY_SOCKET=path, **watchdog, **QUICK)
    received(manager, "READY=1")
    manager.settimeout(1)
    with pytest.raises(TimeoutError):
        manager.recv(4096)


def test_a_daemon_that_does_not_start_is_never_ready(daemons, notices):
    manager, path = notices
    daemon = daemons.launch(NOTIFY_SOCKET=path, TESSALINE_BOARD_FAULTS="absent pot", **QUICK)
    assert daemon.process.wait(10) not in (0, -6, -11)
    manager.settimeout(0.2)
    with pytest.raises(TimeoutError):
        received(manager, "READY=1")
