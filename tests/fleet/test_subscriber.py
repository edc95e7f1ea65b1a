"""When a subscriber ends, and in which order it stores."""

from __future__ import annotations

import sqlite3
import time

import pytest
from commands import json_of, tool


@pytest.fixture(name="kept")
def _kept(fleet):
    """A server that has something of two sensors."""
    hub = fleet.hub()
    both = [fleet.publish(f"line3.{side}", hub.url, "-t", "1", spacing=10000)
            for side in ("left", "right")]
    hub.strips = {each.name: each.result()["strips"] for each in both}
    return hub


def test_a_number_of_frames(fleet, kept):
    first = json_of("subscribe", ">", "-o", fleet.recording, "-n", "20", url=kept.url)
    assert 20 <= first["strips"] < sum(kept.strips.values())
    rest = fleet.store(kept.url)
    assert first["strips"] + rest["strips"] == sum(kept.strips.values())
    fleet.require_all()


def test_a_time(fleet, kept):
    began = time.monotonic()
    said = json_of("subscribe", "line3.*", "-o", fleet.recording, "-t", "1", url=kept.url)
    assert 0.9 < time.monotonic() - began < 4
    assert said["strips"] == sum(kept.strips.values())
    fleet.require_all()


def test_once_ends_with_nothing_there(fleet):
    said = json_of("subscribe", ">", "-o", fleet.recording, "--once", url=fleet.hub().url)
    assert (said["strips"], said["sensors"]) == (0, {})


def test_a_pattern_takes_only_its_sensors(fleet, kept):
    said = fleet.store(kept.url, "--strict", pattern="*.left")
    assert {name: counts["strips"] for name, counts in said["sensors"].items()} == {
        "line3.left": kept.strips["line3.left"]}
    assert kept.unstored("line3.left") == 0
    assert kept.unstored("line3.right") > 0


def test_the_result_as_text(fleet, kept):
    done = tool("subscribe", ">", "-o", fleet.recording, "--once", url=kept.url)
    assert f"{sum(kept.strips.values())} profiles" in done.stdout
    assert "of 2 sensors" in done.stdout
    assert "unexplained 0" in done.stdout


@pytest.mark.parametrize("by", ["time", "encoder"])
def test_frames_of_different_sensors_in_one_order(fleet, by):
    hub = fleet.hub()
    subscriber = fleet.subscribe(hub.url, "--merge", by, "--patience", "0.5")
    both = [fleet.publish(f"line3.{side}", hub.url, "-t", "4", spacing=10000)
            for side in ("left", "right")]
    strips = sum(each.result()["strips"] for each in both)
    time.sleep(0.8)
    said = subscriber.end()
    rest = fleet.store(hub.url, "--merge", by)
    assert said["strips"] + rest["strips"] == strips
    fleet.require_all()
    if by == "time":
        assert changes(fleet.recording) > 20  # their buffers take turns


def changes(path) -> int:
    """How often the next strips are another sensor's."""
    with sqlite3.connect(path) as database:
        topics = [topic for topic, in database.execute(
            "SELECT topic_id FROM messages JOIN topics ON topics.id = topic_id "
            "WHERE topics.name LIKE '%/strips' ORDER BY messages.id")]
    return sum(one != other for one, other in zip(topics, topics[1:]))


def test_a_recording_that_cannot_be_written(fleet, kept):
    for path in ("/nonexistent/all.db3", "/proc/all.db3", fleet.folder):
        done = tool("subscribe", ">", "-o", path, "--once", url=kept.url)
        assert done.returncode in (5, 6), done.stderr
        assert str(path) in done.stderr
    other = fleet.folder / "text.db3"
    other.write_text("some notes of mine\n" * 300)
    done = tool("subscribe", ">", "-o", other, "--once", url=kept.url)
    assert done.returncode == 5
    assert other.read_text() == "some notes of mine\n" * 300
    assert fleet.store(kept.url)["strips"] == sum(kept.strips.values())
