"""Whatever ends the daemon, the laser is off afterwards."""

import os
import re
import signal
import time
from concurrent import futures

import pytest
from conftest import QUICK
from daemon import children, runs, tool, wait_until
from streams import stalled

# The two lines that switch the laser of a K3610.
LINES = ("907", "934")


def levels(transcript) -> dict[str, str]:
    """What was last written to each line of the laser."""
    text = transcript.read_text() if transcript.is_file() else ""
    return {line: value for line, value in re.findall(r"gpio write gpio(\d+)/value (\d)", text)
            if line in LINES}


OFF = dict.fromkeys(LINES, "0")


@pytest.fixture
def lit(daemons):
    """A daemon whose laser is on. Its board, and its guard's, write down what they are asked."""
    daemon = daemons.start(TESSALINE_BOARD_TRANSCRIPT="transcript.txt", **QUICK)
    assert daemon.get("state")["laser"] is True
    daemon.board = daemon.folder / "transcript.txt"
    daemon.guards_board = daemon.folder / "transcript.txt.guard"
    return daemon


def test_the_lines_are_those_of_the_laser(tmp_path):
    transcript = tmp_path / "transcript.txt"
    tool("laser", "off", "--virtual", "K3610", TESSALINE_BOARD_TRANSCRIPT=str(transcript),
         TESSALINE_SOCKET=str(tmp_path / "none"))
    assert levels(transcript) == OFF


@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM, signal.SIGHUP, signal.SIGQUIT])
def test_a_signal_that_asks_for_the_end_switches_it_off(lit, number):
    assert lit.end(number) == 0
    assert levels(lit.board) == OFF
    assert not lit.socket.exists()


def test_a_segmentation_fault_ends_the_daemon(lit):
    assert lit.end(signal.SIGSEGV, seconds=2) == -signal.SIGSEGV


@pytest.mark.parametrize("number", [signal.SIGKILL, signal.SIGSEGV, signal.SIGABRT, signal.SIGBUS,
                                    signal.SIGILL, signal.SIGFPE, signal.SIGUSR2])
def test_a_sudden_end_leaves_it_to_the_guard(lit, number):
    guard, = children(lit.pid)
    lit.process.send_signal(number)
    if number == signal.SIGSEGV:  # see the test before this one
        time.sleep(0.01)
    assert lit.end(number) == -number
    wait_until(lambda: not runs(guard), what="the guard's end")
    assert levels(lit.guards_board) == OFF


def test_the_guard_leaves_alone_what_is_off_already(lit):
    guard, = children(lit.pid)
    lit.write("PUT", "laser", {"on": False})
    lit.end(signal.SIGKILL)
    wait_until(lambda: not runs(guard), what="the guard's end")
    assert levels(lit.guards_board) == {}


@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM, signal.SIGHUP])
def test_the_guard_outlives_signals_that_are_meant_for_both(lit, number):
    guard, = children(lit.pid)
    os.kill(guard, number)
    assert lit.get("state")["laser"] is True
    assert runs(guard)


def test_the_laser_is_off_at_once_when_it_is_switched_off(lit):
    assert lit.write("PUT", "laser", {"on": False})["laser"] is False
    assert lit.get("state")["laser"] is False
    assert lit.end() == 0
    switched = re.findall(r"gpio write gpio907/value (\d)", lit.board.read_text())
    assert "1" in switched and switched[-1] == "0"


def test_the_laser_may_be_off_from_the_start(daemons):
    daemon = daemons.start("--laser", "off", TESSALINE_BOARD_TRANSCRIPT="transcript.txt", **QUICK)
    state = daemon.get("state")
    assert (state["laser"], state["laser_seconds"], state["acquisition"]) == (False, 0, True)
    assert daemon.end() == 0
    assert "1" not in re.findall(r"gpio write gpio907/value (\d)",
                                 (daemon.folder / "transcript.txt").read_text())


@pytest.mark.parametrize("switch_on", [
    ("PUT", "laser", {"on": True}), ("PATCH", "settings", {"laser": "on"}),
])
def test_off_makes_void_what_was_asked_before(daemons, switch_on):
    lit = daemons.start()
    lit.write("PUT", "laser", {"on": False})
    # A change of the mode takes a second, and what is asked meanwhile waits.
    with futures.ThreadPoolExecutor() as threads:
        threads.submit(lit.write, "PUT", "mode", {"mode": "images"})
        time.sleep(0.2)
        method, path, body = switch_on
        on = threads.submit(lit.request, method, f"/api/v1/{path}", body, token=lit.token)
        time.sleep(0.2)
        lit.write("PUT", "laser", {"on": False})
        assert on.result().status == 409 and "switched off" in on.result().json()["error"]
    assert lit.get("state")["laser"] is False
    lit.write("PUT", "laser", {"on": True})
    assert lit.get("state")["laser"] is True


def test_the_laser_may_be_on_for_a_time(lit):
    start = time.monotonic()
    lit.write("PUT", "laser", {"on": True, "seconds": 0.3})
    wait_until(lambda: not lit.get("state")["laser"])
    assert time.monotonic() - start > 0.3
    lit.write("PUT", "laser", {"on": True, "seconds": 1})
    lit.write("PUT", "laser", {"on": True})  # from now on without an end
    time.sleep(2)
    assert lit.get("state")["laser"] is True


@pytest.mark.parametrize("body", [
    {"on": True, "seconds": 0}, {"on": True, "seconds": -1}, {"on": True, "seconds": 3601},
    {"on": True, "seconds": "5"}, {"on": False, "seconds": 5}, {"seconds": 5},
    {"on": True, "seconds": None}, {"on": True, "seconds": 5, "minutes": 1},
])
def test_a_wrong_time_is_refused(lit, body):
    lit.write("PUT", "laser", body, status=422)
    assert lit.get("state")["laser"] is True


def test_without_its_guard_the_laser_stays_off(lit):
    lit.write("PUT", "laser", {"on": False})
    guard, = children(lit.pid)
    os.kill(guard, signal.SIGKILL)
    wait_until(lambda: not runs(guard))

    def switch_on():
        return lit.request("PUT", "/api/v1/laser", {"on": True}, token=lit.token)

    # The end of the process' last thread may take a moment longer.
    wait_until(lambda: switch_on().status == 409)
    assert "guard" in switch_on().json()["error"]
    wait_until(lambda: lit.get("state")["laser"] is False)


def test_a_guard_that_dies_takes_the_light_with_it(lit):
    guard, = children(lit.pid)
    os.kill(guard, signal.SIGKILL)
    wait_until(lambda: not lit.get("state")["laser"], seconds=2, what="the laser going off")


def test_an_interrupt_during_the_start_leaves_it_off(daemons):
    started = [daemons.launch(TESSALINE_BOARD_TRANSCRIPT="transcript.txt") for _ in range(6)]
    for daemon in started:
        time.sleep(0.15)
        daemon.process.send_signal(signal.SIGINT)
    for daemon in started:
        assert daemon.process.wait(10) in (0, 130, -signal.SIGINT)
        assert set(levels(daemon.folder / "transcript.txt").values()) <= {"0"}


def test_an_interrupt_ends_streams_and_requests(lit):
    with stalled(lit, "profile", 100), lit.connect() as waiting:
        waiting.sendall(b"GET / HT")
        assert lit.end() == 0


def test_a_daemon_that_stands_still_loses_its_light(lit):
    guard, = children(lit.pid)
    os.kill(lit.pid, signal.SIGSTOP)
    wait_until(lambda: not runs(guard), 15, what="the guard's loss of patience")
    assert levels(lit.guards_board) == OFF
    os.kill(lit.pid, signal.SIGCONT)
    wait_until(lambda: lit.get("state")["laser"] is False, what="a state that says so")
