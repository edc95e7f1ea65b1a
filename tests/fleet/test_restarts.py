"""Publishers and subscribers that are killed, or ended while there is no server."""

from __future__ import annotations

import signal
import time

import pytest
import recording
from commands import json_of, tool
from hub import Hub
from server import wait_until

NOTE = 24


def test_a_killed_publisher_begins_again_with_its_file(fleet):
    """What was in the file arrives, and what was in memory is named."""
    hub = fleet.adopt(Hub(fleet.folder))
    options = ["--memory", "16", "--store", fleet.folder / "store"]
    first = fleet.publish("line3", hub.url, *options, images=True, spacing=40000)
    first.wait_for_frames(25 * NOTE)
    first.kill()
    hub.start()
    second = fleet.publish("line3", hub.url, *options, images=True, spacing=40000)
    second.wait_for_frames(5 * NOTE)
    second.stop()
    stored = fleet.store(hub.url)
    total = fleet.require_all(named=True)
    assert stored["open_gaps"] == 1
    assert total.delivered > 15  # most of the first one's were in the file


def test_a_killed_publisher_without_a_file_is_named(fleet):
    hub = fleet.hub()
    first = fleet.publish("line3", hub.url).wait_for_frames()
    wait_until(lambda: hub.unstored("line3") > 10, 10, "messages")
    hub.kill()
    time.sleep(0.5)
    first.kill()
    hub.start()
    second = fleet.publish("line3", hub.url).wait_for_frames()
    second.stop()
    fleet.store(hub.url)
    assert fleet.require_all(named=True).open_ended > 0


def test_the_application_survives_its_publisher_and_ends(fleet):
    hub = fleet.hub()
    first = fleet.publish("line3", hub.url).wait_for_frames()
    first.kill_alone()
    size = first.truth.stat().st_size
    wait_until(lambda: first.truth.stat().st_size > size, 5, "more frames for the application")
    first.kill()
    again = fleet.publish("line3", hub.url).wait_for_frames()
    again.stop()
    fleet.store(hub.url)
    fleet.require_all(named=True)


@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM])
def test_ended_without_a_server_everything_is_in_the_file(fleet, number):
    hub = fleet.adopt(Hub(fleet.folder))
    options = ["--store", fleet.folder / "store", "--drain", "0.3"]
    first = fleet.publish("line3", hub.url, *options).wait_for_frames()
    said = first.end(number)
    assert said["waiting"] > 0
    assert "wait in" in first.log.read_text()
    hub.start()
    fleet.publish("line3", hub.url, *options[:2]).wait_for_frames().stop()
    fleet.store(hub.url, "--strict")
    fleet.require_all()


def test_ended_without_a_server_and_without_a_file(fleet):
    hub = Hub(fleet.folder)
    first = fleet.publish("line3", hub.url, "--drain", "0.3").wait_for_frames()
    first.end()
    assert first.status == 1
    assert "are lost: no server can be reached" in first.log.read_text()


def test_two_publishers_of_one_name(fleet):
    hub = fleet.hub()
    first = fleet.publish("line3", hub.url).wait_for_frames()
    refused = tool("publish", "--name", "line3", "--virtual", "K3610", "-t", "1", url=hub.url)
    assert refused.returncode == 5
    assert f"published already, by " in refused.stderr
    assert f"process {first.process.pid}" in refused.stderr
    first.stop()


def test_a_killed_subscriber_goes_on_with_its_file(fleet):
    hub = fleet.hub()
    publisher = fleet.publish("line3", hub.url, spacing=2000)
    for _ in range(4):
        subscriber = fleet.subscribe(hub.url)
        time.sleep(0.7)
        subscriber.kill()
    said = publisher.stop()
    fleet.store(hub.url, "--strict")
    assert fleet.require_all().delivered == said["strips"]


def test_a_gap_begins_where_the_file_ended(fleet):
    """Also if another process of the subscriber has stored what is in front of it."""
    hub = fleet.hub()
    first = fleet.publish("line3", hub.url).wait_for_frames()
    fleet.store(hub.url)
    first.kill()
    fleet.publish("line3", hub.url, "-t", "0.5").result()
    fleet.store(hub.url)
    gaps = [found for _, found in recording.read(fleet.recording)
            if isinstance(found, recording.Missing) and found.kind == "strips"]
    assert [gap.reason for gap in gaps] == ["publisher"]
    assert gaps[0].first > 10
    fleet.require_all(named=True)


def test_the_next_file_has_the_rest(fleet):
    hub = fleet.hub()
    publisher = fleet.publish("line3", hub.url).wait_for_frames()
    first = fleet.subscribe(hub.url)
    time.sleep(1)
    first.end()
    said = publisher.stop()
    second = fleet.folder / "second.db3"
    fleet.store(hub.url, "--strict", file=second)
    both = fleet.require_all(fleet.recording, second)
    assert both.delivered == said["strips"]


def test_one_subscriber_at_a_time_has_a_name(fleet):
    hub = fleet.hub()
    publisher = fleet.publish("line3", hub.url).wait_for_frames()
    first = fleet.subscribe(hub.url)
    wait_until(fleet.recording.exists, 5, "a recording")
    time.sleep(1)
    other = tool("subscribe", ">", "-o", fleet.folder / "other.db3", "-t", "20", url=hub.url)
    assert other.returncode == 5
    assert "has another subscriber with the name archive" in other.stderr
    same_file = tool("subscribe", ">", "-o", fleet.recording, "--as", "x", "-t", "1", url=hub.url)
    assert same_file.returncode == 5, same_file.stdout + same_file.stderr
    publisher.stop()
    first.end()
    fleet.store(hub.url)
    fleet.require_all()


def test_a_second_name_gets_everything_too(fleet):
    hub = fleet.hub()
    publisher = fleet.publish("line3", hub.url).wait_for_frames()
    quality = fleet.folder / "quality.db3"
    second = fleet.start("subscribe", "line3", "-o", quality, "--as", "quality", url=hub.url)
    wait_until(quality.exists, 5, "a recording")
    said = publisher.stop()
    second.end()
    fleet.store(hub.url)
    assert fleet.require_all().delivered == said["strips"]
    json_of("subscribe", "line3", "-o", quality, "--as", "quality", "--once", url=hub.url)
    assert fleet.require_all(quality).delivered == said["strips"]
