"""Recordings that are started over the network."""

import json
import os
import pathlib
import signal
import time

import pytest
from daemon import children, tool, wait_until


@pytest.fixture(scope="module")
def folder(tmp_path_factory):
    return tmp_path_factory.mktemp("recordings") / "made" / "by it"


@pytest.fixture(scope="module")
def daemon(module_daemons, folder):
    return module_daemons.start("--recordings", folder)


def contents(path: pathlib.Path) -> dict:
    shown = tool("bag", "info", path, "--json")
    assert shown.returncode == 0, shown
    return json.loads(shown.stdout)


def recorded(daemon, megabytes: float = 1) -> dict:
    """What is said of a recording at its end; a megabyte is about 80 profiles."""
    file = daemon.write("POST", "recordings", status=201)["file"]
    wait_until(lambda: (daemon.get("state")["recording"] or {}).get("megabytes", 0) > megabytes,
               seconds=10, what="a recording that grows")
    done = daemon.write("DELETE", "recordings/current")
    assert done["file"] == file
    return done


def test_a_recording_has_the_profiles(daemon, folder):
    assert daemon.get("state")["recordings_possible"] is True
    done = recorded(daemon)
    assert daemon.get("state")["recording"] is None
    shown = contents(folder / done["file"])
    assert shown["closed"] and not shown["damaged"]
    assert shown["topics"]["/tessaline/strips"]["messages"] > 0
    assert shown["profiles"]["frames"] > 50 and shown["profiles"]["missing_ids"] == 0
    assert done["dropped"] == 0


def test_a_recording_says_how_many_frames_it_has(daemon, folder):
    done = recorded(daemon)
    profiles = contents(folder / done["file"])["profiles"]["frames"]
    # A buffer of ten may still come while it ends.
    assert done["frames"] <= profiles + 10


def test_a_recording_is_listed(daemon, folder):
    done = recorded(daemon)
    listed = daemon.get("recordings")
    assert listed["folder"] == str(folder)
    entry, = [entry for entry in listed["files"] if entry["file"] == done["file"]]
    assert entry["megabytes"] == pytest.approx((folder / done["file"]).stat().st_size / 1e6)


def test_there_is_one_recording_at_a_time(daemon):
    file = daemon.write("POST", "recordings", status=201)["file"]
    refused = daemon.write("POST", "recordings", status=409)
    assert file in refused["error"]
    wait_until(lambda: daemon.get("state")["recording"])
    assert daemon.write("DELETE", "recordings/current")["file"] == file
    daemon.write("DELETE", "recordings/current", status=409)


def test_recordings_of_one_second_have_two_names(daemon):
    assert recorded(daemon, 0.1)["file"] != recorded(daemon, 0.1)["file"]


def test_a_recording_is_complete_when_the_daemon_ends(daemons, tmp_path):
    daemon = daemons.start("--recordings", tmp_path)
    file = daemon.write("POST", "recordings", status=201)["file"]
    wait_until(lambda: daemon.get("state")["recording"]["megabytes"] > 1)
    assert daemon.end() == 0
    shown = contents(tmp_path / file)
    assert shown["closed"] and shown["profiles"]["frames"] > 50


def test_a_recording_that_ends_by_itself_says_why(daemons, tmp_path):
    daemon = daemons.start("--recordings", tmp_path)
    assert daemon.get("state")["recording_failure"] is None
    file = daemon.write("POST", "recordings", status=201)["file"]
    wait_until(lambda: (tmp_path / file).exists(), seconds=10)
    recorder, = [child for child in children(daemon.pid)
                 if b"record" in pathlib.Path(f"/proc/{child}/cmdline").read_bytes()]
    os.kill(recorder, signal.SIGKILL)
    why = wait_until(lambda: daemon.get("state")["recording_failure"])
    assert file in why and "signal 9" in why
    assert why == daemon.write("DELETE", "recordings/current", status=409)["advice"]
    assert why in [line["text"] for line in daemon.get("log")["lines"]]
    # The next one has no reason yet.
    daemon.write("POST", "recordings", status=201)
    assert daemon.get("state")["recording_failure"] is None


def test_a_folder_that_goes_is_the_reason(daemons, tmp_path):
    folder = tmp_path / "goes"
    daemon = daemons.start("--recordings", folder)
    folder.rmdir()
    daemon.write("POST", "recordings", status=201)
    why = wait_until(lambda: daemon.get("state")["recording_failure"], seconds=10)
    assert str(folder) in why or "No such file" in why, why


def test_without_a_folder_there_are_no_recordings(daemons):
    daemon = daemons.start(TESSALINE_BOARD_SLEEP="0")
    assert daemon.get("state")["recordings_possible"] is False
    assert "--recordings" in daemon.write("POST", "recordings", status=409)["advice"]
    assert daemon.get("recordings")["files"] == []


def test_a_folder_that_cannot_be_made_is_refused(daemons, tmp_path):
    (tmp_path / "file").write_text("")
    daemon = daemons.launch("--recordings", tmp_path / "file" / "folder", TESSALINE_BOARD_SLEEP="0")
    assert daemon.process.wait(10) == 6
    assert "--recordings" in daemon.output()


def test_a_recorder_that_dies_is_noticed(daemon):
    before = set(children(daemon.pid))
    daemon.write("POST", "recordings", status=201)
    recorder, = set(children(daemon.pid)) - before
    time.sleep(0.3)
    os.kill(recorder, signal.SIGKILL)
    wait_until(lambda: daemon.get("state")["recording"] is None)
    assert daemon.get("state")["counters"]["missing_ids"] == 0
    recorded(daemon, 0.1)
