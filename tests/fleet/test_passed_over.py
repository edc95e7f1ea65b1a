"""What a server keeps for a subscriber and does not deliver, and streams that begin again."""

from __future__ import annotations

import time

import pytest
from commands import tool
from server import wait_until

KEPT = 30  # messages, at least
NOTE = 24  # bytes in which the application notes a frame


@pytest.fixture
def kept(fleet):
    """A publisher of whose messages the archive has the first ones, and the server the others."""
    hub = fleet.hub()
    publisher = fleet.publish("line3", hub.url).wait_for_frames()
    fleet.store(hub.url)
    wait_until(lambda: hub.unstored("line3") > KEPT, 20, "messages")
    return hub, publisher


def test_the_last_messages(fleet, kept):
    hub, publisher = kept
    said = publisher.stop()
    hub.pass_over("line3", "archive")
    stored = fleet.store(hub.url, "--strict")
    assert fleet.require_all().delivered == said["strips"]
    assert stored["passed_over"] > KEPT


def test_messages_in_front_of_others(fleet, kept):
    hub, publisher = kept
    hub.pass_over("line3", "archive")
    archive = fleet.subscribe(hub.url)
    publisher.wait_for_frames(publisher.truth.stat().st_size + KEPT * NOTE)
    said = publisher.stop()
    archive.end()
    fleet.store(hub.url, "--strict")
    assert fleet.require_all().delivered == said["strips"]


def test_a_subscriber_that_runs_finds_them(fleet, kept):
    hub, publisher = kept
    said = publisher.stop()
    hub.pass_over("line3", "archive")
    archive = fleet.subscribe(hub.url)
    time.sleep(15)
    archive.end()
    assert fleet.require_all().delivered == said["strips"]


def test_a_new_file_does_not_get_what_the_last_one_has(fleet, kept):
    """The server keeps them for a while."""
    hub, publisher = kept
    publisher.kill()
    fleet.store(hub.url)
    fleet.publish("line3", hub.url).wait_for_frames().stop()
    second = fleet.folder / "second.db3"
    fleet.store(hub.url, file=second)
    fleet.require_all(fleet.recording, second, named=True)


def test_a_stream_that_begins_again(fleet):
    """Its numbers have all been there."""
    hub = fleet.hub()
    archive = fleet.subscribe(hub.url)
    first = fleet.publish("line3", hub.url).wait_for_frames()
    time.sleep(2)
    first.stop()
    wait_until(lambda: hub.unstored("line3") == 0, 10, "everything stored")
    assert tool("fleet", "forget", "line3", url=hub.url).returncode == 0
    fleet.publish("line3", hub.url).wait_for_frames().stop()
    wait_until(lambda: hub.unstored("line3") == 0, 20, "everything stored")
    archive.end()
    fleet.require_all()
