"""The other commands act on the daemon's sensor."""

from __future__ import annotations

import csv
import json
import os
import signal
import subprocess

import pytest
from daemon import PROGRAM, Daemon, clean_environment, tool, wait_until


@pytest.fixture
def daemon(steady_daemon) -> Daemon:
    """One that the tests share, as it is after its start."""
    recipe = settings(steady_daemon)
    yield steady_daemon
    steady_daemon.request("PUT", "/api/v1/mode", {"mode": "strips"}, token=steady_daemon.token)
    steady_daemon.request("PATCH", "/api/v1/settings", recipe, token=steady_daemon.token)


def command(daemon: Daemon, *words: object, status: int = 0) -> str:
    """What a command prints, with the daemon's socket; its errors when it is to fail."""
    done = tool(*words, TESSALINE_SOCKET=str(daemon.socket))
    assert done.returncode == status, done.stdout + done.stderr
    return done.stdout if status == 0 else done.stderr


def as_json(daemon: Daemon, *words: object):
    return json.loads(command(daemon, *words, "--json"))


def settings(daemon: Daemon) -> dict:
    return daemon.request("GET", "/api/v1/settings").json()


def state(daemon: Daemon) -> dict:
    return daemon.request("GET", "/api/v1/state").json()


@pytest.mark.parametrize(
    ("words", "key", "value"),
    [
        (("exposure", 123), "exposure_us", 123),
        (("exposure", "--time", 77), "exposure_us", 77),
        (("roi", 128, 256, 1000, 700), "region",
         {"x": 128, "y": 256, "width": 1000, "height": 700}),
        (("trigger", "--mode", "timer", "--spacing", 5000), "spacing", 5000),
        (("power", 30), "power_percent", 30),
        (("led", "blue"), "led", "blue"),
    ],
)
def test_a_setting_is_made_on_the_live_sensor(daemon, words, key, value):
    before = state(daemon)["counters"]["strips"]
    report = as_json(daemon, *words)
    assert settings(daemon)[key] == value
    assert report["board"] == "virtual" and "tessaline serve" in report["served_by"]
    # The device was not started anew: frames go on to be counted.
    wait_until(lambda: state(daemon)["counters"]["strips"] > before)


def test_a_wrong_setting_is_refused_and_changes_nothing(daemon):
    before = settings(daemon)
    assert "region" in command(daemon, "roi", 0, 0, 9999, 9999, status=2)
    assert settings(daemon) == before


def test_a_rehearsal_changes_nothing(daemon):
    before = settings(daemon)
    assert "Nothing was touched" in command(daemon, "exposure", 55, "--dry-run")
    assert settings(daemon) == before


def test_the_laser_is_switched_for_everybody(daemon):
    command(daemon, "laser", "off")
    assert state(daemon)["laser"] is False
    assert "off" in command(daemon, "laser")
    command(daemon, "laser", "on", "--seconds", 0.2)
    assert state(daemon)["laser"] is False
    command(daemon, "laser", "on")
    assert state(daemon)["laser"] is True


def test_registers_are_those_of_the_live_sensor(daemon):
    command(daemon, "roi", 128, 256, 1000, 700)
    assert as_json(daemon, "roi")["width"] == 1000
    read = as_json(daemon, "reg", "read", "TRIGGER_CTRL.global_control")
    assert read[0]["field_value"] == 1
    assert "only reads registers" in command(daemon, "reg", "write", "TRIGGER_CTRL", 0, status=1)


def test_profiles_are_captured_in_millimetres_beside_others(daemon, tmp_path):
    file = tmp_path / "scan.csv"
    report = as_json(daemon, "capture", "strips", "-n", 50, "-o", file)
    assert report["frames"] == 50 and report["missing_ids"] == 0 and report["unit"] == "mm"
    with file.open() as lines:
        rows = list(csv.DictReader(lines))
    assert len({row["frame_id"] for row in rows}) == 50
    assert all(-100 < float(row["x_mm"]) < 100 for row in rows)
    assert state(daemon)["acquisition"] is True and state(daemon)["laser"] is True


def test_images_need_the_daemon_s_mode(daemon, tmp_path):
    file = tmp_path / "image.png"
    assert "takes strips now" in command(daemon, "capture", "images", "-n", 1, "-o", file, status=1)
    daemon.request("PUT", "/api/v1/mode", {"mode": "images"}, token=daemon.token)
    assert as_json(daemon, "capture", "images", "-n", 1, "-o", file)["frames"] == 1
    assert file.read_bytes().startswith(b"\x89PNG")


def test_watch_shows_the_live_sensor(daemon):
    lines = command(daemon, "watch", "-t", 1, "--interval", 0.5, "--json").splitlines()
    assert json.loads(lines[-1])["profiles"] > 0 and json.loads(lines[-1])["unit"] == "mm"


def test_a_recording_has_all_frames_and_the_registers(daemon, tmp_path):
    file = tmp_path / "run.db3"
    report = as_json(daemon, "record", "-o", file, "-t", 1)
    assert report["strips"] > 100 and report["dropped_frames"] == 0
    facts = as_json(daemon, "bag", "info", file)
    assert facts["device"]["model"] == "K3610"
    assert facts["topics"]["/tessaline/registers"]["messages"] > 50


def test_a_recording_is_whole_when_the_daemon_is_killed(daemons, tmp_path):
    daemon = daemons.start()
    file = tmp_path / "run.db3"
    recorder = subprocess.Popen(
        [PROGRAM.with_name("tessaline"), "record", "-o", file, "--json"], stdout=subprocess.PIPE,
        env=clean_environment(TESSALINE_SOCKET=str(daemon.socket)),
    )
    wait_until(lambda: file.exists() and state(daemon)["counters"]["strips"] > 300, 10)
    os.kill(daemon.pid, signal.SIGKILL)
    report = json.loads(recorder.communicate(timeout=20)[0])
    assert report["strips"] > 0 and "has ended" in report["error"]
    assert recorder.returncode == 3
    assert tool("bag", "check", file).returncode == 0


def test_who_has_the_sensor_is_named(daemon):
    for words in (("check", "--model", "K3610"), ("info", "--start"),
                  ("exposure", 100, "--direct", "--model", "K3610")):
        assert f"process {daemon.pid}" in command(daemon, *words, status=1)


def test_another_model_than_the_daemon_s_is_refused(daemon):
    assert "has a K3610, not a K3920" in command(daemon, "exposure", 100, "--model", "K3920",
                                                 status=2)


def test_a_virtual_board_of_one_s_own_is_left_alone(daemon):
    before = settings(daemon)
    report = as_json(daemon, "exposure", 99, "--virtual", "K3610")
    assert "served_by" not in report and settings(daemon) == before


def test_watch_follows_a_region_that_somebody_changes(daemon):
    watching = subprocess.Popen(
        [PROGRAM.with_name("tessaline"), "watch", "-t", "3", "--interval", "0.5", "--json"],
        stdout=subprocess.PIPE, env=clean_environment(TESSALINE_SOCKET=str(daemon.socket)),
    )
    json.loads(watching.stdout.readline())
    daemon.request("PATCH", "/api/v1/settings", {"region": {
        "x": 0, "y": 544, "width": 1456, "height": 544}}, token=daemon.token)
    last = json.loads(watching.communicate(timeout=20)[0].splitlines()[-1])
    # The belt lies at 0 mm. It would seem to lie 20 mm higher.
    assert last["z"][0] == pytest.approx(0, abs=0.5)


def test_a_capture_in_which_the_region_changes_is_none(daemon, tmp_path):
    capture = subprocess.Popen(
        [PROGRAM.with_name("tessaline"), "capture", "strips", "-t", "2", "-o", tmp_path / "a.csv"],
        stderr=subprocess.PIPE, env=clean_environment(TESSALINE_SOCKET=str(daemon.socket)),
    )
    wait_until(lambda: (tmp_path / "a.csv").exists())
    daemon.request("PATCH", "/api/v1/settings", {"region": {
        "x": 0, "y": 544, "width": 1456, "height": 544}}, token=daemon.token)
    assert b"somebody changed the region" in capture.communicate(timeout=20)[1]
    assert capture.returncode == 1


@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGKILL])
def test_a_capture_says_that_the_daemon_has_ended(daemons, tmp_path, number):
    daemon = daemons.start()
    capture = subprocess.Popen(
        [PROGRAM.with_name("tessaline"), "capture", "strips", "-t", "30", "-o", tmp_path / "a.csv",
         "--json"],
        stdout=subprocess.PIPE, env=clean_environment(TESSALINE_SOCKET=str(daemon.socket)),
    )
    file = tmp_path / "a.csv"
    wait_until(lambda: file.exists() and file.stat().st_size > 100_000, 20)
    daemon.end(number)
    report = json.loads(capture.communicate(timeout=10)[0])
    assert f"tessaline serve (process {daemon.pid}) has ended" in report["error"]
    assert report["frames"] > 0 and f"{report['frames']} frames are kept" in report["error"]
    assert report["status"] == capture.returncode == 3


def test_watch_says_that_the_daemon_has_ended(daemons):
    daemon = daemons.start()
    watching = subprocess.Popen(
        [PROGRAM.with_name("tessaline"), "watch", "-t", "30", "--interval", "0.5", "--json"],
        stdout=subprocess.PIPE, env=clean_environment(TESSALINE_SOCKET=str(daemon.socket)),
    )
    json.loads(watching.stdout.readline())
    os.kill(daemon.pid, signal.SIGKILL)
    assert b"has ended" in watching.communicate(timeout=10)[0]
    assert watching.returncode == 3


def test_the_laser_goes_off_when_the_command_that_counts_is_killed(daemon):
    command(daemon, "laser", "off")
    counting = subprocess.Popen(
        [PROGRAM.with_name("tessaline"), "laser", "on", "--seconds", "2"],
        env=clean_environment(TESSALINE_SOCKET=str(daemon.socket)),
    )
    wait_until(lambda: state(daemon)["laser"])
    counting.kill()
    counting.wait()
    assert state(daemon)["laser"] is True
    wait_until(lambda: not state(daemon)["laser"], 10)
    command(daemon, "laser", "on")
