"""A server that ends, comes back, is not there yet, and lines to it that fail."""

from __future__ import annotations

import time

import pytest
from commands import tool
from hub import Hub
from relay import Relay
from server import wait_until

SHORT = 0.7  # enough for some messages to be on their way


@pytest.mark.parametrize("how", ["kill", "stop"])
def test_the_server_ends_and_comes_back(fleet, how):
    hub = fleet.hub()
    subscriber = fleet.subscribe(hub.url)
    publisher = fleet.publish("line3", hub.url).wait_for_frames()
    for _ in range(2):
        getattr(hub, how)()
        time.sleep(SHORT)
        hub.start()
        time.sleep(2 * SHORT)
    said = publisher.stop()
    subscriber.end()
    fleet.store(hub.url)
    assert fleet.require_all().delivered == said["strips"]


def test_a_server_that_comes_later(fleet):
    hub = Hub(fleet.folder)
    publisher = fleet.publish("line3", hub.url).wait_for_frames()
    assert "frames wait" in publisher.log.read_text()
    refused = tool("subscribe", ">", "-o", fleet.recording, url=hub.url)
    assert refused.returncode == 3
    assert "no server answers" in refused.stderr
    assert not fleet.recording.exists()
    fleet.adopt(hub).start()
    wait_until(lambda: hub.unstored("line3") > 0, 10, "messages")
    said = publisher.stop()
    fleet.store(hub.url)
    assert fleet.require_all().delivered == said["strips"]


def test_a_server_that_comes_later_and_takes_small_messages_only(fleet):
    hub = fleet.adopt(Hub(fleet.folder, "max_payload: 65536"))
    publisher = fleet.publish("line3", hub.url, images=True, spacing=50000).wait_for_frames(200)
    hub.start()
    said = publisher.stop()
    fleet.store(hub.url)
    assert fleet.require_all().delivered == said["images"]


def test_a_server_that_stores_nothing(fleet):
    hub = fleet.hub(streams=False)
    publisher = fleet.publish("line3", hub.url, "--drain", "0.5").wait_for_frames()
    publisher.end()
    assert "were not sent and are lost" in publisher.log.read_text()
    assert "nats-server -js" in publisher.log.read_text()


@pytest.mark.parametrize("side", ["publisher", "subscriber"])
def test_a_line_that_is_cut(fleet, side):
    """Messages and acknowledgements are lost in every cut."""
    hub = fleet.hub()
    with Relay(hub.port) as relay:
        bad = relay.url
        subscriber = fleet.subscribe(hub.url if side == "publisher" else bad)
        publisher = fleet.publish("line3", hub.url if side == "subscriber" else bad, spacing=2000)
        publisher.wait_for_frames()
        for turn in range(5):
            if turn % 2:
                relay.swallow(100_000)
            else:
                relay.cut()
            time.sleep(0.6)
        relay.cut()
        said = publisher.stop()
        subscriber.end()
    fleet.store(hub.url)
    assert fleet.require_all().delivered == said["strips"]


def test_a_line_that_says_nothing_for_a_while(fleet):
    hub = fleet.hub()
    with Relay(hub.port) as relay:
        publisher = fleet.publish("line3", relay.url).wait_for_frames()
        relay.stall(True)
        time.sleep(5)  # longer than the wait for an answer
        relay.stall(False)
        said = publisher.stop()
    fleet.store(hub.url)
    assert fleet.require_all().delivered == said["strips"]
