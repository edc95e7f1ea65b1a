"""Figures for monitoring."""

import asyncio
import math
import shutil
import subprocess

import pytest
import ring
from daemon import wait_until
from metrics_text import parse, value
from streams import collect

MISSING = 'tessaline_frames_lost_total{cause="missing_id"}'


def test_every_line_can_be_read(daemon):
    answer = daemon.request("GET", "/metrics")
    assert answer.headers["Content-Type"].startswith("text/plain; version=0.0.4")
    families = parse(answer.body.decode())
    assert len(families) > 20
    for name, family in families.items():
        assert family.help and family.type and family.samples, name


def test_names_follow_the_conventions(daemon):
    for name, family in parse(daemon.metrics()).items():
        assert name.startswith("tessaline_"), name
        assert (family.type == "counter") == name.endswith("_total"), name
        for word in ("milliseconds", "_ms", "_us", "kilobytes", "megabytes", "percent"):
            assert word not in name
        if "duration" in name or "uptime" in name:
            assert name.removesuffix("_total").endswith("_seconds"), name
        assert family.help.endswith("."), name


def test_the_unit_is_the_last_word_of_a_name(daemon):
    for name in parse(daemon.metrics()):
        if "_bytes" in name:
            assert name.removesuffix("_total").endswith("_bytes"), name


def test_the_buckets_of_durations_add_up(daemon):
    samples = parse(daemon.metrics())["tessaline_handler_duration_seconds"].samples
    buckets = {key: number for key, number in samples.items() if "_bucket{" in key}
    bounds = [math.inf if "+Inf" in key else float(key.split('"')[1]) for key in buckets]
    counts = list(buckets.values())
    assert bounds == sorted(set(bounds)) and bounds[-1] == math.inf
    assert counts == sorted(counts)
    assert counts[-1] == samples["tessaline_handler_duration_seconds_count{}"] > 0
    assert samples["tessaline_handler_duration_seconds_sum{}"] > 0


def test_a_checker_of_metrics_finds_nothing(daemon):
    if not shutil.which("promtool"):
        pytest.skip("no promtool; it is in the package prometheus")
    checked = subprocess.run(["promtool", "check", "metrics"], input=daemon.metrics(),
                             capture_output=True, text=True, timeout=30, check=False)
    assert (checked.returncode, checked.stdout + checked.stderr) == (0, "")


def counters(daemon) -> dict[str, float]:
    return {key: number for family in parse(daemon.metrics()).values()
            if family.type in ("counter", "histogram") for key, number in family.samples.items()}


def test_no_counter_ever_falls(daemon):
    """Whatever is switched, and whoever leaves."""
    now = counters(daemon)

    def nothing_fell():
        nonlocal now
        before, now = now, counters(daemon)
        fallen = {key: (before[key], now[key]) for key in before if now[key] < before[key]}
        assert not fallen
        assert set(before) == set(now)

    wait_until(lambda: counters(daemon)['tessaline_frames_total{kind="strip"}'] > 500, seconds=8)
    asyncio.run(collect(daemon, "profile", 0.2))
    nothing_fell()
    for path, body in (("acquisition", {"on": False}), ("laser", {"on": False}),
                       ("acquisition", {"on": True}), ("laser", {"on": True}),
                       ("mode", {"mode": "images"}), ("mode", {"mode": "strips"})):
        daemon.write("PUT", path, body)
        nothing_fell()
    with ring.opened(daemon, memory=1):
        daemon.patch(region={"x": 0, "y": 700, "width": 1456, "height": 200}, spacing=1000)
        wait_until(lambda: counters(daemon)["tessaline_recorder_frames_dropped_total{}"] > 0)
        nothing_fell()
    wait_until(lambda: value(daemon.metrics(), "tessaline_recorders") == 0)
    nothing_fell()


def test_lost_triggers_are_counted_and_stay_counted(daemons):
    """All rows take four times as long to read out."""
    daemon = daemons.start("--spacing", 1000)
    key = "tessaline_triggers_lost_total"
    lost = wait_until(lambda: value(daemon.metrics(), key))
    daemon.write("PUT", "acquisition", {"on": False})
    daemon.write("PUT", "acquisition", {"on": True})
    wait_until(lambda: value(daemon.metrics(), key) != lost)
    assert value(daemon.metrics(), key) > lost


@pytest.fixture(scope="module")
def lossy(module_daemons):
    """A sensor that has lost four buffers of ten profiles."""
    daemon = module_daemons.start(TESSALINE_BOARD_FAULTS="frame strips lost 3 4")
    wait_until(lambda: daemon.get("state")["counters"]["missing_ids"] > 0, what="a gap in the ids")
    return daemon


def missing(daemon) -> int:
    return daemon.get("state")["counters"]["missing_ids"]


def test_profiles_that_never_come_are_counted(lossy):
    """A buffer that has waited is delivered with fewer than ten."""
    assert 3 * 10 < missing(lossy) <= 4 * 10
    assert value(lossy.metrics(), MISSING) == missing(lossy)


def test_a_lost_frame_is_lost_once(lossy):
    lost = parse(lossy.metrics())["tessaline_frames_lost_total"].samples
    assert sum(lost.values()) == missing(lossy)


def test_figures_follow_the_state(daemon):
    daemon.write("PUT", "laser", {"on": False})
    daemon.write("PUT", "acquisition", {"on": False})
    figures = daemon.metrics()
    assert value(figures, "tessaline_laser_on") == 0
    assert value(figures, "tessaline_acquisition_running") == 0
    seconds = value(figures, "tessaline_laser_on_seconds_total")
    daemon.write("PUT", "laser", {"on": True})
    daemon.write("PUT", "acquisition", {"on": True})
    wait_until(lambda: value(daemon.metrics(), "tessaline_laser_on_seconds_total") > seconds)
    assert value(daemon.metrics(), "tessaline_laser_on") == 1
    assert value(daemon.metrics(), "tessaline_up") == 1


def test_messages_to_clients_stay_counted_when_they_leave(daemon):
    key = 'tessaline_stream_messages_total{stream="profile"}'
    before = value(daemon.metrics(), key)
    got = len(asyncio.run(collect(daemon, "profile", 0.3)))
    wait_until(lambda: value(daemon.metrics(), "tessaline_stream_clients") == 0)
    assert value(daemon.metrics(), key) >= before + got
