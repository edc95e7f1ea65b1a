"""One daemon at a place."""

import os
import signal
import subprocess
import time

from conftest import QUICK
from daemon import ANSWER_SECONDS, PROGRAM, clean_environment


def test_a_second_daemon_at_the_socket_is_refused(daemons):
    first = daemons.start(**QUICK)
    # At the same port, as daemons have it that are started without options.
    second = daemons.launch(folder=first.folder, port=first.port, **QUICK)
    assert second.process.wait(ANSWER_SECONDS) == 5
    said = second.output()
    assert f"process {first.pid} " in said
    assert "TESSALINE_SOCKET" in said
    # The first one has lost nothing by that.
    assert first.token_file.read_text().strip() == first.token
    assert first.write("PUT", "laser", {"on": True})["laser"] is True
    assert first.socket.exists()


def test_a_killed_daemon_does_not_hinder_the_next(daemons):
    first = daemons.start(**QUICK)
    first.end(signal.SIGKILL)
    assert first.socket.exists()
    second = daemons.start(folder=first.folder, **QUICK)
    assert second.get("state")["ready"]
    assert second.token != first.token


def test_two_places_and_one_port_are_refused(daemons):
    first = daemons.start(**QUICK)
    second = daemons.launch(port=first.port, **QUICK)
    assert second.process.wait(ANSWER_SECONDS) == 6
    said = second.output()
    assert str(first.port) in said and "in use" in said and "--port" in said
    assert not (second.folder / "serve.sock").exists()
    assert first.get("state")["ready"]


def test_two_places_and_two_ports_are_two_daemons(daemons):
    first, second = daemons.start(**QUICK), daemons.start("--laser", "off", **QUICK)
    assert first.port != second.port
    assert (first.get("state")["laser"], second.get("state")["laser"]) == (True, False)
    assert first.request("PUT", "/api/v1/laser", {"on": True}, token=second.token).status == 401


def test_two_sockets_in_one_folder_have_two_tokens(daemons):
    first = daemons.start(**QUICK)
    second = daemons.start(folder=first.folder, TESSALINE_SOCKET=str(first.folder / "other.sock"),
                           **QUICK)
    assert first.token_file.read_text().strip() == first.token
    assert first.token_file != second.token_file


def test_a_port_is_free_again_after_the_end(daemons):
    first = daemons.start(**QUICK)
    first.get("state")
    assert first.end() == 0
    second = daemons.start(port=first.port, **QUICK)
    assert second.port == first.port


def test_the_folder_of_the_socket_is_made(daemons, tmp_path):
    place = tmp_path / "new" / "folder" / "serve.sock"
    daemon = daemons.start(TESSALINE_SOCKET=str(place), **QUICK)
    assert daemon.socket == place and place.is_socket()


def test_a_place_that_is_too_long_is_refused_with_words(daemons, tmp_path):
    daemon = daemons.launch(TESSALINE_SOCKET=str(tmp_path / ("x" * 120)), **QUICK)
    assert daemon.process.wait(ANSWER_SECONDS) == 6
    assert "TESSALINE_SOCKET" in daemon.output()


def test_what_is_no_socket_is_not_removed(daemons, tmp_path):
    place = tmp_path / "notes.txt"
    place.write_text("mine")
    daemon = daemons.launch(TESSALINE_SOCKET=str(place), **QUICK)
    assert daemon.process.wait(ANSWER_SECONDS) == 5
    assert place.is_file() and place.read_text() == "mine"


def test_the_socket_goes_with_the_daemon(daemons):
    daemon = daemons.start(**QUICK)
    assert daemon.end() == 0
    assert not daemon.socket.exists()
    assert not [name for name in os.listdir(daemon.folder) if name.endswith(".sock")]


def test_a_machine_that_is_no_sensor_is_said_at_once(tmp_path):
    """The daemon does not look for a daemon to act on, and wait for itself."""
    begin = time.monotonic()
    done = subprocess.run(
        [PROGRAM, "--model", "K3610", "--port", "0"], capture_output=True, text=True, timeout=30,
        env=clean_environment(TESSALINE_SOCKET=str(tmp_path / "serve.sock")), check=False,
    )
    assert done.returncode == 3 and "not a K3610 board" in done.stderr
    assert time.monotonic() - begin < 10
